#pragma once

#include <array>

#include "compute/BufferManagement/BufferManager.h"

namespace Vellum::PictureBuilder {

/// How a picture is sampled where a displacement points to. Samples are mixed as sRGB codes, so that a filter's
/// overshoots beside bright pixels stay small.
struct WarpFilter {
    using Image = Vellum::Image::Image;
    using BufferManager = Vellum::Utils::BufferManagement::BufferManager;

    int kernelFlags = 19;
    bool lanczos = true;  ///< else bilinear
    bool sRGBDomain = true;
    /// Width and height of the format: columns close round the width, rows are clamped. Below 1: columns are clamped.
    std::array<int, 2> wrapSize{-1, -1};

    /// Where `coded` finds room for what the filter samples: the pixels of one place side by side.
    static constexpr Vellum::Image::LayoutSpec codedLayout{2, 1, 0};
    /// What the filter samples: the picture's sRGB codes, or the picture itself. NaN and infinity become 0, so that a
    /// broken pixel doesn't break its neighbours.
    void code(const Image& picture, Image& coded) const;
    /// output(x, y) = picture at (x, y) + displacement, in linear light.
    void warp(const Image& coded, const Image& displacement, Image& output) const;
    /// The same where `where` is above 0; other pixels of the output stay. Images of four components.
    void warpWhere(const Image& coded, const Image& displacement, const Image& where, Image& output) const;
};

}  // namespace Vellum::PictureBuilder
