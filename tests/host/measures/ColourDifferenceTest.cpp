#include "host/measures/ColourDifference.h"

#include <gtest/gtest.h>

#include <cmath>

#include "host/measures/PowerTable.h"

namespace ViewTint::Host {
namespace {

struct PublishedPair {
    Lab first;
    Lab second;
    double difference;
};

// Table 1 of Sharma, Wu, Dalal (2005): made to catch wrong hue means, arctangents and rotation terms.
constexpr PublishedPair publishedPairs[] = {
    {{50.0000, 2.6772, -79.7751}, {50.0000, 0.0000, -82.7485}, 2.0425},
    {{50.0000, 3.1571, -77.2803}, {50.0000, 0.0000, -82.7485}, 2.8615},
    {{50.0000, 2.8361, -74.0200}, {50.0000, 0.0000, -82.7485}, 3.4412},
    {{50.0000, -1.3802, -84.2814}, {50.0000, 0.0000, -82.7485}, 1.0000},
    {{50.0000, -1.1848, -84.8006}, {50.0000, 0.0000, -82.7485}, 1.0000},
    {{50.0000, -0.9009, -85.5211}, {50.0000, 0.0000, -82.7485}, 1.0000},
    {{50.0000, 0.0000, 0.0000}, {50.0000, -1.0000, 2.0000}, 2.3669},
    {{50.0000, -1.0000, 2.0000}, {50.0000, 0.0000, 0.0000}, 2.3669},
    {{50.0000, 2.4900, -0.0010}, {50.0000, -2.4900, 0.0009}, 7.1792},
    {{50.0000, 2.4900, -0.0010}, {50.0000, -2.4900, 0.0010}, 7.1792},
    {{50.0000, 2.4900, -0.0010}, {50.0000, -2.4900, 0.0011}, 7.2195},
    {{50.0000, 2.4900, -0.0010}, {50.0000, -2.4900, 0.0012}, 7.2195},
    {{50.0000, -0.0010, 2.4900}, {50.0000, 0.0009, -2.4900}, 4.8045},
    {{50.0000, -0.0010, 2.4900}, {50.0000, 0.0010, -2.4900}, 4.8045},
    {{50.0000, -0.0010, 2.4900}, {50.0000, 0.0011, -2.4900}, 4.7461},
    {{50.0000, 2.5000, 0.0000}, {50.0000, 0.0000, -2.5000}, 4.3065},
    {{50.0000, 2.5000, 0.0000}, {73.0000, 25.0000, -18.0000}, 27.1492},
    {{50.0000, 2.5000, 0.0000}, {61.0000, -5.0000, 29.0000}, 22.8977},
    {{50.0000, 2.5000, 0.0000}, {56.0000, -27.0000, -3.0000}, 31.9030},
    {{50.0000, 2.5000, 0.0000}, {58.0000, 24.0000, 15.0000}, 19.4535},
    {{50.0000, 2.5000, 0.0000}, {50.0000, 3.1736, 0.5854}, 1.0000},
    {{50.0000, 2.5000, 0.0000}, {50.0000, 3.2972, 0.0000}, 1.0000},
    {{50.0000, 2.5000, 0.0000}, {50.0000, 1.8634, 0.5757}, 1.0000},
    {{50.0000, 2.5000, 0.0000}, {50.0000, 3.2592, 0.3350}, 1.0000},
    {{60.2574, -34.0099, 36.2677}, {60.4626, -34.1751, 39.4387}, 1.2644},
    {{63.0109, -31.0961, -5.8663}, {62.8187, -29.7946, -4.0864}, 1.2630},
    {{61.2901, 3.7196, -5.3901}, {61.4292, 2.2480, -4.9620}, 1.8731},
    {{35.0831, -44.1164, 3.7933}, {35.0232, -40.0716, 1.5901}, 1.8645},
    {{22.7233, 20.0904, -46.6940}, {23.0331, 14.9730, -42.5619}, 2.0373},
    {{36.4612, 47.8580, 18.3852}, {36.2715, 50.5065, 21.2231}, 1.4146},
    {{90.8027, -2.0831, 1.4410}, {91.1528, -1.6435, 0.0447}, 1.4441},
    {{90.9257, -0.5406, -0.9208}, {88.6381, -0.8985, -0.7239}, 1.5381},
    {{6.7747, -0.2908, -2.4247}, {5.8714, -0.0985, -2.2286}, 0.6377},
    {{2.0776, 0.0795, -1.1350}, {0.9033, -0.0636, -0.5514}, 0.9082},
};

TEST(Ciede2000, AgreesWithThePublishedPairsBothWays) {
    ASSERT_EQ(std::size(publishedPairs), 34u);
    int number = 1;
    for (const PublishedPair& pair : publishedPairs) {
        SCOPED_TRACE(number++);
        EXPECT_NEAR(ciede2000(pair.first, pair.second), pair.difference, 0.5001e-4);
        EXPECT_NEAR(ciede2000(pair.second, pair.first), pair.difference, 0.5001e-4);
        EXPECT_EQ(ciede2000(pair.first, pair.first), 0.0);
    }
}

TEST(PowerTable, AgreesWithTheLibrarysPowers) {
    for (const double exponent : {1.0 / 3.0, 1.0 / 2.4, 2.4}) {
        const PowerTable power(exponent);
        for (double x = 1e-30; x < 1e30; x *= 1.00137) {
            const double expected = std::pow(x, exponent);
            ASSERT_NEAR(power(x), expected, 1e-14 * expected) << x << " to " << exponent;
        }
        for (const double edge : {1.0, std::nextafter(1.0, 0.0), std::nextafter(2.0, 0.0), 2.0})
            EXPECT_NEAR(power(edge), std::pow(edge, exponent), 1e-14 * std::pow(edge, exponent)) << edge;
    }
}

TEST(LabFromLinear, KnownColours) {
    const Lab white = labFromLinear(1.0, 1.0, 1.0);
    EXPECT_NEAR(white.L, 100.0, 1e-9);
    EXPECT_NEAR(white.a, 0.0, 1e-9);
    EXPECT_NEAR(white.b, 0.0, 1e-9);
    const Lab black = labFromLinear(0.0, 0.0, 0.0);
    EXPECT_NEAR(black.L, 0.0, 1e-12);
    const Lab red = labFromLinear(1.0, 0.0, 0.0);
    EXPECT_NEAR(red.L, 53.24, 0.02);
    EXPECT_NEAR(red.a, 80.09, 0.02);
    EXPECT_NEAR(red.b, 67.20, 0.02);
    // 18.42% reflectance is the middle of the lightness scale.
    EXPECT_NEAR(labFromLinear(0.18418651851244416, 0.18418651851244416, 0.18418651851244416).L, 50.0, 1e-9);
    EXPECT_LT(labFromLinear(-0.01, -0.01, -0.01).L, 0.0);
}

TEST(SrgbCodes, AnchorsClampAndWayBack) {
    EXPECT_EQ(encodeSrgb(-1.0), 0.0);
    EXPECT_NEAR(encodeSrgb(7.0), 1.0, 1e-12);
    EXPECT_NEAR(encodeSrgb(0.21404114048223255), 0.5, 1e-9);
    EXPECT_NEAR(encodeSrgb(0.002), 0.02584, 1e-12);
    for (int code = 0; code <= 255; ++code)
        EXPECT_NEAR(encodeSrgb(decodeSrgb(code / 255.0)), code / 255.0, 1e-6) << code;
}

}  // namespace
}  // namespace ViewTint::Host
