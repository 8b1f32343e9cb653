// The form of a body that a device with memory of its own runs: one worker for each pixel, given one block of
// arguments.
//
// The block, in this order and without gaps: the box of the iteration; for each image its ImageArgument; the address of
// the parameter block, if the kernel has one; for reductions the address of the slots and the end of the component
// range; the first component.
#pragma once

#include "drive.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

template <class D>
consteval bool knowsOfImage() {
    return D::pattern == Pattern::axis || D::pattern == Pattern::rectangle || D::edge == EdgeMethod::constant;
}
template <class... D>
consteval bool knowsOfImages(ImageList<D...>) {
    return (knowsOfImage<D>() || ...);
}
/// False for kernels whose bodies need pixels only.
template <class K>
consteval bool hasParameterBlock() {
    return scalarsOf<K>().count > 0 || derivedOf<K>().count > 0 || knowsOfImages(typename K::Images{});
}

/// The arguments of one launch, taken from their block.
template <class K>
struct DeviceArguments {
    int x0, y0, x1, y1;
    ImageArgument images[K::imageCount];
    const void* block = nullptr;
    float* slots = nullptr;
    unsigned c0 = 0, c1 = 0;

    VT_INLINE explicit DeviceArguments(const void* source) {
        const char* from = static_cast<const char*>(source);
        take(from, x0);
        take(from, y0);
        take(from, x1);
        take(from, y1);
        for (auto& image : images)
            take(from, image);
        if constexpr (hasParameterBlock<K>()) take(from, block);
        if constexpr (K::reduction) {
            take(from, slots);
            take(from, c1);
        }
        take(from, c0);
    }

    VT_INLINE typename K::Params parameters() const {
        typename K::Params parameters{};
        if constexpr (hasParameterBlock<K>()) __builtin_memcpy(&parameters, block, sizeof parameters);
        return parameters;
    }
    VT_INLINE void imageParameters(ImageParameters (&of)[K::imageCount]) const {
        constexpr int offset = (static_cast<int>(sizeof(typename K::Params)) + 15) / 16 * 16;
        if constexpr (hasParameterBlock<K>())
            __builtin_memcpy(of, static_cast<const char*>(block) + offset, sizeof of);
        else
            __builtin_memset(of, 0, sizeof of);
    }

private:
    template <class T>
    static VT_INLINE void take(const char*& from, T& value) {
        __builtin_memcpy(&value, from, sizeof value);
        from += sizeof value;
    }
};

template <class K, Counts T, class Sums>
VT_FN void callDeviceBody(const DeviceArguments<K>& arguments, const typename K::Params& parameters,
                          const ImageParameters* imageParameters, Sums& sums, int x, int y, int c) {
    callBody<K, T, float, Reach::edge>(arguments.images, imageParameters, parameters, sums, typename K::Images{},
                                       typename MakeSequence<K::imageCount>::Type{}, x, y, c, false);
}

/// Worker (x, y) of 256 by 256 strides over the range and leaves its sums in slot y * 256 + x.
template <class K, Counts T>
VT_FN void deviceSums(const DeviceArguments<K>& arguments, int workerX, int workerY) {
    using Sums = typename K::template Sums<float>;
    constexpr int fields = sizeof(Sums) / sizeof(float);
    constexpr int results = sizeof(typename K::Results) / sizeof(float);
    const typename K::Params parameters = arguments.parameters();
    ImageParameters imageParameters[K::imageCount];
    arguments.imageParameters(imageParameters);

    float* slot = arguments.slots + (workerY * deviceWorkersPerAxis + workerX) * results;
    startResults<K>(slot);
    const int c0 = K::perComponent ? static_cast<int>(arguments.c0) : 0;
    const int c1 = K::perComponent ? static_cast<int>(arguments.c1) : 1;
    for (int c = c0; c < c1; ++c) {
        Sums sums = {};
        for (int y = arguments.y0 + workerY; y < arguments.y1; y += deviceWorkersPerAxis)
            for (int x = arguments.x0 + workerX; x < arguments.x1; x += deviceWorkersPerAxis)
                callDeviceBody<K, T>(arguments, parameters, imageParameters, sums, x, y, c);
        const float* values = reinterpret_cast<const float*>(&sums);
        for (int field = 0; field < fields; ++field)
            slot[K::perComponent ? field * 4 + c : field] = values[field];
    }
}

/// The first pass, or the only one. A worker beyond the range does nothing.
template <class K, Counts T>
VT_INLINE void deviceBody(const void* argumentBlock, int workerX, int workerY, int workerZ) {
    const DeviceArguments<K> arguments(argumentBlock);
    if constexpr (K::reduction) {
        deviceSums<K, T>(arguments, workerX, workerY);
    } else {
        int x0 = arguments.x0 + workerX, x1 = x0 + 1;
        int y0 = arguments.y0 + workerY, y1 = y0 + 1;
        if constexpr (runsInRasterOrder<K>()) {  // the first worker does it all
            if (workerX != 0 || workerY != 0) return;
            x1 = arguments.x1;
            y1 = arguments.y1;
        }
        if (x0 >= arguments.x1 || y0 >= arguments.y1) return;
        const typename K::Params parameters = arguments.parameters();
        ImageParameters imageParameters[K::imageCount];
        arguments.imageParameters(imageParameters);
        NoSums none;
        for (int y = y0; y < y1; ++y)
            for (int x = x0; x < x1; ++x)
                callDeviceBody<K, T>(arguments, parameters, imageParameters, none, x, y,
                                     static_cast<int>(arguments.c0) + workerZ);
    }
}

/// The second pass: one group of 256 workers adds the slots up into slot 0. All have to finish phase 0 before worker 0
/// begins phase 1.
template <class K>
VT_INLINE void deviceFold(const void* argumentBlock, int worker, int phase) {
    if constexpr (K::reduction) {
        constexpr int results = sizeof(typename K::Results) / sizeof(float);
        constexpr int slots = deviceWorkersPerAxis * deviceWorkersPerAxis;
        float* all = DeviceArguments<K>(argumentBlock).slots;
        if (phase == 0) {
            for (int slot = worker + deviceFoldWorkers; slot < slots; slot += deviceFoldWorkers)
                foldResults<K>(all + worker * results, all + slot * results);
        } else if (worker == 0) {
            for (int slot = 1; slot < deviceFoldWorkers; ++slot)
                foldResults<K>(all, all + slot * results);
        }
    }
}

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
