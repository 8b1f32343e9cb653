#pragma once

#include "compute/Kernel.h"

namespace Vellum::Compute {

/// A scalar for runKernel.
template <class T>
struct Scalar {
    const char* name;
    const T& value;
};
template <class T>
Scalar(const char*, const T&) -> Scalar<T>;

/// What every wrapper does: takes the device from the last image, chooses the variant, binds, sets the scalars and
/// runs. `read` is called with the context afterwards, for accumulators.
template <class Read, class... T>
void runKernelThen(const ProgramSource& source, std::initializer_list<const Vellum::Image::Image*> images, int flags,
                   const Vellum::JIT::IterationController& range, Read&& read, const Scalar<T>&... scalars) {
    const std::span<const Vellum::Image::Image* const> list(images.begin(), images.size());
    Device& device = deviceOf(*list.back());
    Vellum::JIT::KernelExecutionContext context(
        Vellum::JIT::Kernel::Make(device.context(), source, list, {}, static_cast<Vellum::CodeGen::Flags>(flags)));
    context.setImageParamBindings(list);
    (context.set({scalars.name}, scalars.value), ...);
    context.iterate(device, range);
    read(context);
}

template <class... T>
void runKernel(const ProgramSource& source, std::initializer_list<const Vellum::Image::Image*> images, int flags,
               const Vellum::JIT::IterationController& range, const Scalar<T>&... scalars) {
    runKernelThen(
        source, images, flags, range, [](auto&) {}, scalars...);
}

}  // namespace Vellum::Compute
