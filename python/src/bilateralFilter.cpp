#include "BilateralFilter/BilateralFilter.h"

#include <fmt/format.h>
#include <nanobind/stl/array.h>

#include <array>
#include <cmath>

#include "operations.h"
#include "requirements.h"

namespace ViewTint::Python {

namespace {

using Vellum::Compute::Host::hostDevice;
using Filter = Vellum::BilateralFilter::BilateralFilter;

/// The filter's settings; its buffers belong to one call, so that threads can share the object.
class BilateralFilter {
public:
    BilateralFilter(const std::array<float, 3>& sigmas, int radiusBoost) : sigmas_(sigmas), radiusBoost_(radiusBoost) {
        for (const float sigma : sigmas)
            if (!(sigma >= 0)) raiseValue("sigmas must not be negative.");
        if (radiusBoost < 0 || radiusBoost > mostBoost)
            raiseValue(fmt::format("radiusBoost must lie in 0 .. {} pixels.", mostBoost));
    }

    Image apply(const Image& values, const Image& guide, const Image& mask) const {
        requireComponents("values", values, 3);
        requireComponents("guide", guide, 3);
        requireComponents("mask", mask, 1);
        requireSameBox("guide", guide, "values", values);
        requireSameBox("mask", mask, "values", values);
        return written(values,
                       [&](Image& output) { run([&](Filter& filter) { filter.apply(values, guide, mask, output); }); });
    }

    Image growDistance(const Image& seeds) const {
        requireComponents("seeds", seeds, 1);
        return written(seeds, [&](Image& distance) {
            Image spent = newLike(seeds);
            spent.copyFrom(seeds);
            run([&](Filter& filter) { filter.growDistance(spent, distance); });
        });
    }

private:
    static constexpr int mostBoost = 4096;

    template <class Work>
    void run(Work&& work) const {
        Vellum::Utils::BufferManagement::BufferManager buffers(hostDevice(), hostDevice());
        Filter filter(buffers, sigmas_, radiusBoost_, packedCode);
        work(filter);
    }

    std::array<float, 3> sigmas_;
    int radiusBoost_;
};

}  // namespace

void bindBilateralFilter(nb::module_& module) {
    nb::class_<BilateralFilter>(
        module, "BilateralFilter",
        R"(Fills the masked part of a picture from the pixels around it that aren't masked, each weighted by its distance and
by how close its colour in a guide is. Windows grow with the distance to the nearest pixel that isn't masked.)")
        .def(
            nb::init<const std::array<float, 3>&, int>(), "sigmas"_a, "radiusBoost"_a,
            R"(sigmas: how unlike the guide's three channels may be; 0 takes like pixels only. radiusBoost: pixels by which
windows reach beyond the nearest pixel that isn't masked, 0 .. 4096; the radius is 3 at least.)")
        .def(
            "apply", &BilateralFilter::apply, "values"_a, "guide"_a, "mask"_a,
            R"(values (3 components), filled by `mask` (1): 0 keeps a pixel, 1 fills it; pixels of up to 0.0001 give. guide
has 3 components; all lie in one box. The time for a pixel grows with the square of its window.)")
        .def(
            "growDistance", &BilateralFilter::growDistance, "seeds"_a,
            R"(The number of diagonal steps from the nearest pixel of seeds (1 component) above 0; 10000, or 0, where none
leads there.)");
}

}  // namespace ViewTint::Python
