#include "compute/Exception.h"
#include "tests/Common/CommonTest.h"

namespace ViewTint::Tests {

TEST_F(CommonKernels, copyingAndFilling) {
    checkKernel({.kernel = "copyKernel", .reference = eachComponent([](auto& v) { return v[0]; }), .tolerance = 0});
    checkKernel({.kernel = "clearKernel", .reference = eachComponent([](auto&) { return 0; }), .tolerance = 0});
    checkKernel({.kernel = "fillConstantKernel",
                 .reference =
                     [](const Scene&, int, int) {
                         return Pixel{1, 2, -3, 0.5};
                     },
                 .scalars =
                     [](KernelExecutionContext& context) {
                         context.set({"value"}, std::array{1.f, 2.f, -3.f, 0.5f});
                     },
                 .tolerance = 0});
    checkKernel({.kernel = "copyClampedKernel",
                 .reference =
                     [](const Scene& scene, int x, int y) {
                         Pixel pixel{};
                         for (int c = 0; c < scene.count(1); ++c)
                             pixel[c] = scene.clamped(0, x, y, c);
                         return pixel;
                     },
                 .tolerance = 0,
                 // The source covers a part, reaches beyond, or lies aside.
                 .boxOf =
                     [](int index, const Box& box) {
                         if (index == 1) return box;
                         return box.width() % 2 ? Box{box.x0 + 1, box.y0 - 2, box.x0 + 6, box.y0 + 1}
                                                : Box{box.x1 + 3, box.y0, box.x1 + 5, box.y1 + 1};
                     }});
}

TEST_F(CommonKernels, fillWhereMask) {
    const std::array<float, 4> value{9, -8, 7, 0.25f};
    for (const bool invert : {false, true})
        checkKernel({.kernel = "fillWhereMaskKernel",
                     .scalars =
                         [=](KernelExecutionContext& context) {
                             context.set({"value"}, value);
                             context.set({"invert"}, invert);
                         },
                     .tolerance = 0,
                     .otherReferences = {{0, [=](const Scene& scene, int x, int y) {
                                              Pixel pixel{};
                                              const double m = scene.at(1, x, y, 0);
                                              const bool fills = invert ? m == 0 : m > 0;
                                              for (int c = 0; c < scene.count(0); ++c)
                                                  pixel[c] = fills ? double{value[c]} : scene.at(0, x, y, c);
                                              return pixel;
                                          }}}});
}

TEST_F(CommonKernels, channels) {
    for (const auto& [from, to] : {std::pair{0, 1}, {2, 0}, {3, 3}, {-1, 0}, {0, 7}}) {
        checkKernel({.kernel = "copyChannelKernel",
                     .reference =
                         [=](const Scene& scene, int x, int y) {
                             Pixel pixel = before(scene, x, y);
                             const bool there = from >= 0 && from < scene.count(0) && to < scene.count(1);
                             if (there) pixel[to] = scene.at(0, x, y, from);
                             return pixel;
                         },
                     .scalars =
                         [=](KernelExecutionContext& context) {
                             context.set({"sourceChannel"}, from);
                             context.set({"destChannel"}, to);
                         },
                     .tolerance = 0});
    }
    for (const auto& [first, last] : {std::pair{0, 3}, {1, 2}, {3, 0}}) {
        checkKernel({.kernel = "copyChannelRangeKernel",
                     .reference =
                         [=](const Scene& scene, int x, int y) {
                             Pixel pixel = before(scene, x, y);
                             for (int c = first; c <= last && c < std::min(scene.count(0), scene.count(1)); ++c)
                                 pixel[c] = scene.at(0, x, y, c);
                             return pixel;
                         },
                     .scalars =
                         [=](KernelExecutionContext& context) {
                             context.set({"firstChannel"}, first);
                             context.set({"lastChannel"}, last);
                         },
                     .tolerance = 0});
    }
}

TEST(CommonWrappers, fillingByHand) {
    const TestImage mask(row({-1, -0.0f, 0, 0.5f, NAN}), Arrangement::planar);
    for (const bool invert : {false, true})
        EXPECT_EQ(firstDifference(invert ? row({1, 9, 9, 4, 5}) : row({1, 2, 3, 9, 5}),
                                  resultOf(
                                      [&](Image& o) {
                                          Vellum::Common::fillWhereMask(o, mask.image(), {9, 8, 7, 6}, invert);
                                      },
                                      row({1, 2, 3, 4, 5}))),
                  "");
    const TestImage two(row({1, 2}), Arrangement::planar);
    EXPECT_EQ(firstDifference(
                  row({1, 1, 2, 2, 2}, -1),
                  resultOf([&](Image& o) { Vellum::Common::copyClamped(two.image(), o); }, row({0, 0, 0, 0, 0}, -1))),
              "")
        << "repeats the border";
}

TEST(CommonWrappers, clearAlsoTakesUnsignedImages) {
    Image image({{0, 0, 19, 3}, 2, Vellum::Pixel::DataEnum::unsigned32}, Vellum::Compute::Host::hostDevice());
    auto* values = reinterpret_cast<std::uint32_t*>(image.data());
    values[0] = values[18] = 0xffffffffu;
    Vellum::Common::clear(image);
    EXPECT_EQ(values[0], 0u);
    EXPECT_EQ(values[18], 0u);
}

TEST(CommonWrappers, copyWithUnlikeComponentsTakesTheCommonOnes) {
    const Box box{0, 0, 9, 2};
    const TestImage four(randomPixels(box, 4, 1, false), Arrangement::packed);
    TestImage two(Pixels(box, 2), Arrangement::planar);
    Vellum::Common::copy(four.image(), two.image());
    EXPECT_EQ(two.pixels().at(8, 1, 1), four.pixels().at(8, 1, 1));
    TestImage target(randomPixels(box, 4, 2, false), Arrangement::planar);
    const float kept = target.pixels().at(3, 1, 3);
    Vellum::Common::copy(two.image(), target.image());
    EXPECT_EQ(target.pixels().at(3, 1, 0), two.pixels().at(3, 1, 0));
    EXPECT_EQ(target.pixels().at(3, 1, 3), kept);
}

TEST(CommonWrappers, regionsArePastedWhereTheyFit) {
    const TestImage source(randomPixels({0, 0, 10, 10}, 1, 1, false), Arrangement::planar);
    const Pixels empty({100, 100, 106, 106}, 1);
    const auto pasted = [&](const Box& box, int x, int y) {
        TestImage target(empty, Arrangement::paddedPlanar);
        Vellum::Common::copy(source.image(), box, target.image(), x, y);
        EXPECT_TRUE(target.guardsIntact());
        return target.pixels();
    };
    const Pixels inside = pasted({2, 3, 4, 5}, 101, 102);
    const Pixels all = source.pixels();
    inside.forEach([&](int x, int y, int) {
        const bool covered = x >= 101 && x < 103 && y >= 102 && y < 104;
        EXPECT_EQ(inside.at(x, y, 0), covered ? all.at(x - 99, y - 99, 0) : 0.0f) << x << ", " << y;
    });
    const Pixels partly = pasted({-5, -5, 20, 20}, 98, 99);
    EXPECT_EQ(partly.at(105, 105, 0), all.at(2, 1, 0)) << "the source covers (-5, -5) + 5 only from (0, 0) on";
    EXPECT_EQ(partly.at(102, 105, 0), 0.0f);
    EXPECT_EQ(firstDifference(empty, pasted({0, 0, 5, 5}, 200, 200)), "") << "nothing in common";
    EXPECT_EQ(firstDifference(empty, pasted({20, 20, 25, 25}, 100, 100)), "");

    TestImage two(Pixels({0, 0, 3, 3}, 2), Arrangement::planar);
    Vellum::Common::copyChannel(source.image(), {7, 7, 9, 9}, two.image(), 1, 1, 0, 1);
    EXPECT_EQ(two.pixels().at(2, 2, 1), all.at(8, 8, 0));
    EXPECT_EQ(two.pixels().at(2, 2, 0), 0.0f);
    EXPECT_EQ(two.pixels().at(0, 0, 1), 0.0f);
}

TEST(CommonWrappers, mismatchedBoxesAreRefused) {
    const TestImage small(randomPixels({0, 0, 5, 5}, 1, 1, false), Arrangement::planar);
    TestImage large(randomPixels({0, 0, 6, 5}, 1, 1, false), Arrangement::planar);
    EXPECT_THROW(Vellum::Common::invert(small.image(), large.image()), Vellum::Compute::Exception);
}

}  // namespace ViewTint::Tests
