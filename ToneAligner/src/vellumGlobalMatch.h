#pragma once

#include <array>

#include "compute/Image.h"

namespace Vellum::Tone {

/// Mean and variance of each Lab component over the pixels that count; 0 where none does.
struct LabStatistics {
    std::array<float, 3> mean{};
    std::array<float, 3> variance{};
};

/// gains * value + offsets takes the statistics of one picture to those of another.
struct GlobalMap {
    std::array<float, 4> offsets{};
    std::array<float, 4> gains{1, 1, 1, 1};
};

/// The map from the statistics of picture A to those of picture B. Gains lie within -2 .. 2; a component that is
/// (nearly) flat in A keeps a gain of 1 and is only moved.
GlobalMap globalMap(const LabStatistics& a, const LabStatistics& b);

// ---- the plain sequence of kernels

/// `mask` has as many components as `lab`, each masking its own.
LabStatistics labStatistics(const Vellum::Image::Image& mask, const Vellum::Image::Image& lab, int kernelFlags);
/// Maps Lab picture A so that its statistics under mask A become those of B under mask B.
void computeGlobalMatch(const Vellum::Image::Image& a, const Vellum::Image::Image& maskA, const Vellum::Image::Image& b,
                        const Vellum::Image::Image& maskB, Vellum::Image::Image& result, int kernelFlags);

/// Gives back `source` where `userMask` is 0, and its alpha where that is no value.
void keepUnselected(const Vellum::Image::Image& source, const Vellum::Image::Image& userMask,
                    Vellum::Image::Image& output, int kernelFlags);

// ---- the same arithmetic in fewer passes

/// 1 where `userMask` selects and `occlusion` does not exclude, else 0.
void countedPixels(const Vellum::Image::Image& userMask, const Vellum::Image::Image& occlusion,
                   Vellum::Image::Image& counted, int kernelFlags);
/// Writes the Lab picture of `rgb` and returns its statistics where the one-component `counted` is above 0.
LabStatistics toLabWithStatistics(const Vellum::Image::Image& rgb, const Vellum::Image::Image& counted,
                                  Vellum::Image::Image& lab, int kernelFlags);
/// Maps `lab`, converts it to RGB and mixes it over `source` by `userMask`.
void applyGlobalMatch(const Vellum::Image::Image& lab, const Vellum::Image::Image& source,
                      const Vellum::Image::Image& userMask, const GlobalMap& map, Vellum::Image::Image& output,
                      int kernelFlags);

}  // namespace Vellum::Tone
