#include "vellumLabColour.h"

#include "Common/Common.h"

namespace Vellum::Tone {

void toLab(const Vellum::Image::Image& input, Vellum::Image::Image& output, int kernelFlags) {
    Common::copyChannelRange(input, output, 0, 2);
    Common::colourMatrix(output, output, rgbToXyzMatrix, kernelFlags);
    Common::xyzToLab(output, output, kernelFlags);
}

void fromLab(const Vellum::Image::Image& input, Vellum::Image::Image& output, int kernelFlags) {
    Common::copyChannelRange(input, output, 0, 2);
    Common::labToXyz(output, output, kernelFlags);
    Common::colourMatrix(output, output, xyzToRgbMatrix, kernelFlags);
}

}  // namespace Vellum::Tone
