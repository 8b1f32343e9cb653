#include "requirements.h"

#include <fmt/format.h>

#include "bindings.h"

namespace ViewTint::Python {

using Vellum::Image::Image;

void requireComponents(const char* name, const Image& image, std::uint32_t components) {
    if (image.components() == components) return;
    raiseValue(fmt::format("{} must have {} component{}, not {}.", name, components, components == 1 ? "" : "s",
                           image.components()));
}

void requireColour(const char* name, const Image& image) {
    if (image.components() == 3 || image.components() == 4) return;
    raiseValue(fmt::format("{} must have 3 or 4 components, not {}.", name, image.components()));
}

void requireSameBox(const char* name, const Image& image, const char* modelName, const Image& model) {
    if (image.box() == model.box()) return;
    raiseValue(fmt::format("{} and {} must have the same box.", name, modelName));
}

void requireCovers(const char* name, const Image& image, const char* modelName, const Image& model) {
    if (image.box().contains(model.box())) return;
    raiseValue(fmt::format("{} must cover the box of {}.", name, modelName));
}

void requireSameSize(const char* name, const Image& image, const char* modelName, const Image& model) {
    if (image.box().width() == model.box().width() && image.box().height() == model.box().height()) return;
    raiseValue(fmt::format("{} and {} must have the same size.", name, modelName));
}

}  // namespace ViewTint::Python
