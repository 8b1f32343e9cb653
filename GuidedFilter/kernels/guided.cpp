// The guided filter's own arithmetic. Compiled once per instruction set.
#include "GuidedFilter/kernels/windowMeans.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// The slopes a0, a1, a2 that explain an input by three channels of a guidance: the inverse of their covariances'
/// matrix (upper triangle var0 .. var5 by rows, epsilon added to its diagonal) times their covariances with the input.
/// A matrix of a determinant within determinantFloor of 0 has determinantFloor added to its diagonal once more. Where a
/// slope is not a number, all three are 1: the pixel keeps the guidance's contrast.
struct guidedSolveKernel : WholePixel<In<"var0">, In<"var1">, In<"var2">, In<"var3">, In<"var4">, In<"var5">,
                                      In<"cov0">, In<"cov1">, In<"cov2">, Out<"a0">, Out<"a1">, Out<"a2">> {
    struct Params {
        float epsilon = 1e-4f;
        float determinantFloor = 1e-7f;
    };
    static constexpr ScalarDeclarations scalars{1, {VT_SCALAR(epsilon)}};
    static constexpr ScalarDeclarations derived{1, {VT_SCALAR(determinantFloor)}};

    VT_FN auto determinant(auto rr, auto rg, auto rb, auto gg, auto gb, auto bb) {
        return rr * gg * bb - rr * gb * gb - rg * rg * bb + rg * gb * rb + rb * rg * gb - rb * gg * rb;
    }
    VT_FN void body(const Params& p, auto var0, auto var1, auto var2, auto var3, auto var4, auto var5, auto cov0,
                    auto cov1, auto cov2, auto a0, auto a1, auto a2) {
        auto rr = var0() + p.epsilon;
        const auto rg = var1();
        const auto rb = var2();
        auto gg = var3() + p.epsilon;
        const auto gb = var4();
        auto bb = var5() + p.epsilon;
        auto det = determinant(rr, rg, rb, gg, gb, bb);
        const auto singular = abs(det) < p.determinantFloor;
        rr = select(singular, rr + p.determinantFloor, rr);
        gg = select(singular, gg + p.determinantFloor, gg);
        bb = select(singular, bb + p.determinantFloor, bb);
        det = select(singular, determinant(rr, rg, rb, gg, gb, bb), det);

        const auto m00 = (gg * bb - gb * gb) / det;
        const auto m01 = (rg * bb - rb * gb) / det;
        const auto m02 = (rg * gb - rb * gg) / det;
        const auto m11 = (rr * bb - rb * rb) / det;
        const auto m12 = (rr * gb - rb * rg) / det;
        const auto m22 = (rr * gg - rg * rg) / det;
        const auto c0 = cov0(), c1 = cov1(), c2 = cov2();
        const auto s0 = m00 * c0 - m01 * c1 + m02 * c2;
        const auto s1 = m11 * c1 - m01 * c0 - m12 * c2;
        const auto s2 = m02 * c0 - m12 * c1 + m22 * c2;
        const auto solved = (s0 == s0) & (s1 == s1) & (s2 == s2);
        a0 = select(solved, s0, a0.lane(1));
        a1 = select(solved, s1, a1.lane(1));
        a2 = select(solved, s2, a2.lane(1));
    }
};

/// What both passes know of their window.
struct GuidedWindow {
    VT_FN void reach(int radius, float& scale, ImageParameters* images, int count) {
        scale = 1.f / (2.f * static_cast<float>(radius) + 1.f);
        for (int i = 0; i < count; ++i)
            for (int axis = 0; axis < 2; ++axis) {
                images[i].rangeMin[axis] = -radius;
                images[i].rangeMax[axis] = radius;
            }
    }
    /// The mean over the window of value(dx, dy), in two passes of sums.
    VT_FN auto mean(int radius, float scale, auto zero, auto value) {
        auto total = zero;
        for (int dy = -radius; dy <= radius; ++dy) {
            auto sum = zero;
            for (int dx = -radius; dx <= radius; ++dx)
                sum += value(dx, dy);
            total += sum * scale;
        }
        return total * scale;
    }
};

/// A linear function of the guidance.
template <class V>
struct Line {
    V slope, offset;
};
/// Covariances are means of products minus products of means.
template <class V>
VT_FN Line<V> fitLine(float epsilon, V meanP, V meanG, V meanPG, V meanGG) {
    const V covariance = meanPG - meanG * meanP;
    const V variance = meanGG - meanG * meanG;
    const V divisor = variance + epsilon;
    const V slope = select(divisor == 0.f, V(0.f), covariance / divisor);
    return {slope, meanP - meanG * slope};
}

