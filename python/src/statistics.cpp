#include <vector>

#include <nanobind/stl/array.h>
#include <nanobind/stl/vector.h>

#include "operations.h"

namespace ViewTint::Python {

namespace {

namespace Common = Vellum::Common;

std::vector<float> eightOf(const Common::MaskedSums& sums) {
    std::vector<float> eight(sums.sum.begin(), sums.sum.end());
    eight.insert(eight.end(), sums.count.begin(), sums.count.end());
    return eight;
}

}  // namespace

void bindStatistics(nb::module_& module) {
    module.def(
        "makeGaussian",
        [](Image& image, float sigma) { return unlocked([&] { return Common::makeGaussian(image, sigma); }); },
        "image"_a, "sigma"_a,
        R"(Fills an image of one component with a Gaussian bell of height 1 round its middle, sigma in pixels,
and returns the sum of its values.)");
    module.def(
        "sum", [](const Image& image) { return unlocked([&] { return Common::sum(image); }); }, "image"_a,
        "Four numbers: the sum of each component, 0 for those that there aren't.");
    module.def(
        "maskedSum",
        [](const Image& mask, const Image& image) {
            return eightOf(unlocked([&] { return Common::maskedSum(mask, image); }));
        },
        "mask"_a, "image"_a,
        R"(Eight numbers: for components 0 to 3 the sum over the pixels where the mask's own component is above
0, then the counts of these pixels. Mask and image have equally many components.)");
    module.def(
        "maskedSquaredDeviation",
        [](const Image& mask, const Image& image, const Float4& mean) {
            return eightOf(unlocked([&] { return Common::maskedSquaredDeviation(mask, image, mean); }));
        },
        "mask"_a, "image"_a, "mean"_a, "The same as maskedSum for (image - mean)^2; the mean has four numbers.");
}

}  // namespace ViewTint::Python
