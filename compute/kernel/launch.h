// Plain data that crosses between the host's launch code and the kernel objects. No functions: it means the same in
// every object, whatever instruction set that was compiled for.
#pragma once

namespace Vellum::Kernels {

/// An image as a kernel is given it. Strides in elements.
struct ImageArgument {
    float* data;
    int x0, y0, x1, y1;
    int strideX, strideY, strideC;
    int reserved;
};

/// What a kernel may know of an image besides its pixels: how far it reads round a pixel, and the colour outside.
struct ImageParameters {
    int rangedAxisMask;  ///< for images ranged on one axis: 0 along x, all bits set along y
    int rangeMin[2];     ///< ranged on one axis: [0] alone, along that axis; on two axes: x and y
    int rangeMax[2];
    float constEdgeColor[4];
};

/// One piece of a kernel call: a box, a component range and what the body needs.
struct Launch {
    int x0, y0, x1, y1;
    int c0, c1;
    const ImageArgument* images;
    const ImageParameters* imageParameters;
    const void* parameters;
    float* accumulators;  ///< of this piece alone, as startResults leaves them
};

// ---- what a kernel declares

enum class Pattern { point = 1, axis = 2, rectangle = 3, random = 4 };
enum class EdgeMethod { none = 1, clamped = 2, constant = 3 };

struct ImageDeclaration {
    const char* name;
    bool written;
    Pattern pattern;
    EdgeMethod edge;
};

enum class ScalarType { real = 1, integer = 3, boolean = 4 };

/// What becomes of the workers' own results of a reduction.
enum class Fold { sum, least, most };

struct ScalarDeclaration {
    const char* name;
    ScalarType type;
    int vectorWidth;  ///< 1 to 4
    int arrayLength;  ///< 1 as a rule, 9 for a matrix
    int bytes;
    int offset;  ///< in its block
    Fold fold;   ///< of an accumulator
};

inline constexpr int mostImages = 12;
inline constexpr int mostScalars = 12;

struct ImageDeclarations {
    int count = 0;
    ImageDeclaration list[mostImages] = {};
};

struct ScalarDeclarations {
    int count = 0;
    ScalarDeclaration list[mostScalars] = {};
};

using LaunchFunction = void (*)(const Launch&);

// ---- launches on devices with memory of their own (deviceForm.h)

/// A reduction's first pass has 256 by 256 workers, each with its own slot; one group of 256 folds them.
inline constexpr int deviceWorkersPerAxis = 256;
inline constexpr int deviceFoldWorkers = 256;

/// What one worker does, given the block of arguments and its place in the grid.
using DeviceBody = void (*)(const void* arguments, int workerX, int workerY, int workerZ);
/// What one worker of the folding group does in phase 0 and, after all have finished, in phase 1.
using DeviceFold = void (*)(const void* arguments, int worker, int phase);

/// The compiled forms of a kernel for one tuple of pixel types. All give the same bits (sums on devices: to rounding).
struct VariantFunctions {
    LaunchFunction unitStride;  ///< packed, every image with neighbouring pixels next to each other
    // The others are in the baseline object only.
    LaunchFunction anyStride;  ///< packed
    LaunchFunction onePixel;
    DeviceBody deviceBody;  ///< run by the software device
    DeviceFold deviceFold;
};

/// A kernel's declaration; the baseline object holds it.
struct KernelDeclaration {
    const char* name;
    bool perComponent;
    int passes;
    bool (*hostFormTakes)(const ImageArgument* images);  ///< null: with neighbouring pixels next to each other
    bool hostFormTakesStrips;  ///< its form for whole pieces wants strips one pixel wide as they are, not turned
    bool inRasterOrder;        ///< one pixel after the other: later ones may overwrite what earlier ones wrote
    bool costlyPixels;         ///< a few pixels are worth several threads
    bool hasParameterBlock;
    int parameterBytes;
    int accumulatorBytes;
    ImageDeclarations images;
    ScalarDeclarations scalars;
    ScalarDeclarations derived;
    ScalarDeclarations accumulators;
    void (*writeDefaults)(void* parameters);
    void (*derive)(void* parameters, const ImageArgument* images, ImageParameters* imageParameters);
    void (*startResults)(float* results);
    void (*foldResults)(float* results, const float* part);
    const char* const* tuples;
    int tupleCount;
};

struct KernelEntry {
    const KernelDeclaration* declaration;  ///< in the baseline object only
    const VariantFunctions* variants;      ///< one for each tuple
};

/// The kernels of one source file, compiled for one instruction set.
struct FamilyTable {
    const char* family;
    int kernelCount;
    const KernelEntry* kernels;
};

}  // namespace Vellum::Kernels