/// The linear functions a G + b that explain the input P by the guidance G in the window around each pixel:
/// a = cov(P, G) / (var(G) + epsilon), 0 where that sum is 0, and b = mean(P) - a mean(G).
struct guidedSlopesKernel : PerComponent<In<"P", Pattern::rectangle, EdgeMethod::clamped>,
                                         In<"G", Pattern::rectangle, EdgeMethod::clamped>, Out<"a">, Out<"b">> {
    struct Params {
        int radius = 3;
        float epsilon = 1e-4f;
        float scale = 0;
    };
    static constexpr ScalarDeclarations scalars{2, {VT_SCALAR(radius), VT_SCALAR(epsilon)}};
    static constexpr ScalarDeclarations derived{1, {VT_SCALAR(scale)}};
    static void derive(Params& p, const ImageArgument*, ImageParameters* images) {
        GuidedWindow::reach(p.radius, p.scale, images, 2);
    }
    VT_FN void body(const Params& p, auto P, auto G, auto a, auto b) {
        const auto mean = [&](auto value) { return GuidedWindow::mean(p.radius, p.scale, a.lane(0), value); };
        const auto meanP = mean([&](int dx, int dy) { return P.at(dx, dy); });
        const auto meanG = mean([&](int dx, int dy) { return G.at(dx, dy); });
        const auto meanPG = mean([&](int dx, int dy) { return G.at(dx, dy) * P.at(dx, dy); });
        const auto meanGG = mean([&](int dx, int dy) { return G.at(dx, dy) * G.at(dx, dy); });
        const auto line = fitLine(p.epsilon, meanP, meanG, meanPG, meanGG);
        a = line.slope;
        b = line.offset;
    }

    template <class V, Counts T>
    static void hostForm(const Launch& launch) {
        const auto& p = *static_cast<const Params*>(launch.parameters);
        if (p.radius < 0 || p.radius > mostDirectRadius) return runRows<guidedSlopesKernel, T, V, Reach::unit>(launch);
        const ImageArgument& input = launch.images[0];
        const ImageArgument& guidance = launch.images[1];
        const bool same = input.data == guidance.data && input.strideY == guidance.strideY &&
                          input.strideC == guidance.strideC && input.x0 == guidance.x0 && input.y0 == guidance.y0 &&
                          input.x1 == guidance.x1 && input.y1 == guidance.y1;
        for (int c = launch.c0; c < launch.c1; ++c)
            same ? fitToItself<V>(launch, c) : fitToGuidance<V>(launch, c);
    }

private:
    /// Pixels x .. x + count - 1 of row y, the nearest for those that aren't there.
    VT_FN void readRow(const ImageArgument& image, int x, int y, int count, int c, float* row) {
        copyClamped(addressIn(image, image.x0, clampTo(y, image.y0, image.y1 - 1), c), image.x1 - image.x0,
                    x - image.x0, count, row);
    }
    template <class V>
    VT_FN void multiplyRows(const float* a, const float* b, int count, float* products) {
        for (int i = 0; i < count; i += LaneTraits<V>::width)  // rows are longer by a register
            store(load<V>(a + i, 1) * load<V>(b + i, 1), products + i, 1);
    }
    template <class V>
    __attribute__((noinline)) static void fitToGuidance(const Launch& launch, int c) {
        const Params p = *static_cast<const Params*>(launch.parameters);
        using Means = WindowMeans<V, 4>;
        Means::run(
            launch, p.radius, p.scale,
            [&](int y, int x, int count, typename Means::Row& row) {
                readRow(launch.images[0], x, y, count, c, row.of[0]);
                readRow(launch.images[1], x, y, count, c, row.of[1]);
                multiplyRows<V>(row.of[1], row.of[0], count, row.of[2]);
                multiplyRows<V>(row.of[1], row.of[1], count, row.of[3]);
            },
            [&](int y, int x, int count, const V(&means)[4]) VT_INLINE_LAMBDA {
                put(launch, c, x, y, count, fitLine(p.epsilon, means[0], means[1], means[2], means[3]));
            });
    }
    template <class V>
    __attribute__((noinline)) static void fitToItself(const Launch& launch, int c) {
        const Params p = *static_cast<const Params*>(launch.parameters);
        using Means = WindowMeans<V, 2>;
        Means::run(
            launch, p.radius, p.scale,
            [&](int y, int x, int count, typename Means::Row& row) {
                readRow(launch.images[0], x, y, count, c, row.of[0]);
                multiplyRows<V>(row.of[0], row.of[0], count, row.of[1]);
            },
            [&](int y, int x, int count, const V(&means)[2]) VT_INLINE_LAMBDA {
                put(launch, c, x, y, count, fitLine(p.epsilon, means[0], means[0], means[1], means[1]));
            });
    }
    template <class V>
    VT_FN void put(const Launch& launch, int c, int x, int y, int count, const Line<V>& line) {
        storeSome(line.slope, addressIn(launch.images[2], x, y, c), count);
        storeSome(line.offset, addressIn(launch.images[3], x, y, c), count);
    }
};

