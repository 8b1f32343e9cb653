#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include "compute/Catalogue.h"
#include "compute/Image.h"
#include "compute/PrecompiledKernels.h"

namespace Vellum::Compute {

/// The identity of one kernel: a static of the code that starts it. The kernel is looked up at the first use.
class ProgramSource {
public:
    constexpr ProgramSource(const Vellum::Kernels::Family& family, const char* kernel)
        : family_(&family), kernel_(kernel) {}

    const char* kernel() const { return kernel_; }
    /// Throws Exception where the family has no such kernel.
    const Vellum::Kernels::CatalogueEntry& entry() const;

private:
    const Vellum::Kernels::Family* family_;
    const char* kernel_;
    mutable std::atomic<const Vellum::Kernels::CatalogueEntry*> entry_{nullptr};
};

}  // namespace Vellum::Compute

namespace Vellum::CodeGen {

/// Where a scalar lies, and what it is.
struct MarshalledParam {
    int offset;
    int count;
    int arrayLength;
    Vellum::Kernels::ScalarType type;
    bool inAccumulator;
};

}  // namespace Vellum::CodeGen

namespace Vellum::JIT {

/// A scalar's name, as the kernel declares it. `constEdgeColor` followed by an image's name is the colour outside that
/// image.
struct ParamName {
    std::string_view name;
    std::uint64_t hash = 0;  ///< Kernels::nameHash of the name; counts where that is empty
};

/// A scalar or a result under its name.
struct NamedParam {
    std::string name;
    Vellum::CodeGen::MarshalledParam param;
};

/// What a caller may set: a kernel's scalars in their order, then the colours outside its images.
std::vector<NamedParam> callerParams(const Vellum::Kernels::CatalogueEntry& entry);
std::vector<NamedParam> accumulatorParams(const Vellum::Kernels::CatalogueEntry& entry);

/// A kernel chosen for the pixel types of a call.
class Kernel {
public:
    /// The range of one launch: a box, a component range and three granularities that are always 1. All zero covers the
    /// last written image (a kernel that writes none: its last image); zero components cover all of them.
    struct IterationController {
        std::int32_t x0 = 0;
        std::int32_t y0 = 0;
        std::int32_t x1 = 0;
        std::int32_t y1 = 0;
        std::int32_t c0 = 0;
        std::int32_t c1 = 0;
        std::int32_t granularity[3] = {1, 1, 1};

        static IterationController over(const Vellum::Image::Box& box, int c0 = 0, int c1 = 0) {
            return {box.x0, box.y0, box.x1, box.y1, c0, c1, {1, 1, 1}};
        }
    };

    /// The variant whose key has the images' pixel types and suits the context's device. Throws Compute::Exception
    /// where the kernel has none; for a GPU also where its stored code is missing or damaged.
    static boost::intrusive_ptr<Kernel> Make(Vellum::Compute::Context& context,
                                             const Vellum::Compute::ProgramSource& source,
                                             std::span<const Vellum::Image::Image* const> images, const ParamName& name,
                                             Vellum::CodeGen::Flags flags, std::string* log = nullptr,
                                             std::string* text = nullptr);
    /// The same for a kernel found by name.
    static boost::intrusive_ptr<Kernel> Make(const Vellum::Kernels::CatalogueEntry& entry,
                                             std::span<const Vellum::Image::Image* const> images,
                                             Vellum::CodeGen::Flags flags,
                                             Cobalt::Device::APIEnum api = Cobalt::Device::APIEnum::Host);

    const Vellum::Kernels::CatalogueEntry& entry() const { return *entry_; }
    int variant() const { return variant_; }
    Vellum::CodeGen::Flags flags() const { return flags_; }
    Vellum::Kernels::KernelTarget target() const { return Vellum::Kernels::targetOf(api_, flags_); }
    Vellum::Kernels::KernelKey key() const { return entry_->key(variant_, target()); }
    /// The variant's stored code. Only for a GPU.
    const PrecompiledKernel& stored() const { return *stored_; }

    friend void intrusive_ptr_add_ref(const Kernel* kernel) { kernel->shares_.fetch_add(1, std::memory_order_relaxed); }
    friend void intrusive_ptr_release(const Kernel* kernel) {
        if (kernel->shares_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete kernel;
    }

private:
    Kernel(const Vellum::Kernels::CatalogueEntry& entry, int variant, Vellum::CodeGen::Flags flags,
           Cobalt::Device::APIEnum api)
        : entry_(&entry), variant_(variant), flags_(flags), api_(api) {}

    void findStoredCode();

    const Vellum::Kernels::CatalogueEntry* entry_;
    int variant_;
    Vellum::CodeGen::Flags flags_;
    Cobalt::Device::APIEnum api_;
    const PrecompiledKernel* stored_ = nullptr;
    mutable std::atomic<int> shares_{0};
};

using KernelPointer = boost::intrusive_ptr<Kernel>;
using IterationController = Kernel::IterationController;

}  // namespace Vellum::JIT

namespace Vellum::Compute {

/// What a device is given to run: a kernel, its range, its images and its blocks.
struct KernelCall {
    const Vellum::JIT::Kernel& kernel;
    Vellum::Image::Box box;
    int c0 = 0;
    int c1 = 0;
    std::span<const Vellum::Kernels::ImageArgument> images;
    /// The parameter block: the kernel's own parameters, then the image parameters. Derived values are up to date.
    std::span<std::byte> parameters;
    /// The results of a kernel with two passes as they begin; receives them.
    std::span<float> accumulators;
};

}  // namespace Vellum::Compute

namespace Vellum::JIT {

/// The state of one kernel call: bindings and blocks. Lives on the caller's stack.
class KernelExecutionContext {
public:
    explicit KernelExecutionContext(KernelPointer kernel);
    KernelExecutionContext(const KernelExecutionContext&) = delete;
    KernelExecutionContext& operator=(const KernelExecutionContext&) = delete;

