#include "host/measures/PictureComparison.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <numeric>
#include <stdexcept>
#include <vector>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include "host/measures/ColourDifference.h"

namespace ViewTint::Host {

namespace {

constexpr int windowRadius = 5;
constexpr int windowSize = 2 * windowRadius + 1;
constexpr double nothing = std::numeric_limits<double>::quiet_NaN();

using Rgb = std::array<double, 3>;

Rgb codesAt(const RgbPicture& picture, std::size_t pixel) {
    Rgb codes;
    for (std::size_t c = 0; c < 3; ++c)
        codes[c] = encodeSrgb(picture.planes[c][pixel]);
    return codes;
}

Lab labAt(const RgbPicture& picture, std::size_t pixel) {
    return labFromLinear(picture.planes[0][pixel], picture.planes[1][pixel], picture.planes[2][pixel]);
}

bool equalAt(const RgbPicture& first, const RgbPicture& second, std::size_t pixel) {
    return first.planes[0][pixel] == second.planes[0][pixel] && first.planes[1][pixel] == second.planes[1][pixel] &&
           first.planes[2][pixel] == second.planes[2][pixel];
}

/// Rec. 709 weights.
double luma(const Rgb& codes) {
    return 0.2126 * codes[0] + 0.7152 * codes[1] + 0.0722 * codes[2];
}

template <class Body>
void forEachRow(int rows, const std::function<void()>& checkpoint, const Body& body) {
    tbb::parallel_for(tbb::blocked_range<int>(0, std::max(rows, 0)), [&](const tbb::blocked_range<int>& range) {
        for (int y = range.begin(); y < range.end(); ++y) {
            if (checkpoint) checkpoint();
            body(y);
        }
    });
}

/// What the pixels alone tell: one value for each pixel, and sums for each row.
struct PixelMeasures {
    explicit PixelMeasures(const RgbPicture& picture)
        : usable(picture.pixels()),
          luma1(picture.pixels()),
          luma2(picture.pixels()),
          colourDifference(picture.pixels()),
          rowDiffers(std::size_t(picture.height)),
          squaredError(std::size_t(picture.height)),
          excluded(std::size_t(picture.height)) {}

    std::vector<std::uint8_t> usable;
    std::vector<float> luma1;
    std::vector<float> luma2;
    std::vector<float> colourDifference;
    std::vector<std::uint8_t> rowDiffers;  ///< whether any usable pixel does
    std::vector<double> squaredError;
    std::vector<std::int64_t> excluded;
};

PixelMeasures measurePixels(const RgbPicture& first, const RgbPicture& second, std::span<const std::uint8_t> mask,
                            const std::function<void()>& checkpoint) {
    PixelMeasures result(first);
    forEachRow(first.height, checkpoint, [&](int y) {
        const std::size_t row = std::size_t(y);
        for (std::size_t i = first.index(0, y); i < first.index(0, y + 1); ++i) {
            if (!mask.empty() && mask[i] == 0) continue;
            if (!first.finite(i) || !second.finite(i)) {
                ++result.excluded[row];
                continue;
            }
            const bool equal = equalAt(first, second, i);
            const Rgb codes1 = codesAt(first, i);
            const Rgb codes2 = equal ? codes1 : codesAt(second, i);
            for (std::size_t c = 0; c < 3; ++c)
                result.squaredError[row] += (codes1[c] - codes2[c]) * (codes1[c] - codes2[c]);
            result.usable[i] = 1;
            result.luma1[i] = float(luma(codes1));
            result.luma2[i] = float(luma(codes2));
            if (equal) continue;
            result.rowDiffers[row] = 1;
            result.colourDifference[i] = float(ciede2000(labAt(first, i), labAt(second, i)));
        }
    });
    return result;
}

std::array<double, windowSize> makeGaussianWindow() {
    std::array<double, windowSize> window;
    for (int i = 0; i < windowSize; ++i)
        window[std::size_t(i)] = std::exp(-(i - windowRadius) * (i - windowRadius) / (2.0 * 1.5 * 1.5));
    const double sum = std::accumulate(window.begin(), window.end(), 0.0);
    for (double& weight : window)
        weight /= sum;
    return window;
}

const std::array<double, windowSize> gaussianWindow = makeGaussianWindow();

/// Weighted sums for each place of a row. A sum a vector: several places are added up at a time.
struct Moments {
    explicit Moments(std::size_t width)
        : weight(width), first(width), second(width), firstSquared(width), secondSquared(width), product(width) {}

    std::vector<double> weight, first, second, firstSquared, secondSquared, product;

