#include "FFT/PaddedSizes.h"

#include <algorithm>
#include <bit>

namespace Vellum::FFT {

namespace {

constexpr int least = 2;
constexpr int most = 19845;

constexpr int roundedUp(int size, int multiple) {
    return (size + multiple - 1) / multiple * multiple;
}

bool hasSmallFactorsOnly(int size) {
    for (const int factor : {2, 3, 5, 7})
        while (size % factor == 0)
            size /= factor;
    return size == 1;
}

}  // namespace

int hostPaddedLength(int size) {
    if (size > most) return size;
    int padded = std::max(size, least);
    while (!hasSmallFactorsOnly(padded))
        ++padded;
    return padded;
}

int cudaPaddedLength(int size) {
    constexpr int warp = 16, mostPower = 1024, large = 512;
    const int padded = roundedUp(std::max(size, 1), warp);
    const int power = static_cast<int>(std::bit_ceil(static_cast<unsigned>(padded)));
    if (power <= mostPower || power == padded) return power;
    return roundedUp(padded, large);
}

}  // namespace Vellum::FFT