/// O = mean(b) + mean(a) G over the window around each pixel.
struct guidedApplyKernel : PerComponent<In<"a", Pattern::rectangle, EdgeMethod::clamped>,
                                        In<"b", Pattern::rectangle, EdgeMethod::clamped>, In<"G">, Out<"O">> {
    struct Params {
        int radius = 3;
        float scale = 0;
    };
    static constexpr ScalarDeclarations scalars{1, {VT_SCALAR(radius)}};
    static constexpr ScalarDeclarations derived{1, {VT_SCALAR(scale)}};
    static void derive(Params& p, const ImageArgument*, ImageParameters* images) {
        GuidedWindow::reach(p.radius, p.scale, images, 2);
    }
    VT_FN void body(const Params& p, auto a, auto b, auto G, auto O) {
        const auto mean = [&](auto value) { return GuidedWindow::mean(p.radius, p.scale, O.lane(0), value); };
        const auto slope = mean([&](int dx, int dy) { return a.at(dx, dy); });
        const auto offset = mean([&](int dx, int dy) { return b.at(dx, dy); });
        O = offset + G() * slope;
    }

    template <class V, Counts T>
    static void hostForm(const Launch& launch) {
        const Params p = *static_cast<const Params*>(launch.parameters);
        if (p.radius < 0 || p.radius > mostDirectRadius) return runRows<guidedApplyKernel, T, V, Reach::unit>(launch);
        using Means = WindowMeans<V, 2>;
        for (int c = launch.c0; c < launch.c1; ++c)
            Means::run(
                launch, p.radius, p.scale,
                [&](int y, int x, int count, typename Means::Row& row) {
                    for (int i = 0; i < 2; ++i) {
                        const ImageArgument& image = launch.images[i];
                        copyClamped(addressIn(image, image.x0, clampTo(y, image.y0, image.y1 - 1), c),
                                    image.x1 - image.x0, x - image.x0, count, row.of[i]);
                    }
                },
                [&](int y, int x, int count, const V(&means)[2]) VT_INLINE_LAMBDA {
                    const V guidance = loadSome<V>(addressIn(launch.images[2], x, y, c), count);
                    storeSome(means[1] + guidance * means[0], addressIn(launch.images[3], x, y, c), count);
                });
    }
};

/// The same linear functions from the means over the windows.
struct guidedLineKernel : PerComponent<In<"meanP">, In<"meanG">, In<"meanPG">, In<"meanGG">, Out<"a">, Out<"b">> {
    struct Params {
        float epsilon = 1e-4f;
    };
    static constexpr ScalarDeclarations scalars{1, {VT_SCALAR(epsilon)}};
    VT_FN void body(const Params& p, auto meanP, auto meanG, auto meanPG, auto meanGG, auto a, auto b) {
        const auto line = fitLine(p.epsilon, meanP(), meanG(), meanPG(), meanGG());
        a = line.slope;
        b = line.offset;
    }
};

/// O = meanB + meanA G.
struct guidedOutputKernel : PerComponent<In<"meanA">, In<"meanB">, In<"G">, Out<"O">> {
    VT_FN void body(const Params&, auto meanA, auto meanB, auto G, auto O) { O = meanB() + G() * meanA(); }
};

#define VT_TWELVE(X, K) X(K, 1f_1f_1f_1f_1f_1f_1f_1f_1f_1f_1f_1f)
#define VT_FOUR_SINGLE(X, K) X(K, 1f_1f_1f_1f)
#define VT_SIX_SINGLE(X, K) X(K, 1f_1f_1f_1f_1f_1f)
#define GUIDED(K)                         \
    K(guidedSolveKernel, VT_TWELVE)       \
    K(guidedSlopesKernel, VT_FOUR_SINGLE) \
    K(guidedApplyKernel, VT_FOUR_SINGLE)  \
    K(guidedLineKernel, VT_SIX_SINGLE)    \
    K(guidedOutputKernel, VT_FOUR_SINGLE)

VT_FAMILY(guided, GUIDED)

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
