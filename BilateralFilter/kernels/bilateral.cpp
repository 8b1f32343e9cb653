// Distances into a mask, and the fill of what it covers. Compiled once per instruction set.
#include "BilateralFilter/kernels/donorCells.h"
#include "compute/kernel/hostForm.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// One pass of the growth of a distance field: D and A, the distance and the mark of each pixel, to D2 and A2. A marked
/// pixel (A not 0) stays. Another whose diagonal neighbours include one of A above 0 gets the least distance among them
/// plus 1 and the mark 1: it is new. All others get distance 10000 and mark 0. Results: the number of new pixels and
/// their box, both ends included.
struct distanceGrowthKernel : WholePixelSum<In<"D", Pattern::random, EdgeMethod::constant>,
                                            In<"A", Pattern::random, EdgeMethod::constant>, Out<"D2">, Out<"A2">> {
    template <class V>
    struct Sums {
        V count = V(0.f), minX = V(100000.f), minY = V(100000.f), maxX = V(-100000.f), maxY = V(-100000.f);
    };
    struct Results {
        float count = 0, minX = 100000, minY = 100000, maxX = -100000, maxY = -100000;
    };
    static constexpr ScalarDeclarations accumulators{
        5, {VT_RESULT(count), VT_LEAST(minX), VT_LEAST(minY), VT_MOST(maxX), VT_MOST(maxY)}};
    VT_FN void body(const Params&, auto& sums, auto D, auto A, auto D2, auto A2) {
        using V = decltype(D2());
        using I = IntOf<V>;
        const I column = D2.column();
        const I row(D2.row());
        const V mark = A.fetch(column, row);
        const V none(99999.f);
        V best = none;
        for (int dx = -1; dx <= 1; dx += 2)
            for (int dy = -1; dy <= 1; dy += 2) {
                const V distance = D.fetch(column + I(dx), row + I(dy));
                const auto nearer = (A.fetch(column + I(dx), row + I(dy)) > V(0.f)) & (distance < best);
                best = select(nearer, distance, best);
            }
        const auto marked = mark != V(0.f);
        const auto isNew = (mark == V(0.f)) & (best < none);
        D2 = select(marked, D.fetch(column, row), select(isNew, best + V(1.f), V(10000.f)));
        A2 = select(marked, mark, select(isNew, V(1.f), V(0.f)));
        const V x = toFloat(column);
        const V y(static_cast<float>(D2.row()));
        sums.count += select(isNew, V(1.f), V(0.f));
        sums.minX = select(isNew & (x < sums.minX), x, sums.minX);
        sums.maxX = select(isNew & (x > sums.maxX), x, sums.maxX);
        sums.minY = select(isNew & (y < sums.minY), y, sums.minY);
        sums.maxY = select(isNew & (y > sums.maxY), y, sums.maxY);
    }
};

