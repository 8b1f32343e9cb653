#include "compute/RemoteDevice.h"

#include <array>
#include <cstring>

namespace Vellum::Compute {

namespace {

using Cobalt::Device::MemoryHandle;
using Vellum::Kernels::ImageArgument;

struct Shape {
    int width, height;
};

/// How workers are grouped: neighbours along a row read neighbouring places; kernels that look round their pixel share
/// more of what they read in squares. Groups of strips one pixel wide have no workers to spare.
Shape shapeFor(const Vellum::Kernels::KernelDeclaration& kernel, const Vellum::Image::Box& box) {
    if (kernel.inRasterOrder) return {1, 1};
    if (box.width() == 1) return {1, 128};
    if (box.height() == 1) return {128, 1};
    using Vellum::Kernels::Pattern;
    Shape shape{64, 4};
    for (int i = 0; i < kernel.images.count; ++i) {
        const Pattern pattern = kernel.images.list[i].pattern;
        if (pattern == Pattern::rectangle || pattern == Pattern::random) return {16, 16};
        if (pattern == Pattern::axis) shape = {32, 8};
    }
    return shape;
}

int groupsFor(int workers, int ofGroup) {
    return (workers + ofGroup - 1) / ofGroup;
}

/// The arguments of a launch in their order, without gaps.
class ArgumentBlock {
public:
    template <class T>
    void put(const T& value) {
        static_assert(std::is_trivially_copyable_v<T>);
        std::memcpy(bytes_.data() + size_, &value, sizeof value);
        size_ += sizeof value;
    }
    std::span<const std::byte> bytes() const { return {bytes_.data(), size_}; }

private:
    static constexpr std::size_t most =
        sizeof(Vellum::Image::Box) + Vellum::Kernels::mostImages * sizeof(ImageArgument) + 3 * sizeof(std::uint64_t);
    alignas(16) std::array<std::byte, most> bytes_{};
    std::size_t size_ = 0;
};

}  // namespace

void RemoteDevice::run(const KernelCall& call) {
    const auto& entry = call.kernel.entry();
    const auto& declaration = entry.declaration();
    const bool reduces = declaration.passes == 2;

    MemoryHandle block;
    if (entry.hasParameterBlock()) {
        block = allocate(call.parameters.size(), Cobalt::Device::bufferMemory());
        upload(*block, 0, call.parameters.data(), call.parameters.size());
    }
    MemoryHandle slots;
    if (reduces) {
        const std::size_t workers = Kernels::deviceWorkersPerAxis * Kernels::deviceWorkersPerAxis;
        slots = allocate(workers * call.accumulators.size_bytes(), Cobalt::Device::bufferMemory());
    }

    ArgumentBlock arguments;
    for (const int edge : {call.box.x0, call.box.y0, call.box.x1, call.box.y1})
        arguments.put(edge);
    for (const ImageArgument& image : call.images)
        arguments.put(image);
    if (block) arguments.put(block->address());
    if (reduces) {
        arguments.put(slots->address());
        arguments.put(static_cast<std::uint32_t>(call.c1));
    }
    arguments.put(static_cast<std::uint32_t>(call.c0));

    if (!reduces) {
        const int depth = declaration.perComponent ? call.c1 - call.c0 : 1;
        const Shape shape = shapeFor(declaration, call.box);
        const Vellum::Image::Box box = declaration.inRasterOrder ? Vellum::Image::Box{0, 0, 1, 1} : call.box;
        launch(call.kernel, Pass::body,
               {{groupsFor(box.width(), shape.width), groupsFor(box.height(), shape.height), depth},
                {shape.width, shape.height}},
               arguments.bytes());
        synchronise();
        return;
    }
    constexpr int groupSide = 16;
    const int groups = Kernels::deviceWorkersPerAxis / groupSide;
    launch(call.kernel, Pass::body, {{groups, groups, 1}, {groupSide, groupSide}}, arguments.bytes());
    launch(call.kernel, Pass::fold, {{1, 1, 1}, {Kernels::deviceFoldWorkers, 1}}, arguments.bytes());
    synchronise();
    download(call.accumulators.data(), *slots, 0, call.accumulators.size_bytes());
}

}  // namespace Vellum::Compute
