// Stands in for cuFFT: transforms on the host what lies on the stand-in of the driver. The spectrum of a reverse
// transform is destroyed, as the library may do.
#include <dlfcn.h>

#include <cstdlib>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "FFT/HostFourierTransform.h"
#include "compute/HostDevice.h"

#define EXPORTED extern "C" __attribute__((visibility("default")))

namespace {

using Vellum::Image::Box;
using Vellum::Image::Image;

enum Status { success = 0, invalidPlan = 1, invalidType = 3, invalidSize = 8, execFailed = 6 };
constexpr int realToComplex = 0x2a, complexToReal = 0x2c;

struct Plan {
    int rows, columns, type;
};

struct State {
    std::map<int, Plan> plans;
    int last = 0;
    std::map<std::string, int> counts;
    std::string failing;
    int failAt = 0, failWith = 0;
};

State& state() {
    static State& only = *new State;
    return only;
}

int enter(const char* call) {
    const int number = state().counts[call]++;
    return state().failing == call && number == state().failAt ? state().failWith : success;
}

template <class Function>
Function* driverCall(const char* name) {
    static void* const driver = dlopen(std::getenv("VIEWTINT_CUDA_DRIVER"), RTLD_NOW | RTLD_NOLOAD);
    return reinterpret_cast<Function*>(dlsym(driver, name));
}

std::vector<float> download(const void* from, std::size_t floats) {
    std::vector<float> values(floats);
    const auto copy = driverCall<int(void*, unsigned long long, std::size_t)>("cuMemcpyDtoH_v2");
    if (copy(values.data(), reinterpret_cast<unsigned long long>(from), floats * sizeof(float)) != 0) values.clear();
    return values;
}
bool upload(const std::vector<float>& values, void* to) {
    const auto copy = driverCall<int(unsigned long long, const void*, std::size_t)>("cuMemcpyHtoD_v2");
    return copy(reinterpret_cast<unsigned long long>(to), values.data(), values.size() * sizeof(float)) == 0;
}

/// Values without gaps into an image and back.
Image imageOf(const std::vector<float>& values, const Box& box, std::uint32_t components) {
    Image image({box, components, Vellum::Pixel::DataEnum::float32}, Vellum::Compute::Host::hostDevice(),
                Vellum::FFT::Host::rowLayout);
    const auto& layout = image.tile().layout;
    const std::size_t row = static_cast<std::size_t>(box.width()) * components;
    for (int y = 0; y < box.height(); ++y)
        std::copy_n(values.data() + static_cast<std::size_t>(y) * row, row, image.data() + y * layout.y.elements);
    return image;
}
std::vector<float> valuesOf(const Image& image) {
    const auto& layout = image.tile().layout;
    const std::size_t row = static_cast<std::size_t>(image.box().width()) * image.components();
    std::vector<float> values;
    for (int y = 0; y < image.box().height(); ++y)
        values.insert(values.end(), image.data() + y * layout.y.elements, image.data() + y * layout.y.elements + row);
    return values;
}

std::size_t spectrumFloats(const Plan& plan) {
    return static_cast<std::size_t>(plan.rows) * static_cast<std::size_t>(plan.columns / 2 + 1) * 2;
}

}  // namespace

/// From now on the call of that name fails with `status`, the next one being number 0; once. A null name ends it.
EXPORTED void standInCufftFail(const char* call, int number, int status) {
    state().failing = call ? call : "";
    state().failAt = (call ? state().counts[call] : 0) + number;
    state().failWith = status;
}
EXPORTED int standInCufftCount(const char* call) {
    return state().counts[call];
}

EXPORTED int cufftPlan2d(int* plan, int rows, int columns, int type) {
    if (const int failure = enter("cufftPlan2d")) return failure;
    if (type != realToComplex && type != complexToReal) return invalidType;
    if (rows < 1 || columns < 1) return invalidSize;
    *plan = ++state().last;
    state().plans[*plan] = {rows, columns, type};
    return success;
}
EXPORTED int cufftDestroy(int plan) {
    if (const int failure = enter("cufftDestroy")) return failure;
    return state().plans.erase(plan) == 1 ? success : invalidPlan;
}
EXPORTED int cufftExecR2C(int number, void* real, void* spectrum) {
    if (const int failure = enter("cufftExecR2C")) return failure;
    const auto plan = state().plans.find(number);
    if (plan == state().plans.end() || plan->second.type != realToComplex) return invalidPlan;
    const Box box{0, 0, plan->second.columns, plan->second.rows};
    const auto values = download(real, static_cast<std::size_t>(box.pixels()));
    if (values.empty()) return execFailed;
    Vellum::FFT::Host::FourierTransform transform(Vellum::Compute::Host::hostDevice());
    Image output;
    static_cast<Vellum::FFT::FourierTransform&>(transform).forward(output, imageOf(values, box, 1));
    return upload(valuesOf(output), spectrum) ? success : execFailed;
}
EXPORTED int cufftExecC2R(int number, void* spectrum, void* real) {
    if (const int failure = enter("cufftExecC2R")) return failure;
    const auto plan = state().plans.find(number);
    if (plan == state().plans.end() || plan->second.type != complexToReal) return invalidPlan;
    const Box box{0, 0, plan->second.columns, plan->second.rows};
    const auto values = download(spectrum, spectrumFloats(plan->second));
    if (values.empty()) return execFailed;
    Vellum::FFT::Host::FourierTransform transform(Vellum::Compute::Host::hostDevice());
    Image unused, output;
    const std::vector<float> zero(static_cast<std::size_t>(box.pixels()));
    static_cast<Vellum::FFT::FourierTransform&>(transform).forward(unused, imageOf(zero, box, 1));
    Image complex = imageOf(values, transform.spectrumSize(box), 2);
    transform.reverse(output, complex);
    const std::vector<float> spent(values.size(), std::numeric_limits<float>::quiet_NaN());
    return upload(valuesOf(output), real) && upload(spent, spectrum) ? success : execFailed;
}
