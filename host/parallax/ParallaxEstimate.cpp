#include "host/parallax/ParallaxEstimate.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <stdexcept>

#include "Common/Common.h"

namespace ViewTint::Host {

namespace {

constexpr float unknown = std::numeric_limits<float>::quiet_NaN();

/// Disparities from `least` to `most`, both included.
struct Range {
    int least = 0;
    int most = 0;
    int steps() const { return (most - least + 16) / 16 * 16; }  // the matcher wants a multiple of 16
};

/// How far below its match a pixel of the right view lies, as a plane over the left view.
struct VerticalOffset {
    double constant = 0, alongX = 0, alongY = 0;
    double at(double x, double y) const { return constant + alongX * x + alongY * y; }
    double largest(cv::Size size) const {
        double most = 0;
        for (const double x : {0.0, double(size.width)})
            for (const double y : {0.0, double(size.height)})
                most = std::max(most, std::abs(at(x, y)));
        return most;
    }
};

struct Maps {
    cv::Mat left, right;  ///< disparities as floats, NaN where unknown
};

/// Codes of the picture's structure: lightness less its mean, over its deviation, round each pixel.
cv::Mat structureOf(const RgbPicture& picture) {
    constexpr double neighbourhood = 7;  // pixels: the deviation of the window
    constexpr float noise = 0.02f;       // of encoded lightness: contrast below that isn't raised
    constexpr float middle = 128, contrast = 45;
    cv::Mat light(picture.height, picture.width, CV_32F);
    const std::array<float, 3> weights{0.3f, 0.5f, 0.2f};
    for (int y = 0; y < picture.height; ++y)
        for (int x = 0; x < picture.width; ++x) {
            const std::size_t i = picture.index(x, y);
            float sum = 0;
            for (std::size_t c = 0; c < 3; ++c) {
                const float value = picture.planes[c][i];
                // Codes rather than light: dark parts count as much as bright ones.
                sum +=
                    weights[c] *
                    std::sqrt(std::abs(value) <= Vellum::Common::largestValue ? std::clamp(value, 0.0f, 1e4f) : 0.0f);
            }
            light.at<float>(y, x) = sum;
        }
    // Exposure mustn't decide what is noise.
    const double level = cv::mean(light)[0];
    if (level > 1e-6) light *= 0.4 / level;
    cv::Mat mean, squares;
    cv::GaussianBlur(light, mean, {}, neighbourhood);
    cv::GaussianBlur(light.mul(light), squares, {}, neighbourhood);
    cv::Mat deviation = squares - mean.mul(mean), codes;
    cv::sqrt(cv::max(deviation, 0.0f), deviation);
    cv::Mat structure = (light - mean) / (deviation + noise);
    structure.convertTo(codes, CV_8U, contrast, middle);
    return codes;
}

/// One direction: for each pixel of `from` where it lies in `to`, further left by the disparity.
cv::Mat matchRows(const cv::Mat& from, const cv::Mat& to, const Range& range) {
    constexpr int block = 5, penalty = 2 * block * block;
    // The matcher leaves out columns whose whole range isn't in the picture.
    const int before = std::max(range.least + range.steps(), 0) + block, after = std::max(-range.least, 0) + block;
    cv::Mat a, b, fixed;
    cv::copyMakeBorder(from, a, 0, 0, before, after, cv::BORDER_REPLICATE);
    cv::copyMakeBorder(to, b, 0, 0, before, after, cv::BORDER_REPLICATE);
    const auto matcher = cv::StereoSGBM::create(range.least, range.steps(), block, 8 * penalty, 32 * penalty, -1, 31, 0,
                                                100, 2, cv::StereoSGBM::MODE_SGBM_3WAY);
    matcher->compute(a, b, fixed);
    constexpr double sixteenths = 1.0 / 16;
    cv::Mat disparity;
    fixed.colRange(before, before + from.cols).convertTo(disparity, CV_32F, sixteenths);
    disparity.setTo(unknown, disparity < static_cast<float>(range.least));
    return disparity;
}

cv::Mat mirrored(const cv::Mat& picture) {
    cv::Mat turned;
    cv::flip(picture, turned, 1);
    return turned;
}

/// Makes those pixels of `own` unknown that the other direction sends elsewhere. `sign` is -1 for the left view.
void keepAgreeing(cv::Mat& own, const cv::Mat& other, int sign) {
    constexpr float tolerance = 1;
    for (int y = 0; y < own.rows; ++y)
        for (int x = 0; x < own.cols; ++x) {
            float& disparity = own.at<float>(y, x);
            const int match = std::isnan(disparity) ? -1 : x + sign * static_cast<int>(std::lround(disparity));
            const bool inside = match >= 0 && match < own.cols;
            if (!inside || !(std::abs(other.at<float>(y, match) - disparity) <= tolerance)) disparity = unknown;
        }
}

/// Both directions, with what they agree on only.
Maps matchBoth(const cv::Mat& left, const cv::Mat& right, const Range& range) {
    Maps maps{matchRows(left, right, range), mirrored(matchRows(mirrored(right), mirrored(left), range))};
    const Maps before{maps.left.clone(), maps.right};
    keepAgreeing(maps.left, maps.right, -1);
    cv::Mat rightMap = maps.right.clone();
    keepAgreeing(rightMap, before.left, 1);
    maps.right = rightMap;
    return maps;
}

/// Makes unknown what doesn't look alike: the mean difference of structure round a pixel is far above that of matches.
void keepAlike(cv::Mat& own, const cv::Mat& picture, const cv::Mat& other, int sign) {
    constexpr float most = 25;  // codes; unlike places differ by about 50
    constexpr int window = 9;
    cv::Mat difference(own.size(), CV_32F, cv::Scalar(0)), known(own.size(), CV_32F, cv::Scalar(0));
    for (int y = 0; y < own.rows; ++y)
        for (int x = 0; x < own.cols; ++x) {
            const float disparity = own.at<float>(y, x);
            if (std::isnan(disparity)) continue;
            const int match = std::clamp(x + sign * static_cast<int>(std::lround(disparity)), 0, own.cols - 1);
            difference.at<float>(y, x) =
                std::abs(float(picture.at<std::uint8_t>(y, x)) - other.at<std::uint8_t>(y, match));
            known.at<float>(y, x) = 1;
        }
    cv::blur(difference, difference, {window, window});
    cv::blur(known, known, {window, window});
    own.setTo(unknown, difference > most * known);
}

/// Gives single unknown pixels and thin lines of them the median of their surroundings: what is hidden is wider.
void fillSpecks(cv::Mat& map) {
    constexpr int reach = 2;
    cv::Mat hole(map.size(), CV_8U), wide;
    for (int y = 0; y < map.rows; ++y)
        for (int x = 0; x < map.cols; ++x)
            hole.at<std::uint8_t>(y, x) = std::isnan(map.at<float>(y, x)) ? 255 : 0;
    cv::morphologyEx(hole, wide, cv::MORPH_OPEN, cv::Mat::ones(3, 3, CV_8U), {-1, -1}, 1, cv::BORDER_REPLICATE);
    const cv::Mat before = map.clone();
    std::vector<float> known;
    for (int y = 0; y < map.rows; ++y)
        for (int x = 0; x < map.cols; ++x) {
            if (!hole.at<std::uint8_t>(y, x) || wide.at<std::uint8_t>(y, x)) continue;
            known.clear();
            for (int v = std::max(y - reach, 0); v <= std::min(y + reach, map.rows - 1); ++v)
                for (int u = std::max(x - reach, 0); u <= std::min(x + reach, map.cols - 1); ++u)
                    if (const float value = before.at<float>(v, u); !std::isnan(value)) known.push_back(value);
            if (known.empty()) continue;
            std::nth_element(known.begin(), known.begin() + known.size() / 2, known.end());
            map.at<float>(y, x) = known[known.size() / 2];
        }
}

/// A smaller picture, at most so wide.
double scaleTo(int width, int most) {
    return width <= most ? 1.0 : double(most) / width;
}

cv::Mat shrunk(const cv::Mat& picture, double scale) {
    if (scale == 1) return picture;
    cv::Mat small;
    const int shorter = std::min(picture.cols, picture.rows);
    if (std::lround(shorter * scale) > 0)
        cv::resize(picture, small, {}, scale, scale, cv::INTER_AREA);
    else  // a strip: a pixel of it must be left
        cv::resize(
            picture, small,
            {std::max(int(std::lround(picture.cols * scale)), 1), std::max(int(std::lround(picture.rows * scale)), 1)},
            0, 0, cv::INTER_AREA);
    return small;
}

/// The disparities that occur, with some room on both sides.
Range occurring(const Maps& maps, double scale, int width) {
    std::vector<float> values;
    for (const cv::Mat& map : {maps.left, maps.right})
        for (auto value = map.begin<float>(); value != map.end<float>(); ++value)
            if (!std::isnan(*value)) values.push_back(*value);
    if (values.empty()) return {-16, 15};
    std::sort(values.begin(), values.end());
    const auto quantile = [&](double share) {
        return values[static_cast<std::size_t>(share * double(values.size() - 1))];
    };
    constexpr double rare = 0.003, room = 2.5;
    const int limit = width / 2;
    return {std::max(static_cast<int>(std::floor((quantile(rare) - room) / scale)), -limit),
            std::min(static_cast<int>(std::ceil((quantile(1 - rare) + room) / scale)), limit)};
}

/// A least-squares plane through points, those far from it left out in turns.
VerticalOffset fitPlane(std::vector<std::array<double, 3>> points) {
    VerticalOffset plane;
    if (points.size() < 60) return plane;
    for (int turn = 0; turn < 5; ++turn) {
        cv::Mat a(static_cast<int>(points.size()), 3, CV_64F), b(static_cast<int>(points.size()), 1, CV_64F), solved;
        for (int i = 0; i < a.rows; ++i) {
            const auto& [x, y, offset] = points[static_cast<std::size_t>(i)];
            a.at<double>(i, 0) = 1, a.at<double>(i, 1) = x, a.at<double>(i, 2) = y, b.at<double>(i) = offset;
        }
        if (!cv::solve(a, b, solved, cv::DECOMP_SVD)) return {};
        plane = {solved.at<double>(0), solved.at<double>(1), solved.at<double>(2)};
        std::vector<double> distances;
        for (const auto& [x, y, offset] : points)
            distances.push_back(std::abs(offset - plane.at(x, y)));
        std::vector<double> sorted = distances;
        std::nth_element(sorted.begin(), sorted.begin() + sorted.size() / 2, sorted.end());
        const double most = std::max(3 * sorted[sorted.size() / 2], 0.1);
        std::vector<std::array<double, 3>> kept;
        for (std::size_t i = 0; i < points.size(); ++i)
            if (distances[i] <= most) kept.push_back(points[i]);
        if (kept.size() < 60) break;
        points = std::move(kept);
    }
    return plane;
}

/// Looks for patches of the left view above and below their match, of which a small picture tells the disparity.
VerticalOffset verticalOffset(const cv::Mat& left, const cv::Mat& right, const cv::Mat& coarse, double scale) {
    constexpr int half = 7, reachY = 6, points = 40;
    const int reachX = static_cast<int>(std::ceil(1.5 / scale)) + 1;
    std::vector<std::array<double, 3>> found;
    for (int j = 1; j < points; ++j)
        for (int i = 1; i < points; ++i) {
            const int x = left.cols * i / points, y = left.rows * j / points;
            const float disparity = coarse.at<float>(std::min(static_cast<int>(y * scale), coarse.rows - 1),
                                                     std::min(static_cast<int>(x * scale), coarse.cols - 1));
            if (std::isnan(disparity)) continue;
            const int match = x - static_cast<int>(std::lround(disparity / scale));
            const cv::Rect patch(x - half, y - half, 2 * half + 1, 2 * half + 1);
            const cv::Rect area(match - half - reachX, y - half - reachY, patch.width + 2 * reachX,
                                patch.height + 2 * reachY);
            const cv::Rect frame(0, 0, left.cols, left.rows);
            if ((patch & frame) != patch || (area & frame) != area) continue;
            cv::Mat score;
            cv::matchTemplate(right(area), left(patch), score, cv::TM_CCOEFF_NORMED);
            double best = 0;
            cv::Point at;
            cv::minMaxLoc(score, nullptr, &best, nullptr, &at);
            if (!(best > 0.85) || at.y < 1 || at.y >= score.rows - 1) continue;
            const double above = score.at<float>(at.y - 1, at.x), below = score.at<float>(at.y + 1, at.x);
            const double curvature = above + below - 2 * best;
            const double between = curvature < -1e-3 ? (above - below) / (2 * curvature) : 0;
            // A patch that looks alike above and below tells nothing.
            if (curvature > -0.02) continue;
            found.push_back({double(x), double(y), at.y - reachY + between});
        }
    return fitPlane(std::move(found));
}

/// The right view with its rows on those of the left one.
cv::Mat alignedRows(const cv::Mat& right, const VerticalOffset& offset) {
    cv::Mat mapX(right.size(), CV_32F), mapY(right.size(), CV_32F), aligned;
    for (int y = 0; y < right.rows; ++y)
        for (int x = 0; x < right.cols; ++x) {
            mapX.at<float>(y, x) = static_cast<float>(x);
            mapY.at<float>(y, x) = static_cast<float>(y + offset.at(x, y));
        }
    cv::remap(right, aligned, mapX, mapY, cv::INTER_LINEAR, cv::BORDER_REPLICATE);
    return aligned;
}

DisparityMap asMap(const cv::Mat& disparity, Side side, const VerticalOffset& offset) {
    DisparityMap map(side, disparity.cols, disparity.rows);
    const double sign = side == Side::left ? 1 : -1;
    for (int y = 0; y < map.height; ++y)
        for (int x = 0; x < map.width; ++x) {
            const std::size_t i = map.index(x, y);
            map.disparity[i] = disparity.at<float>(y, x);
            map.vertical[i] = static_cast<float>(sign * offset.at(x, y));
        }
    return map;
}

/// The aligned right view's map on the rows of the right view itself.
cv::Mat backOnItsRows(const cv::Mat& map, const VerticalOffset& offset) {
    cv::Mat moved(map.size(), CV_32F);
    for (int y = 0; y < map.rows; ++y)
        for (int x = 0; x < map.cols; ++x) {
            const long from = std::lround(y - offset.at(x, y));
            moved.at<float>(y, x) = from >= 0 && from < map.rows ? map.at<float>(static_cast<int>(from), x) : unknown;
        }
    return moved;
}

double knownShare(const cv::Mat& map) {
    std::size_t known = 0;
    for (auto value = map.begin<float>(); value != map.end<float>(); ++value)
        known += std::isnan(*value) ? 0 : 1;
    return double(known) / double(map.total());
}

}  // namespace

ParallaxEstimate estimateParallax(const RgbPicture& left, const RgbPicture& right,
                                  const std::function<void()>& checkpoint) {
    if (!left.sameSize(right) || left.width < 1 || left.height < 1)
        throw std::invalid_argument("the views of a stereo pair have one size");
    const auto step = [&] {
        if (checkpoint) checkpoint();
    };
    const cv::Mat leftStructure = structureOf(left);
    const cv::Mat rightStructure = structureOf(right);
    step();
    constexpr int coarseWidth = 400, widestCoarseShare = 4;
    const double scale = scaleTo(left.width, coarseWidth);
    const cv::Mat leftSmall = shrunk(leftStructure, scale), rightSmall = shrunk(rightStructure, scale);
    const int reach = std::max(leftSmall.cols / widestCoarseShare, 8);
    const Maps coarse = matchBoth(leftSmall, rightSmall, {-reach, reach});
    step();
    const Range range = occurring(coarse, scale, left.width);
    const VerticalOffset measured = verticalOffset(leftStructure, rightStructure, coarse.left, scale);
    constexpr double negligible = 0.2, implausible = 8;  // pixels
    const double size = measured.largest(leftStructure.size());
    const VerticalOffset offset = size > negligible && size < implausible ? measured : VerticalOffset{};
    const cv::Mat aligned =
        size > negligible && size < implausible ? alignedRows(rightStructure, offset) : rightStructure;
    step();

    // Beyond this many places to look at, half the resolution serves.
    constexpr double mostPlaces = 1920.0 * 1080 * 224;
    const bool halved = double(left.pixels()) * range.steps() > mostPlaces;
    Maps maps;
    if (halved) {
        maps = matchBoth(shrunk(leftStructure, 0.5), shrunk(aligned, 0.5), {range.least / 2 - 1, range.most / 2 + 1});
        for (cv::Mat* map : {&maps.left, &maps.right}) {
            cv::resize(*map, *map, leftStructure.size(), 0, 0, cv::INTER_NEAREST);
            *map *= 2;
        }
    } else {
        maps = matchBoth(leftStructure, aligned, range);
    }
    step();
    keepAlike(maps.left, leftStructure, aligned, -1);
    keepAlike(maps.right, aligned, leftStructure, 1);
    fillSpecks(maps.left);
    fillSpecks(maps.right);
    maps.right = backOnItsRows(maps.right, offset);

    ParallaxEstimate estimate{asMap(maps.left, Side::left, offset), asMap(maps.right, Side::right, offset), {}, {}, 0};
    estimate.matched = (knownShare(maps.left) + knownShare(maps.right)) / 2;
    estimate.leftOcclusion = occlusionFromVisibility(estimate.left, estimate.right);
    estimate.rightOcclusion = occlusionFromVisibility(estimate.right, estimate.left);
    step();
    fillFromBackground(estimate.left);
    fillFromBackground(estimate.right);
    return estimate;
}

}  // namespace ViewTint::Host