/// O = A where the mask M is 0. Elsewhere O = A (1 - M) + F M with F the mean of the values A, weighted by w, over the
/// pixels q of distance D = 0 in a square of radius R = max(3, ceil(D + radiusBoost)) around the pixel, and O = A where
/// there is none. w = exp(-|q - p|^2 0.7 / R^2 - the sum over the channels c of (G(q) - G(p))^2 k[c]), and at least
/// weightFloor, with k[c] = 1 / colourSigma[c]^2, 100000 for a sigma that isn't above 0.
struct bilateralFillKernel : WholePixel<In<"D", Pattern::random, EdgeMethod::constant>, In<"M">,
                                        In<"G", Pattern::random, EdgeMethod::constant>,
                                        In<"A", Pattern::random, EdgeMethod::constant>, Out<"O">> {
    static constexpr int channels = 3;
    struct Params {
        float colourSigma[channels] = {1.f, 0.667f, 0.667f};
        int radiusBoost = 2;
        float weightFloor = 1e-4f;
        float k[channels] = {};  ///< of powers of 2
        float leastExponent = 0;
    };
    static constexpr ScalarDeclarations scalars{
        3, {VT_SCALAR(colourSigma), VT_SCALAR(radiusBoost), VT_SCALAR(weightFloor)}};
    static constexpr ScalarDeclarations derived{2, {VT_SCALAR(k), VT_SCALAR(leastExponent)}};
    static constexpr float log2OfE = 1.44269504f;
    static void derive(Params& p, const ImageArgument*, ImageParameters*) {
        for (int c = 0; c < channels; ++c)
            p.k[c] = log2OfE * (p.colourSigma[c] > 0 ? 1.f / (p.colourSigma[c] * p.colourSigma[c]) : 100000.f);
        // Exponents below this give weights below the floor, by more than the power's error.
        p.leastExponent = p.weightFloor > 1e-30f ? log2OfE * log(p.weightFloor) - 0.02f : -115.f;
    }

    template <class V>
    struct Colours {
        V of[channels];
    };

    /// The running sums of one pixel, or of a register of them.
    template <class V>
    struct Fill {
        V guide[channels], spatial;
        V total = V(0.f);
        V sum[channels] = {V(0.f), V(0.f), V(0.f)};

        /// One tap at squared distance `apart`, of this guide and value.
        VT_INLINE void add(const Params& p, auto apart, auto gives, const Colours<V>& guideThere,
                           const Colours<V>& valueThere) {
            V e = V(-apart) * spatial;
#pragma GCC unroll 3
            for (int c = 0; c < channels; ++c) {
                const V d = guideThere.of[c] - guide[c];
                e = e - d * d * p.k[c];
            }
            // No exponent is above 0. What isn't a number weighs as little as the farthest.
            e = select(e > V(p.leastExponent), e, V(p.leastExponent));
            const V raised = exp2OfModerate(e);
            const V w = select(raised > V(p.weightFloor), raised, V(p.weightFloor));
            total += select(gives, w, V(0.f));
#pragma GCC unroll 3
            for (int c = 0; c < channels; ++c)
                sum[c] += select(gives, valueThere.of[c] * w, V(0.f));
        }
        VT_INLINE V result(int c, V value, V mask) const {
            return select(total > V(0.f), value * (V(1.f) - mask) + sum[c] / total * mask, value);
        }
    };
    /// As a whole number, of a size whose square is one too.
    template <class V>
    VT_FN V radiusOf(const Params& p, V distance) {
        const V wanted = -floor(-(distance + static_cast<float>(p.radiusBoost)));
        return clampTo(select(wanted == wanted, wanted, V(0.f)), V(3.f), V(30000.f));
    }
    template <class V>
    VT_FN V spatialOf(V radius) {
        const auto whole = toInt(radius);
        return V(0.7f * log2OfE) / toFloat(whole * whole);
    }

    VT_FN void body(const Params& p, auto D, auto M, auto G, auto A, auto O) {
        using V = decltype(M());
        using I = IntOf<V>;
        const I column = O.column();
        const I row(O.row());
        const V m = M();
        const auto fills = m != V(0.f);
        V value[channels];
        for (int c = 0; c < channels; ++c)
            value[c] = A.fetch(column, row, c);
        if (any(fills)) {
            const V radius = radiusOf(p, D.fetch(column, row));
            Fill<V> fill;
            fill.spatial = spatialOf(radius);
            for (int c = 0; c < channels; ++c)
                fill.guide[c] = G.fetch(column, row, c);
            int most = 0;
            for (int lane = 0; lane < LaneTraits<V>::width; ++lane) {
                const int reach = toInt(laneOf(radius, lane));
                if (laneOf(fills, lane) && reach > most) most = reach;
            }
            constexpr int lanes = LaneTraits<V>::width;
            const int left = larger(-most, G.left() - (O.x + lanes - 1)), right = smaller(most, G.right() - 1 - O.x);
            const int bottom = larger(-most, G.bottom() - O.row()), top = smaller(most, G.top() - 1 - O.row());
            for (int dx = left; dx <= right; ++dx) {
                const I there = column + I(dx);
                const auto reached =
                    fills & (V(absolute(dx)) <= radius) & (there >= I(G.left())) & (there < I(G.right()));
                for (int dy = bottom; dy <= top; ++dy) {
                    const I up = row + I(dy);
                    const auto gives = reached & (V(absolute(dy)) <= radius) & (D.fetch(there, up) == V(0.f));
                    if (!any(gives)) continue;
                    fill.add(p, squared(dx, dy), gives,
                             {{G.fetch(there, up, 0), G.fetch(there, up, 1), G.fetch(there, up, 2)}},
                             {{A.fetch(there, up, 0), A.fetch(there, up, 1), A.fetch(there, up, 2)}});
                }
            }
            for (int c = 0; c < channels; ++c)
                value[c] = select(fills, fill.result(c, value[c], m), value[c]);
        }
        for (int c = 0; c < channels; ++c)
            O.put(c, value[c]);
    }
    VT_FN int larger(int a, int b) {
        return a > b ? a : b;
    }
    VT_FN int smaller(int a, int b) {
        return a < b ? a : b;
    }
    VT_FN float absolute(int a) {
        return static_cast<float>(a < 0 ? -a : a);
    }
    VT_FN float squared(int dx, int dy) {
        return static_cast<float>(dx * dx + dy * dy);
    }

    template <class V, Counts T>
    static void hostForm(const Launch& launch) {
        const ImageArgument* images = launch.images;
        const auto sameBox = [&](const ImageArgument& a) {
            return a.x0 == images[2].x0 && a.y0 == images[2].y0 && a.x1 == images[2].x1 && a.y1 == images[2].y1;
        };
        const bool covered = images[2].x0 <= launch.x0 && launch.x1 <= images[2].x1 && images[2].y0 <= launch.y0 &&
                             launch.y1 <= images[2].y1;
        if (!sameBox(images[0]) || !sameBox(images[3]) || !covered)
            return runRows<bilateralFillKernel, T, V, Reach::unit>(launch);
        const Params parameters = *static_cast<const Params*>(launch.parameters);
        int y = launch.y0;
        for (; y + 2 <= launch.y1; y += 2)
            fillRows<V, 2>(launch, parameters, y);
        for (; y < launch.y1; ++y)
            fillRows<V, 1>(launch, parameters, y);
    }

private:
    static constexpr int distanceImage = 0, maskImage = 1, guideImage = 2, valueImage = 3, outputImage = 4;

    /// Registers of pixels to fill begin at the first that the mask doesn't leave out in all of the rows.
    template <class V, int rows>
    __attribute__((noinline)) static void fillRows(const Launch& launch, const Params& p, int y) {
        constexpr int lanes = LaneTraits<V>::width;
        const float* mask[rows];
        const int width = launch.x1 - launch.x0;
        for (int row = 0; row < rows; ++row) {
            mask[row] = addressIn(launch.images[maskImage], launch.x0, y + row, 0);
            for (int c = 0; c < channels; ++c)
                __builtin_memcpy(addressIn(launch.images[outputImage], launch.x0, y + row, c),
                                 addressIn(launch.images[valueImage], launch.x0, y + row, c), width * sizeof(float));
        }
        const auto anyFills = [&](int x, auto fills) VT_INLINE_LAMBDA {
            bool found = fills(mask[0] + x);
            for (int row = 1; row < rows; ++row)
                found = found || fills(mask[row] + x);
            return found;
        };
        int x = 0;
        while (x < width) {
            if (x + lanes <= width &&
                !anyFills(x, [](const float* m) VT_INLINE_LAMBDA { return any(load<V>(m, 1) != V(0.f)); })) {
                x += lanes;
            } else if (!anyFills(x, [](const float* m) VT_INLINE_LAMBDA { return *m != 0.f; })) {
                ++x;
            } else {
                const int count = smaller(lanes, width - x);
                fillSome<V, rows>(launch, p, launch.x0 + x, y, count);
                x += count;
            }
        }
    }

    /// The rows of the pictures that give, at a column and a first row, with steps upward.
    struct Givers {
        const float* distance;
        const float* guide[channels];
        const float* value[channels];
        long distanceStep, guideStep, valueStep;

        VT_INLINE Givers(const ImageArgument* images, int x, int y)
            : distance(addressIn(images[distanceImage], x, y, 0)),
              distanceStep(images[distanceImage].strideY),
              guideStep(images[guideImage].strideY),
              valueStep(images[valueImage].strideY) {
            for (int c = 0; c < channels; ++c) {
                guide[c] = addressIn(images[guideImage], x, y, c);
                value[c] = addressIn(images[valueImage], x, y, c);
            }
        }
        VT_INLINE void stepUp() {
            distance += distanceStep;
            for (int c = 0; c < channels; ++c) {
                guide[c] += guideStep;
                value[c] += valueStep;
            }
        }
    };

    /// A register of pixels that are filled.
    template <class V>
    struct Filled {
        V mask, radius;
        decltype(V() != V()) fills;
        Fill<V> fill;
    };

    /// `count` pixels from x on, at most a register of them, of rows y, y + 1 ..: they share what they read.
    template <class V, int rows>
    __attribute__((noinline)) static void fillSome(const Launch& launch, const Params& parameters, int x, int y,
                                                   int count) {
        using I = IntOf<V>;
        constexpr int lanes = LaneTraits<V>::width;
        const Params p = parameters;
        const ImageArgument* images = launch.images;
        const ImageArgument& box = images[guideImage];
        Filled<V> filled[rows];
        int most = 0, least = 30000;
        for (int row = 0; row < rows; ++row) {
            Filled<V>& f = filled[row];
            const auto some = [&](int image, int c) {
                return loadSome<V>(addressIn(images[image], x, y + row, c), count);
            };
            f.mask = some(maskImage, 0);
            f.fills = f.mask != V(0.f);  // not so in lanes beyond the count
            f.radius = radiusOf(p, some(distanceImage, 0));
            f.fill.spatial = spatialOf(f.radius);
            for (int c = 0; c < channels; ++c)
                f.fill.guide[c] = some(guideImage, c);
            for (int lane = 0; lane < lanes; ++lane) {
                if (!laneOf(f.fills, lane)) continue;
                const int reach = toInt(laneOf(f.radius, lane));
                most = larger(most, reach);
                least = smaller(least, reach);
            }
        }
        const int left = larger(-most, box.x0 - (x + count - 1)), right = smaller(most, box.x1 - 1 - x);
        const int bottom = larger(-most, box.y0 - y), top = smaller(most + rows - 1, box.y1 - 1 - y);
        for (int dx = left; dx <= right; ++dx) {
            const I there = laneNumbers<V>() + I(x + dx);
            const auto inside = (there >= I(box.x0)) & (there < I(box.x1));
            decltype(V() != V()) reached[rows];
            for (int row = 0; row < rows; ++row)
                reached[row] = filled[row].fills & (V(absolute(dx)) <= filled[row].radius) & inside;
            const auto addColumn = [&](auto read, int x0) VT_INLINE_LAMBDA {
                Givers givers(images, x0, y + bottom);
                for (int dy = bottom; dy <= top; ++dy, givers.stepUp()) {
                    const auto gives = read(givers.distance) == V(0.f);
                    if (!any(gives)) continue;
                    const Colours<V> guide{{read(givers.guide[0]), read(givers.guide[1]), read(givers.guide[2])}};
                    const Colours<V> value{{read(givers.value[0]), read(givers.value[1]), read(givers.value[2])}};
#pragma GCC unroll 2
                    for (int row = 0; row < rows; ++row) {
                        auto counts = gives & reached[row];
                        if (rows > 1 || least < most) counts = counts & (V(absolute(dy - row)) <= filled[row].radius);
                        if (any(counts)) filled[row].fill.add(p, squared(dx, dy - row), counts, guide, value);
                    }
                }
            };
            if (x + dx >= box.x0 && x + dx + lanes <= box.x1) {
                addColumn([](const float* from) VT_INLINE_LAMBDA { return load<V>(from, 1); }, x + dx);
            } else {
                const I nearest = clampTo(there, I(box.x0), I(box.x1 - 1)) - I(box.x0);
                addColumn([&](const float* from) VT_INLINE_LAMBDA { return gather(from, nearest); }, box.x0);
            }
        }
        for (int row = 0; row < rows; ++row)
            for (int c = 0; c < channels; ++c) {
                const Filled<V>& f = filled[row];
                const V value = loadSome<V>(addressIn(images[valueImage], x, y + row, c), count);
                storeSome(select(f.fills, f.fill.result(c, value, f.mask), value),
                          addressIn(images[outputImage], x, y + row, c), count);
            }
    }
};

