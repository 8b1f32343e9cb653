// Pictures for benchmarks: random ones, and a 1080p stereo pair and its disparity, made from formulas.
#pragma once

#include <cmath>
#include <random>

#include "benchmarks/MemoryReference.h"
#include "compute/HostDevice.h"
#include "compute/Image.h"

namespace ViewTint::Benchmarks {

using Vellum::Image::Image;

inline Image makeImage(std::uint32_t components, const Vellum::Image::Box& frame = {0, 0, width, height},
                       const Vellum::Image::LayoutSpec& layout = Vellum::Image::ordinaryLayout) {
    return Image({frame, components, Vellum::Pixel::DataEnum::float32}, Vellum::Compute::Host::hostDevice(), layout);
}

/// Calls value(x, y, c) for every value of an image and stores it.
template <class Value>
void fill(Image& image, Value&& value) {
    const auto& layout = image.tile().layout;
    for (std::uint32_t c = 0; c < image.components(); ++c)
        for (int y = 0; y < image.box().height(); ++y)
            for (int x = 0; x < image.box().width(); ++x)
                image.data()[x * layout.x.elements + y * layout.y.elements + c * layout.component.elements] =
                    value(x, y, static_cast<int>(c));
}

inline void fillRandomly(Image& image, unsigned seed = 1) {
    std::minstd_rand random(seed);
    std::uniform_real_distribution<float> value(0.01f, 0.9f);
    fill(image, [&](int, int, int) { return value(random); });
}

inline Image randomImage(std::uint32_t components, unsigned seed,
                         const Vellum::Image::Box& frame = {0, 0, width, height}) {
    Image image = makeImage(components, frame);
    fillRandomly(image, seed);
    return image;
}

constexpr int postPitch = 400, postBegin = 100, postEnd = 200, postBottom = 40;

/// A wall that sways, and before it posts whose sides open holes over 5 per cent of the picture.
inline float disparity(int x, int y, int axis) {
    if (axis == 1) return 0.3f * std::sin(static_cast<float>(y) * 0.1f);
    const bool post = x % postPitch >= postBegin && x % postPitch < postEnd && y > postBottom;
    return (post ? -35.0f : -20.0f) -
           5 * std::sin(static_cast<float>(x) * 0.01f) * std::cos(static_cast<float>(y) * 0.013f);
}

/// Strips of 20 pixels beside the posts: 5 per cent.
inline float occlusion(int x, int y) {
    const int place = x % postPitch;
    return place >= postEnd && place < postEnd + 20 && y > postBottom ? 1.0f : 0.0f;
}

/// Colours with structure of all sizes and some grain; `tint` 1 changes them across the picture.
class Colours {
public:
    explicit Colours(float tint) : tint_(tint) {}
    float operator()(int x, int y, int c) {
        if (c == 3) return 1;
        const float u = static_cast<float>(x), v = static_cast<float>(y);
        const float shape = 0.4f + 0.2f * std::sin(u * 0.013f + static_cast<float>(c)) * std::cos(v * 0.017f) +
                            0.1f * std::sin(u * 0.37f) * std::sin(v * 0.29f) + grain_(random_);
        return shape * (1 + tint_ * 0.2f * (u / static_cast<float>(width) - 0.5f) * static_cast<float>(c - 1));
    }

private:
    float tint_;
    std::minstd_rand random_{1};
    std::uniform_real_distribution<float> grain_{-0.01f, 0.01f};
};

}  // namespace ViewTint::Benchmarks