    /// Binds image k of the list to the kernel's image k. All must lie on the device that runs the kernel.
    void setImageParamBindings(std::span<const Vellum::Image::Image* const> images);

    /// Throws Compute::Exception for an unknown name, listing the names there are.
    Vellum::CodeGen::MarshalledParam getMarshalledParamThrow(const ParamName& name) const;
    /// Throws Compute::Exception: the scalar is not of the caller's type.
    [[noreturn]] void badType(const ParamName& name, const Vellum::CodeGen::MarshalledParam& param) const;

    /// Sets a scalar: float, int, bool or std::array of float or int. Only a value whose bytes differ marks the block
    /// as changed.
    template <class T>
    void set(const ParamName& name, const T& value);
    /// Reads a scalar or, after iterate(), an accumulator.
    template <class T>
    T get(const ParamName& name) const;

    /// The same for callers that learn the number of elements at run time.
    template <class T>
    void setElements(const ParamName& name, std::span<const T> elements);
    template <class T>
    void getElements(const ParamName& name, std::span<T> elements) const;

    /// True when the parameter block has changed since the last launch.
    bool dirty() const { return dirty_; }

    /// Runs the kernel and returns when it has finished. An empty box that isn't all zero does nothing.
    /// Throws Compute::Exception: a read or write outside an image, a range that the device can't run, a failed device.
    void iterate(Vellum::Compute::Device& device, const IterationController& controller);

private:
    static constexpr int mostParameterBytes = 2048;

    const Vellum::Kernels::KernelDeclaration& declaration() const { return kernel_->entry().declaration(); }
    Vellum::Kernels::ImageParameters* imageParameters();
    void writeScalar(const ParamName& name, Vellum::Kernels::ScalarType type, int elements, const void* bytes,
                     int size);
    void readScalar(const ParamName& name, Vellum::Kernels::ScalarType type, int elements, void* bytes, int size) const;
    int imageOfRange() const;
    std::uint64_t bytesTouched(const Vellum::Image::Box& box, int components) const;
    void checkReach(const Vellum::Image::Box& box, int c0, int c1);

    template <class T>
    struct ScalarTraits;

    KernelPointer kernel_;
    std::array<Vellum::Kernels::ImageArgument, Vellum::Kernels::mostImages> images_;
    std::array<int, Vellum::Kernels::mostImages> components_{};
    int imageCount_ = 0;
    std::array<Cobalt::Device::DeviceBase*, Vellum::Kernels::mostImages> devices_{};
    bool dirty_ = false;
    bool derivedAreStale_ = true;
    std::array<float, 16> accumulators_{};
    alignas(64) std::byte parameters_[mostParameterBytes];
};

namespace Detail {

template <class T>
inline constexpr bool isScalar = std::is_same_v<T, float> || std::is_same_v<T, int> || std::is_same_v<T, bool>;

template <class T>
struct ScalarShape {
    using Element = T;
    static constexpr int count = 1;
};
template <class T, std::size_t N>
struct ScalarShape<std::array<T, N>> {
    using Element = T;
    static constexpr int count = N;
};

template <class T>
constexpr Vellum::Kernels::ScalarType scalarType() {
    static_assert(isScalar<T>, "scalars are float, int or bool");
    if constexpr (std::is_same_v<T, float>)
        return Vellum::Kernels::ScalarType::real;
    else if constexpr (std::is_same_v<T, int>)
        return Vellum::Kernels::ScalarType::integer;
    else
        return Vellum::Kernels::ScalarType::boolean;
}

}  // namespace Detail

template <class T>
void KernelExecutionContext::set(const ParamName& name, const T& value) {
    using Shape = Detail::ScalarShape<T>;
    writeScalar(name, Detail::scalarType<typename Shape::Element>(), Shape::count, &value, sizeof value);
}

template <class T>
T KernelExecutionContext::get(const ParamName& name) const {
    using Shape = Detail::ScalarShape<T>;
    T value{};
    readScalar(name, Detail::scalarType<typename Shape::Element>(), Shape::count, &value, sizeof value);
    return value;
}

template <class T>
void KernelExecutionContext::setElements(const ParamName& name, std::span<const T> elements) {
    writeScalar(name, Detail::scalarType<T>(), static_cast<int>(elements.size()), elements.data(),
                static_cast<int>(elements.size_bytes()));
}

template <class T>
void KernelExecutionContext::getElements(const ParamName& name, std::span<T> elements) const {
    readScalar(name, Detail::scalarType<T>(), static_cast<int>(elements.size()), elements.data(),
               static_cast<int>(elements.size_bytes()));
}

}  // namespace Vellum::JIT