/// A look at a piece of a picture before it is filled, from the distance D and the mask M. Results: the number of
/// pixels that give, D = 0, and the greatest distance of a pixel to fill, M not 0; -1 where there is none.
struct fillExtentKernel : WholePixelSum<In<"D">, In<"M">> {
    template <class V>
    struct Sums {
        V donors = V(0.f), farthest = V(-1.f);
    };
    struct Results {
        float donors = 0, farthest = -1;
    };
    static constexpr ScalarDeclarations accumulators{2, {VT_RESULT(donors), VT_MOST(farthest)}};
    VT_FN void body(const Params&, auto& sums, auto D, auto M) {
        using V = decltype(D());
        const V distance = D();
        sums.donors += select(distance == V(0.f), V(1.f), V(0.f));
        sums.farthest = select((M() != V(0.f)) & (distance > sums.farthest), distance, sums.farthest);
    }
};

/// bilateralFillKernel for large windows of which few pixels give: those stand in lists and are the only ones visited.
/// D, M, G, A and O as there, in one box. The picture is cut into cells (donorCells.h); those with donors are numbered
/// row by row. T (x, y) is the number of the first of them from column x of row y on, with a column more than there are
/// cells. Row n of C is the DonorCell of number n, row n of P its donors, donorFloats each.
///
/// Differs from the sums in exact arithmetic, in units of the greatest value in the window, by less than 1e-5. Each
/// weight is that of bilateralFillKernel, whose exponent, at most 17 in size, is a sum of terms of few roundings each:
/// it is 2e-6 off at most, and so is the weight in proportion. A cell whose guide lies so far from the pixel's that
/// every exponent is below the floor's counts by the sum of its values, at the floor as each would. Sums over the at
/// most 64 donors of a cell are off by 64 roundings of 6e-8 at most, and those over cells carry what they round off.
struct donorFillKernel : WholePixel<In<"D">, In<"M">, In<"G">, In<"A">, In<"T", Pattern::random>,
                                    In<"C", Pattern::random>, In<"P", Pattern::random>, Out<"O">> {
    using Rule = bilateralFillKernel;
    using Params = Rule::Params;
    static constexpr int channels = Rule::channels;
    static constexpr bool costlyPixels = true;
    static constexpr ScalarDeclarations scalars = Rule::scalars;
    static constexpr ScalarDeclarations derived = Rule::derived;
    static void derive(Params& p, const ImageArgument* images, ImageParameters* imageParameters) {
        Rule::derive(p, images, imageParameters);
    }

    /// A sum that carries what it rounds off.
    template <class V>
    struct LongSum {
        V sum = V(0.f), rest = V(0.f);

        VT_INLINE void add(V term) {
            const V next = sum + term;
            const V added = next - sum;
            rest += (sum - (next - added)) + (term - added);
            sum = next;
        }
        VT_INLINE V total() const { return sum + rest; }
    };

    /// The windows of a register of pixels, in pixels from the picture's corner.
    template <class V>
    struct Windows {
        V x, radius;  ///< radius -1 of a pixel that isn't filled
        float y;
        decltype(V() != V()) fills;
        float left, right;            ///< what any of them reaches
        float innerLeft, innerRight;  ///< what all of them reach
        float most, least;            ///< radius

        VT_INLINE bool miss(float fromX, float fromY, float toX, float toY) const {
            return fromX > right || toX < left || fromY > y + most || toY < y - most;
        }
        VT_INLINE bool allHold(const DonorCell& cell) const {
            return cell.left >= innerLeft && cell.right <= innerRight && cell.bottom >= y - least &&
                   cell.top <= y + least;
        }
        VT_INLINE auto hold(const DonorCell& cell) const {
            return (V(cell.left) >= x - radius) & (V(cell.right) <= x + radius) & (V(y - cell.bottom) <= radius) &
                   (V(cell.top - y) <= radius);
        }
    };

    VT_FN void body(const Params& p, auto D, auto M, auto G, auto A, auto T, auto C, auto P, auto O) {
        using V = decltype(M());
        using I = IntOf<V>;
        const V m = M();
        Windows<V> windows;
        windows.fills = m != V(0.f);
        V value[channels];
        for (int c = 0; c < channels; ++c)
            value[c] = A(c);
        if (any(windows.fills)) {
            windows.x = toFloat(O.column() - I(O.left()));
            windows.y = static_cast<float>(O.row() - O.bottom());
            windows.radius = Rule::radiusOf(p, D());
            findReach(windows);
            Rule::Fill<V> cellFill;
            cellFill.spatial = Rule::spatialOf(windows.radius);
            windows.radius = select(windows.fills, windows.radius, V(-1.f));
            for (int c = 0; c < channels; ++c)
                cellFill.guide[c] = G(c);
            LongSum<V> total, sum[channels];
            const int columns = T.right() - T.left() - 1, rows = T.top() - T.bottom();
            const int left = cellOf(windows.left, columns), right = cellOf(windows.right, columns);
            const int bottom = cellOf(windows.y - windows.most, rows), top = cellOf(windows.y + windows.most, rows);
            for (int row = bottom; row <= top; ++row) {
                const auto cellFrom = [&](int column) {
                    return clampTo(toInt(*addressOf(T.image, column, row)), 0, C.top() - C.bottom());
                };
                const int end = cellFrom(right + 1);
                for (int number = cellFrom(left); number < end; ++number) {
                    const DonorCell& cell = *reinterpret_cast<const DonorCell*>(addressOf(C.image, 0, number));
                    if (windows.miss(cell.left, cell.bottom, cell.right, cell.top)) continue;
                    cellFill.total = V(0.f);
                    for (V& s : cellFill.sum)
                        s = V(0.f);
                    addCell(p, windows, cell, addressOf(P.image, 0, number), cellFill);
                    total.add(cellFill.total);
                    for (int c = 0; c < channels; ++c)
                        sum[c].add(cellFill.sum[c]);
                }
            }
            cellFill.total = total.total();
            for (int c = 0; c < channels; ++c) {
                cellFill.sum[c] = sum[c].total();
                value[c] = select(windows.fills, cellFill.result(c, value[c], m), value[c]);
            }
        }
        for (int c = 0; c < channels; ++c)
            O.put(c, value[c]);
    }

private:
    VT_FN const float* addressOf(const ImageArgument& image, int column, int row) {
        return image.data + column * static_cast<long>(image.strideX) + row * static_cast<long>(image.strideY);
    }
    VT_FN int cellOf(float place, int cells) { return clampTo(static_cast<int>(place) / donorCellSide, 0, cells - 1); }
    template <class V>
    VT_FN void findReach(Windows<V>& w) {
        bool first = true;
        for (int lane = 0; lane < LaneTraits<V>::width; ++lane) {
            if (!laneOf(w.fills, lane)) continue;
            const float x = laneOf(w.x, lane), radius = laneOf(w.radius, lane);
            const float left = x - radius, right = x + radius;
            w.left = first || left < w.left ? left : w.left;
            w.right = first || right > w.right ? right : w.right;
            w.innerLeft = first || left > w.innerLeft ? left : w.innerLeft;
            w.innerRight = first || right < w.innerRight ? right : w.innerRight;
            w.most = first || radius > w.most ? radius : w.most;
            w.least = first || radius < w.least ? radius : w.least;
            first = false;
        }
    }

    /// Each pixel decides for itself, so that its bits don't depend on its neighbours in the register.
    template <class V>
    VT_FN void addCell(const Params& p, const Windows<V>& windows, const DonorCell& cell, const float* donors,
                       Rule::Fill<V>& fill) {
        const bool whole = windows.allHold(cell);
        V apart(0.f);
        for (int c = 0; c < channels; ++c) {
            const V below = V(cell.least[c]) - fill.guide[c], above = fill.guide[c] - V(cell.most[c]);
            const V gap = select(below > V(0.f), below, select(above > V(0.f), above, V(0.f)));
            apart += gap * gap * V(p.k[c]);
        }
        const auto unlike = (apart > V(-p.leastExponent)) & windows.hold(cell);
        if (any(windows.fills & !unlike)) {
            const float* end = donors + clampTo(toInt(cell.count), 0, donorsPerCell) * donorFloats;
            const auto addDonors = [&](auto counts) VT_INLINE_LAMBDA {
                for (const float* donor = donors; donor < end; donor += donorFloats) {
                    if (!whole && windows.miss(donor[0], donor[1], donor[0], donor[1])) continue;
                    const V dx = V(donor[0]) - windows.x;
                    const float dy = donor[1] - windows.y;
                    fill.add(p, dx * dx + V(dy * dy), counts(dx, dy), {{V(donor[2]), V(donor[3]), V(donor[4])}},
                             {{V(donor[5]), V(donor[6]), V(donor[7])}});
                }
            };
            if (whole)
                addDonors([](V, float) VT_INLINE_LAMBDA { return true; });
            else  // one comparison: masks joined in an inner loop are taken apart lane by lane
                addDonors([&](V dx, float dy) VT_INLINE_LAMBDA {
                    const V across = select(dx > -dx, dx, -dx), along(dy > -dy ? dy : -dy);
                    return select(across > along, across, along) <= windows.radius;
                });
        }
        fill.total = select(unlike, V(cell.count * p.weightFloor), fill.total);
        for (int c = 0; c < channels; ++c)
            fill.sum[c] = select(unlike, V(cell.sum[c] * p.weightFloor), fill.sum[c]);
    }
};

#define VT_GROWTH(X, K) X(K, 1f_1f_1f_1f)
#define VT_EXTENT(X, K) X(K, 1f_1f)
#define VT_FILL(X, K) X(K, 1f_1f_3f_3f_3f)
#define VT_DONOR_FILL(X, K) X(K, 1f_1f_3f_3f_1f_1f_1f_3f)
#define BILATERAL(K)                   \
    K(distanceGrowthKernel, VT_GROWTH) \
    K(bilateralFillKernel, VT_FILL)    \
    K(fillExtentKernel, VT_EXTENT)     \
    K(donorFillKernel, VT_DONOR_FILL)

VT_FAMILY(bilateral, BILATERAL)

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
