#pragma once

#include <array>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "compute/Kernel.h"
#include "tests/harness/TestImage.h"

namespace ViewTint::Tests {

using Vellum::JIT::IterationController;
using Vellum::JIT::KernelExecutionContext;
using Pixel = std::array<double, 4>;

/// The images of one kernel call before it runs, in the kernel's order, for a reference to read.
class Scene {
public:
    explicit Scene(std::vector<Pixels> images) : images_(std::move(images)) {}

    int count(int image) const { return images_[image].components(); }
    const Box& box(int image) const { return images_[image].box(); }
    /// A pixel inside the image's box.
    double at(int image, int x, int y, int c) const { return images_[image].at(x, y, c); }
    /// The nearest pixel of the image's box.
    double clamped(int image, int x, int y, int c) const;
    const std::vector<Pixels>& images() const { return images_; }

private:
    std::vector<Pixels> images_;
};

/// What the last image holds afterwards at (x, y), in double precision, written from the formula.
using Reference = std::function<Pixel(const Scene& scene, int x, int y)>;
/// What the accumulators hold afterwards.
using SumReference = std::function<std::map<std::string, std::vector<double>>(const Scene& scene)>;

/// A kernel and what it should do.
struct KernelCase {
    std::string kernel;
    Reference reference = nullptr;
    std::function<void(KernelExecutionContext&)> scalars = [](KernelExecutionContext&) {};
    /// Allowed: tolerance * (1 + |expected| + the largest finite input).
    double tolerance = 1e-6;
    SumReference sums = nullptr;
    /// The range of a call, where it isn't the whole image.
    std::function<IterationController(const Box&)> range = nullptr;
    /// What the other written images hold afterwards, by their number.
    std::map<int, Reference> otherReferences = {};
    /// The box of image `index` where the kernel wants boxes of unlike sizes; `box` is the last image's.
    std::function<Box(int index, const Box& box)> boxOf = nullptr;
    /// The smallest width and height that the kernel is made for.
    int smallest = 0;
    /// Replaces the pixels of image `index` where a kernel needs values of its own kind.
    std::function<void(int index, Pixels& pixels)> prepare = nullptr;
    /// NaN and infinities among the inputs too.
    bool hostilePixels = true;
};

/// Runs a kernel in every form there is (one pixel at a time; packed, on every instruction set of this machine), with
/// every tuple of pixel types, over planar, padded, packed and widely strided images with negative and positive
/// origins, widths from 0 to beyond two registers, on 1, 2 and 3 threads and with tasks in shuffled order. All results
/// must be equal bit for bit, the memory round the images untouched, pixels outside the range unchanged, and the values
/// those of the reference.
void checkKernel(const KernelCase& kernelCase);

/// Component counts of a tuple.
std::vector<int> countsOf(const Vellum::Kernels::PixelTypes& types);

/// A reference for a body that treats each component by itself: f(values of the read images) at (x, y, c).
Reference eachComponent(std::function<double(const std::vector<double>&)> f);

}  // namespace ViewTint::Tests
