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
          squaredError(std::size_t(picture.height)),
          excluded(std::size_t(picture.height)) {}

    std::vector<std::uint8_t> usable;
    std::vector<float> luma1;
    std::vector<float> luma2;
    std::vector<float> colourDifference;
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
            const Rgb codes1 = codesAt(first, i);
            const Rgb codes2 = codesAt(second, i);
            for (std::size_t c = 0; c < 3; ++c)
                result.squaredError[row] += (codes1[c] - codes2[c]) * (codes1[c] - codes2[c]);
            result.usable[i] = 1;
            result.luma1[i] = float(luma(codes1));
            result.luma2[i] = float(luma(codes2));
            if (!equalAt(first, second, i))
                result.colourDifference[i] = float(ciede2000(labAt(first, i), labAt(second, i)));
        }
    });
    return result;
}

std::array<double, windowSize> gaussianWindow() {
    std::array<double, windowSize> window;
    for (int i = 0; i < windowSize; ++i)
        window[std::size_t(i)] = std::exp(-(i - windowRadius) * (i - windowRadius) / (2.0 * 1.5 * 1.5));
    const double sum = std::accumulate(window.begin(), window.end(), 0.0);
    for (double& weight : window)
        weight /= sum;
    return window;
}

/// Weighted sums over a window (or over one of its columns).
struct Moments {
    double weight = 0.0;
    double first = 0.0;
    double second = 0.0;
    double firstSquared = 0.0;
    double secondSquared = 0.0;
    double product = 0.0;

    void add(double w, double a, double b) {
        weight += w;
        first += w * a;
        second += w * b;
        firstSquared += w * a * a;
        secondSquared += w * b * b;
        product += w * a * b;
    }
    void add(double w, const Moments& other) {
        weight += w * other.weight;
        first += w * other.first;
        second += w * other.second;
        firstSquared += w * other.firstSquared;
        secondSquared += w * other.secondSquared;
        product += w * other.product;
    }
    double similarity() const {
        constexpr double c1 = 0.01 * 0.01;
        constexpr double c2 = 0.03 * 0.03;
        const double mean1 = first / weight;
        const double mean2 = second / weight;
        const double variance1 = firstSquared / weight - mean1 * mean1;
        const double variance2 = secondSquared / weight - mean2 * mean2;
        const double covariance = product / weight - mean1 * mean2;
        return (2.0 * mean1 * mean2 + c1) * (2.0 * covariance + c2) /
               ((mean1 * mean1 + mean2 * mean2 + c1) * (variance1 + variance2 + c2));
    }
};

struct SimilaritySum {
    double sum = 0.0;
    std::int64_t windows = 0;
};

/// The windows round the pixels of row y.
SimilaritySum similarityOfRow(const RgbPicture& shape, const PixelMeasures& measures, int y) {
    static const std::array<double, windowSize> window = gaussianWindow();
    std::vector<Moments> columns(std::size_t(shape.width));
    for (int x = 0; x < shape.width; ++x) {
        for (int k = 0; k < windowSize; ++k) {
            const std::size_t i = shape.index(x, y + k - windowRadius);
            if (measures.usable[i])
                columns[std::size_t(x)].add(window[std::size_t(k)], measures.luma1[i], measures.luma2[i]);
        }
    }
    SimilaritySum result;
    for (int x = windowRadius; x < shape.width - windowRadius; ++x) {
        if (!measures.usable[shape.index(x, y)]) continue;
        Moments moments;
        for (int k = 0; k < windowSize; ++k)
            moments.add(window[std::size_t(k)], columns[std::size_t(x + k - windowRadius)]);
        result.sum += moments.similarity();
        ++result.windows;
    }
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
