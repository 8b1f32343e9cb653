// What operations demand of the images of a call, in words that name the argument.
#pragma once

#include <cstdint>

#include "compute/Image.h"

namespace ViewTint::Python {

/// Each raises a ValueError.
void requireComponents(const char* name, const Vellum::Image::Image& image, std::uint32_t components);
/// 3 or 4 components.
void requireColour(const char* name, const Vellum::Image::Image& image);
void requireSameBox(const char* name, const Vellum::Image::Image& image, const char* modelName,
                    const Vellum::Image::Image& model);
/// `image` has all pixels of the model's box.
void requireCovers(const char* name, const Vellum::Image::Image& image, const char* modelName,
                   const Vellum::Image::Image& model);
/// Boxes may begin anywhere.
void requireSameSize(const char* name, const Vellum::Image::Image& image, const char* modelName,
                     const Vellum::Image::Image& model);

}  // namespace ViewTint::Python
