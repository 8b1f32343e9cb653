#include "host/measures/ColourDifference.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "host/measures/PowerTable.h"

namespace ViewTint::Host {

namespace {

// Linear sRGB to XYZ from the chromaticities of the primaries and of D65 (0.3127, 0.3290).
constexpr double toXyz[3][3] = {{0.41239079926595934, 0.357584339383878, 0.1804807884018343},
                                {0.21263900587151027, 0.715168678767756, 0.07219231536073371},
                                {0.01933081871559182, 0.11919477979462598, 0.9505321522496607}};

constexpr double whiteOf(int row) {
    return toXyz[row][0] + toXyz[row][1] + toXyz[row][2];
}

const PowerTable cubeRoot(1.0 / 3.0);
const PowerTable encodingPower(1.0 / 2.4);
const PowerTable decodingPower(2.4);

double labCurve(double t) {
    constexpr double delta = 6.0 / 29.0;
    return t > delta * delta * delta ? cubeRoot(t) : t / (3.0 * delta * delta) + 4.0 / 29.0;
}

constexpr double radians(double degrees) {
    return degrees * std::numbers::pi / 180.0;
}

double cosDegrees(double degrees) {
    return std::cos(radians(degrees));
}

double square(double x) {
    return x * x;
}

double chromaOf(double a, double b) {
    return std::sqrt(a * a + b * b);
}

/// Hue angle in degrees, 0 to 360; 0 for grey.
double hueDegrees(double a, double b) {
    if (a == 0.0 && b == 0.0) return 0.0;
    const double hue = std::atan2(b, a) * 180.0 / std::numbers::pi;
    return hue < 0.0 ? hue + 360.0 : hue;
}

/// sqrt(c^7 / (c^7 + 25^7)), the share of high chroma in the formula's corrections.
double highChromaShare(double chroma) {
    const double power = chroma * square(square(chroma)) * square(chroma);
    return std::sqrt(power / (power + 6103515625.0));
}

/// The shorter way from one hue to the other, in degrees; 0 where a colour is grey.
double hueStep(double hue1, double hue2, bool grey) {
    if (grey) return 0.0;
    const double step = hue2 - hue1;
    if (step > 180.0) return step - 360.0;
    return step < -180.0 ? step + 360.0 : step;
}

double meanHue(double hue1, double hue2, bool grey) {
    const double sum = hue1 + hue2;
    if (grey) return sum;
    if (std::abs(hue1 - hue2) <= 180.0) return sum / 2.0;
    return sum < 360.0 ? (sum + 360.0) / 2.0 : (sum - 360.0) / 2.0;
}

}  // namespace

double encodeSrgb(double linear) {
    const double x = std::clamp(linear, 0.0, 1.0);
    return x > 0.0031308 ? 1.055 * encodingPower(x) - 0.055 : 12.92 * x;
}

double decodeSrgb(double code) {
    const double x = std::clamp(code, 0.0, 1.0);
    return x > 0.04045 ? decodingPower((x + 0.055) / 1.055) : x / 12.92;
}

Lab labFromLinear(double red, double green, double blue) {
    double f[3];
    for (int row = 0; row < 3; ++row) {
        const double value = toXyz[row][0] * red + toXyz[row][1] * green + toXyz[row][2] * blue;
        f[row] = labCurve(value / whiteOf(row));
    }
    return {116.0 * f[1] - 16.0, 500.0 * (f[0] - f[1]), 200.0 * (f[1] - f[2])};
}

double ciede2000(const Lab& first, const Lab& second) {
    const double meanChroma = (chromaOf(first.a, first.b) + chromaOf(second.a, second.b)) / 2.0;
    const double stretch = 1.5 - 0.5 * highChromaShare(meanChroma);
    const double a1 = first.a * stretch;
    const double a2 = second.a * stretch;
    const double chroma1 = chromaOf(a1, first.b);
    const double chroma2 = chromaOf(a2, second.b);
    const double hue1 = hueDegrees(a1, first.b);
    const double hue2 = hueDegrees(a2, second.b);
    const bool grey = chroma1 * chroma2 == 0.0;

    const double lightnessStep = second.L - first.L;
    const double chromaStep = chroma2 - chroma1;
    const double hueChord = 2.0 * std::sqrt(chroma1 * chroma2) * std::sin(radians(hueStep(hue1, hue2, grey) / 2.0));

    const double lightness = (first.L + second.L) / 2.0;
    const double chroma = (chroma1 + chroma2) / 2.0;
    const double hue = meanHue(hue1, hue2, grey);
    const double hueWeight = 1.0 - 0.17 * cosDegrees(hue - 30.0) + 0.24 * cosDegrees(2.0 * hue) +
                             0.32 * cosDegrees(3.0 * hue + 6.0) - 0.20 * cosDegrees(4.0 * hue - 63.0);
    const double offMiddle = square(lightness - 50.0);
    const double lightnessScale = 1.0 + 0.015 * offMiddle / std::sqrt(20.0 + offMiddle);
    const double chromaScale = 1.0 + 0.045 * chroma;
    const double hueScale = 1.0 + 0.015 * chroma * hueWeight;
    // The tilt of the difference ellipses in the blue region.
    const double turn = 30.0 * std::exp(-square((hue - 275.0) / 25.0));
    const double rotation = -std::sin(radians(2.0 * turn)) * 2.0 * highChromaShare(chroma);

    const double l = lightnessStep / lightnessScale;
    const double c = chromaStep / chromaScale;
    const double h = hueChord / hueScale;
    // Rounding can leave a tiny negative sum for equal colours.
    return std::sqrt(std::max(0.0, l * l + c * c + h * h + rotation * c * h));
}

}  // namespace ViewTint::Host