    double similarity(std::size_t x) const {
        constexpr double c1 = 0.01 * 0.01;
        constexpr double c2 = 0.03 * 0.03;
        const double mean1 = first[x] / weight[x];
        const double mean2 = second[x] / weight[x];
        const double variance1 = firstSquared[x] / weight[x] - mean1 * mean1;
        const double variance2 = secondSquared[x] / weight[x] - mean2 * mean2;
        const double covariance = product[x] / weight[x] - mean1 * mean2;
        return (2.0 * mean1 * mean2 + c1) * (2.0 * covariance + c2) /
               ((mean1 * mean1 + mean2 * mean2 + c1) * (variance1 + variance2 + c2));
    }
};

/// The columns of the windows round the pixels of row y. Luma is 0 where a pixel isn't usable.
Moments columnMoments(const RgbPicture& shape, const PixelMeasures& measures, int y) {
    Moments columns(std::size_t(shape.width));
    for (int k = 0; k < windowSize; ++k) {
        const std::size_t row = shape.index(0, y + k - windowRadius);
        for (std::size_t x = 0; x < columns.weight.size(); ++x) {
            const double w = gaussianWindow[std::size_t(k)] * measures.usable[row + x];
            const double a = measures.luma1[row + x];
            const double b = measures.luma2[row + x];
            columns.weight[x] += w;
            columns.first[x] += w * a;
            columns.second[x] += w * b;
            columns.firstSquared[x] += w * a * a;
            columns.secondSquared[x] += w * b * b;
            columns.product[x] += w * a * b;
        }
    }
    return columns;
}

/// The windows that lie inside the row; place x is the window that begins there.
Moments windowMoments(const Moments& columns) {
    Moments windows(columns.weight.size() - windowSize + 1);
    const auto addUp = [](const std::vector<double>& from, std::vector<double>& to) {
        for (std::size_t k = 0; k < windowSize; ++k) {
            const double w = gaussianWindow[k];
            const double* shifted = from.data() + k;
            for (std::size_t x = 0; x < to.size(); ++x)
                to[x] += w * shifted[x];
        }
    };
    addUp(columns.weight, windows.weight);
    addUp(columns.first, windows.first);
    addUp(columns.second, windows.second);
    addUp(columns.firstSquared, windows.firstSquared);
    addUp(columns.secondSquared, windows.secondSquared);
    addUp(columns.product, windows.product);
    return windows;
}

struct SimilaritySum {
    double sum = 0.0;
    std::int64_t windows = 0;
};

/// Whether the pictures differ in any of the rows that the windows round row y see.
bool windowsDiffer(const PixelMeasures& measures, int y) {
    const auto first = measures.rowDiffers.begin() + (y - windowRadius);
    return std::find(first, first + windowSize, 1) != first + windowSize;
}

/// The windows round the pixels of row y.
SimilaritySum similarityOfRow(const RgbPicture& shape, const PixelMeasures& measures, int y) {
    SimilaritySum result;
    if (shape.width < windowSize) return result;
    const std::size_t firstPixel = shape.index(windowRadius, y);
    const std::size_t count = std::size_t(shape.width - windowSize + 1);
    result.windows = std::count(&measures.usable[firstPixel], &measures.usable[firstPixel] + count, 1);
    result.sum = double(result.windows);
    if (result.windows == 0 || !windowsDiffer(measures, y)) return result;

    const Moments windows = windowMoments(columnMoments(shape, measures, y));
    result.sum = 0.0;
    for (std::size_t x = 0; x < count; ++x)
        if (measures.usable[firstPixel + x]) result.sum += windows.similarity(x);
    return result;
}

double meanSimilarity(const RgbPicture& shape, const PixelMeasures& measures, const std::function<void()>& checkpoint) {
    const int rows = shape.height - 2 * windowRadius;
    if (rows <= 0) return nothing;
    std::vector<SimilaritySum> sums(static_cast<std::size_t>(rows));
    forEachRow(rows, checkpoint,
               [&](int row) { sums[std::size_t(row)] = similarityOfRow(shape, measures, row + windowRadius); });
    SimilaritySum total;
    for (const SimilaritySum& row : sums) {
        total.sum += row.sum;
        total.windows += row.windows;
    }
    return total.windows > 0 ? total.sum / double(total.windows) : nothing;
}

void requireSameSize(const RgbPicture& first, const RgbPicture& second) {
    if (!first.sameSize(second)) throw std::invalid_argument("pictures to compare must have one size");
}

}  // namespace

Comparison comparePictures(const RgbPicture& first, const RgbPicture& second, std::span<const std::uint8_t> mask,
                           const std::function<void()>& checkpoint) {
    requireSameSize(first, second);
    if (!mask.empty() && mask.size() != first.pixels())
        throw std::invalid_argument("the mask of a comparison must have a value for each pixel");

    const PixelMeasures measures = measurePixels(first, second, mask, checkpoint);
    std::vector<float> differences;
    differences.reserve(first.pixels());
    for (std::size_t i = 0; i < first.pixels(); ++i)
        if (measures.usable[i]) differences.push_back(measures.colourDifference[i]);

    Comparison result;
    result.pixels = std::int64_t(differences.size());
    result.excluded = std::accumulate(measures.excluded.begin(), measures.excluded.end(), std::int64_t{0});
    if (differences.empty()) return result;

    const double count = double(differences.size());
    const double squaredError = std::accumulate(measures.squaredError.begin(), measures.squaredError.end(), 0.0);
    result.psnr =
        squaredError > 0.0 ? -10.0 * std::log10(squaredError / (3.0 * count)) : std::numeric_limits<double>::infinity();
    result.ssim = meanSimilarity(first, measures, checkpoint);
    result.meanColourDifference = std::accumulate(differences.begin(), differences.end(), 0.0) / count;
    // The rank is counted in whole numbers: 0.99 has no exact binary form.
    const std::size_t rank = (differences.size() * 99 + 99) / 100;
    const auto percentile = differences.begin() + std::ptrdiff_t(rank - 1);
    std::nth_element(differences.begin(), percentile, differences.end());
    result.percentile99ColourDifference = *percentile;
    return result;
}

RgbPicture differencePicture(const RgbPicture& first, const RgbPicture& second, double factor) {
    requireSameSize(first, second);
    RgbPicture result(first.width, first.height);
    forEachRow(first.height, {}, [&](int y) {
        for (std::size_t i = first.index(0, y); i < first.index(0, y + 1); ++i) {
            if (!first.finite(i) || !second.finite(i)) continue;
            const Rgb codes1 = codesAt(first, i);
            const Rgb codes2 = codesAt(second, i);
            for (std::size_t c = 0; c < 3; ++c)
                result.planes[c][i] = float(decodeSrgb(factor * std::abs(codes1[c] - codes2[c])));
        }
    });
    return result;
}

}  // namespace ViewTint::Host
