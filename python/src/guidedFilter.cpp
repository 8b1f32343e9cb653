#include "GuidedFilter/GuidedFilter.h"

#include <fmt/format.h>
#include <nanobind/stl/optional.h>

#include <optional>

#include "operations.h"
#include "requirements.h"

namespace ViewTint::Python {

namespace {

using Vellum::Compute::Host::hostDevice;
using Filter = Vellum::GuidedFilter::GuidedFilter;

/// The filter's settings; its buffers belong to one call, so that threads can share the object.
class GuidedFilter {
public:
    GuidedFilter(int radius, float epsilon, int guidanceMode, bool forceTiling)
        : radius_(radius), epsilon_(epsilon), guidanceMode_(guidanceMode), forceTiling_(forceTiling) {
        if (radius < 0 || radius > mostRadius)
            raiseValue(fmt::format("radius must lie in 0 .. {} pixels.", mostRadius));
        if (!(epsilon >= 0)) raiseValue("epsilon must not be negative.");
    }

    Image apply(const Image& input, const Image& guidance, const std::optional<Image>& output) const {
        requireCovers("guidance", guidance, "input", input);
        if (output) requireCovers("output", *output, "input", input);
        return unlocked([&] {
            Image result = output ? *output : newLike(input);
            if (!output) result.clear();
            Vellum::Utils::BufferManagement::BufferManager buffers(hostDevice(), hostDevice());
            Filter filter(buffers, radius_, epsilon_, guidanceMode_, packedCode);
            filter.setForceTiling(forceTiling_);
            filter.apply(input, guidance, result);
            return result;
        });
    }

private:
    static constexpr int mostRadius = 1000;

    int radius_;
    float epsilon_;
    int guidanceMode_;
    bool forceTiling_;
};

}  // namespace

void bindGuidedFilter(nb::module_& module) {
    nb::class_<GuidedFilter>(
        module, "GuidedFilter",
        R"(Smooths a picture while keeping the edges of another, the guidance: around every pixel the output is a linear
function of the guidance (He, Sun and Tang, "Guided Image Filtering", 2010).)")
        .def(nb::init<int, float, int, bool>(), "radius"_a, "epsilon"_a, "guidanceMode"_a = 1, "forceTiling"_a = true,
             R"(radius: of the square window, 0 .. 1000 pixels. epsilon: variances far below it count as flat.
guidanceMode: 0 the mean of the guidance's channels guides each channel, 1 channel guides channel, 2 three channels guide
each channel together; any other filters nothing. forceTiling off filters pictures whole that are at least 1024 pixels
wide or 768 high.)")
        .def(
            "apply", &GuidedFilter::apply, "input"_a, "guidance"_a, "output"_a = nb::none(),
            R"(The first three channels of input filtered, inside its box. Further channels are copied; of pictures that
are filtered whole they stay as they are in output, 0 without one. Channels that don't suit the mode aren't filtered.

guidance covers the box of input. output: an image to write into, which may be input or guidance; it is returned.)");
}

}  // namespace ViewTint::Python
