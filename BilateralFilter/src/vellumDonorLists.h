#pragma once

#include "compute/Image.h"

namespace Vellum::BilateralFilter {

/// The pixels of a picture that give, as donorFillKernel wants them, in the host's memory.
struct DonorLists {
    Vellum::Image::Image firstCells, cells, donors;
};

/// Pixels of `distance` 0 give. `guide` and `values` of 3 components, all in one box. Gives the same lists with any
/// number of threads. Throws Cobalt::Base::Exception where there is no room.
DonorLists listDonors(const Vellum::Image::Image& distance, const Vellum::Image::Image& guide,
                      const Vellum::Image::Image& values);

}  // namespace Vellum::BilateralFilter
