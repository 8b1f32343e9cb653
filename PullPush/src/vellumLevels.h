#pragma once

#include <vector>

#include "compute/Image.h"

/// The steps between the levels of the pyramid. A level is an image of 1 to 4 components and its weights; all images of
/// a call lie on one device. Weights above 1 count as 1.
namespace Vellum::PullPush {

/// The boxes of all levels, the finest first: each is the one before times `scale`, every coordinate rounded down, for
/// as long as that leaves pixels and changes something.
std::vector<Vellum::Image::Box> levelBoxes(const Vellum::Image::Box& finest, float scale);

/// The coarser level from the finer one.
void pull(const Vellum::Image::Image& fineValues, const Vellum::Image::Image& fineWeights,
          Vellum::Image::Image& coarseValues, Vellum::Image::Image& coarseWeights, int flags);
/// Fills the finer level from the coarser one, in place.
void push(const Vellum::Image::Image& coarseValues, const Vellum::Image::Image& coarseWeights,
          Vellum::Image::Image& values, Vellum::Image::Image& weights, int flags);

// The finest level is the picture itself. Both steps limit its weights to 0 .. 1 on the way and leave it as it is,
// which gives the same bits as working on a limited copy and saves a third of the time.

/// The first coarser level from the picture.
void pullPicture(const Vellum::Image::Image& picture, const Vellum::Image::Image& weights,
                 Vellum::Image::Image& coarseValues, Vellum::Image::Image& coarseWeights, int flags);
/// The result from the picture and the first coarser level.
void pushPicture(const Vellum::Image::Image& coarseValues, const Vellum::Image::Image& coarseWeights,
                 const Vellum::Image::Image& picture, const Vellum::Image::Image& weights, Vellum::Image::Image& result,
                 int flags);

}  // namespace Vellum::PullPush
