#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "compute/PixelTypes.h"
#include "compute/kernel/launch.h"

namespace Cobalt::Device {
enum class APIEnum : std::uint32_t;
}
namespace Vellum::CodeGen {
enum class Flags : int;
}

namespace Vellum::Kernels {

/// What a variant is compiled for. In keys: family of devices, a number without meaning here, flags.
enum class KernelTarget {
    cpuOnePixel,  ///< 2_2_1
    cpuPacked,    ///< 2_2_19
    cuda          ///< 4_8_1
};
inline constexpr KernelTarget kernelTargets[] = {KernelTarget::cpuOnePixel, KernelTarget::cpuPacked,
                                                 KernelTarget::cuda};

std::string_view tagOf(KernelTarget target);
/// On the CPU the flags decide; other devices take `cuda` whatever the flags are.
KernelTarget targetOf(Cobalt::Device::APIEnum api, Vellum::CodeGen::Flags flags);

/// Names a kernel by everything that its callers depend on: a kernel whose declaration changes becomes another one.
struct KernelIdentity {
    std::array<std::uint64_t, 4> hashes{};

    /// From name, images, kind of body, passes, fields of both blocks, and defaults.
    static KernelIdentity of(const KernelDeclaration& declaration);
    /// 64 lower-case hexadecimal digits.
    std::string text() const;

    friend bool operator==(const KernelIdentity&, const KernelIdentity&) = default;
};

/// Names a variant of a kernel: "<64 digits>_2_2_19_3f_1f".
struct KernelKey {
    KernelIdentity kernel;
    KernelTarget target = KernelTarget::cpuOnePixel;
    PixelTypes types;

    /// Throws Compute::Exception where the text is no key.
    static KernelKey parse(std::string_view text);
    std::string text() const;

    friend bool operator==(const KernelKey&, const KernelKey&) = default;
};

}  // namespace Vellum::Kernels
