// The steps of the block match in few passes over the pictures. Compiled once per instruction set.
//
// Blocks overlap by half, and two steps of the grid are one block: each block is two by two of the disjoint segments
// between successive corners. Sums over segments read each pixel once.
#include "ToneAligner/kernels/blockGrid.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// Statistics of segments. For segment (X, Y), which begins at the corner of block (X, Y) and ends before that of
/// (X + 1, Y + 1): N = the number of pixels with a weight W above 0, and the sum of the weights; mS, mT = the weighted
/// means of S and T, 0 without weight; qS, qT = the weighted sums of squares about these means. Columns close round the
/// width, rows beyond the picture are its last. Adds up columns of a segment, then their sums from the left.
struct blockSegmentsKernel
    : WholePixel<In<"S", Pattern::random, EdgeMethod::clamped>, In<"T", Pattern::random, EdgeMethod::clamped>,
                 In<"W", Pattern::random, EdgeMethod::clamped>, Out<"N">, Out<"mS">, Out<"mT">, Out<"qS">, Out<"qT">> {
    struct Params {
        int size = 5;
        int wrapWidth = 0;
        int half = 2;
        int odd = 1;
    };
    static constexpr ScalarDeclarations scalars{2, {VT_SCALAR(size), VT_SCALAR(wrapWidth)}};
    static constexpr ScalarDeclarations derived{2, {VT_SCALAR(half), VT_SCALAR(odd)}};
    static void derive(Params& p, const ImageArgument*, ImageParameters*) {
        p.half = p.size / 2;
        p.odd = p.size % 2;
    }
    static constexpr int channels = 6;  ///< those of S, then those of T

    VT_FN void body(const Params& p, auto S, auto T, auto W, auto N, auto mS, auto mT, auto qS, auto qT) {
        using V = decltype(N.lane(0));
        using I = IntOf<V>;
        const I place = N.column() - I(N.left());
        const int row = N.row() - N.bottom();
        const I x0 = blockCorner(place, p.half, p.odd);
        const I width = blockCorner(place + I(1), p.half, p.odd) - x0;
        const int y0 = blockCorner(row, p.half, p.odd), y1 = blockCorner(row + 1, p.half, p.odd);
        const int wrap = p.wrapWidth > 0 ? p.wrapWidth : S.right() - S.left();
        const auto value = [&](I x, I y, int c) { return c < 3 ? S.fetch(x, y, c) : T.fetch(x, y, c - 3); };
        // visit(column, inside) for each column of the segment; lanes of a narrower one are not inside.
        const auto forEachColumn = [&](auto visit) {
            for (int i = 0; i <= p.half; ++i) {
                I x = x0 + I(i);
                while (any(x >= I(wrap)))
                    x = select(x >= I(wrap), x - I(wrap), x);
                const auto inside = I(i) < width;
                if (any(inside)) visit(x + I(S.left()), inside);
            }
        };
        const auto sumDown = [&](I x, auto inside, auto term) {
            V sum(0.f);
            for (int y = y0; y < y1; ++y)
                sum += term(x, I(y + S.bottom()));
            return select(inside, sum, V(0.f));
        };
        V count(0.f), weight(0.f), mean[channels];
        for (V& m : mean)
            m = V(0.f);
        forEachColumn([&](I x, auto inside) {
            count += sumDown(x, inside, [&](I cx, I cy) { return select(W.fetch(cx, cy) > V(0.f), V(1.f), V(0.f)); });
            weight += sumDown(x, inside, [&](I cx, I cy) { return W.fetch(cx, cy); });
            for (int c = 0; c < channels; ++c)
                mean[c] += sumDown(x, inside, [&](I cx, I cy) { return W.fetch(cx, cy) * value(cx, cy, c); });
        });
        V squares[channels];
        for (int c = 0; c < channels; ++c) {
            mean[c] = select(weight > V(0.f), mean[c] / weight, V(0.f));
            squares[c] = V(0.f);
        }
        forEachColumn([&](I x, auto inside) {
            for (int c = 0; c < channels; ++c)
                squares[c] += sumDown(x, inside, [&](I cx, I cy) {
                    const V d = value(cx, cy, c) - mean[c];
                    return W.fetch(cx, cy) * (d * d);
                });
        });
        N.put(0, count);
        N.put(1, weight);
        for (int c = 0; c < 3; ++c) {
            mS.put(c, mean[c]);
            mT.put(c, mean[c + 3]);
            qS.put(c, squares[c]);
            qT.put(c, squares[c + 3]);
        }
    }

    static constexpr int stripColumns = 512;
    template <class V, Counts T>
    static void hostForm(const Launch& launch) {
        const Params p = *static_cast<const Params*>(launch.parameters);
        const ImageArgument* images = launch.images;
        const bool oneBox = sameBox(images[0], images[1]) && sameBox(images[0], images[2]);
        if (!oneBox || p.half + p.odd > stripColumns || p.half < 1)
            return runRows<blockSegmentsKernel, T, V, Reach::unit>(launch);
        const int first = launch.x0 - images[3].x0, end = launch.x1 - images[3].x0;
        for (int y = launch.y0; y < launch.y1; ++y)
            for (int x = first; x < end;) {
                int next = x + 1;
                const int x0 = blockCorner(x, p.half, p.odd);
                while (next < end && blockCorner(next + 1, p.half, p.odd) - x0 <= stripColumns)
                    ++next;
                runStrip<V>(launch, p, x, next, y);
                x = next;
            }
    }

private:
    VT_FN bool sameBox(const ImageArgument& a, const ImageArgument& b) {
        return a.x0 == b.x0 && a.y0 == b.y0 && a.x1 == b.x1 && a.y1 == b.y1;
    }
    static constexpr int slack = 16;
    using Columns = float[stripColumns + slack];

    /// Where the columns of a strip are read: in place, or gathered where they wrap round or leave the picture.
    struct Reader {
        const Launch& launch;
        int wrap, from, count;
        bool inPlace;
        float* copy;

        /// count columns of row y (counted from the picture's own) of component c.
        VT_INLINE const float* row(int image, int y, int c) const {
            const ImageArgument& a = launch.images[image];
            const float* start = addressIn(a, a.x0, a.y0 + clampTo(y, 0, a.y1 - a.y0 - 1), c);
            if (inPlace) return start + from;
            const int last = a.x1 - a.x0 - 1;
            for (int i = 0; i < count;) {  // the pieces between the ends of the picture and of the format
                const int column = wrappedColumn(from + i, wrap);
                const int piece = smaller(wrap - column, count - i), inside = clampTo(last + 1 - column, 0, piece);
                __builtin_memcpy(copy + i, start + column, inside * sizeof(float));
                for (int k = inside; k < piece; ++k)
                    copy[i + k] = start[last];
                i += piece;
            }
            return copy;
        }
    };

    /// Segments first .. end - 1 of one row of segments.
    template <class V>
    __attribute__((noinline)) static void runStrip(const Launch& launch, const Params& p, int first, int end, int y) {
        const ImageArgument& picture = launch.images[0];
        const int width = picture.x1 - picture.x0;
        const int wrap = p.wrapWidth > 0 ? p.wrapWidth : width;
        const int from = blockCorner(first, p.half, p.odd);
        const int columns = blockCorner(end, p.half, p.odd) - from;
        const int row = y - launch.images[3].y0;
        const int y0 = blockCorner(row, p.half, p.odd), y1 = blockCorner(row + 1, p.half, p.odd);
        Columns copies[2];
        for (Columns& copy : copies)
            for (float& value : copy)
                value = 0;
        const int registersEnd =
            from + (columns + LaneTraits<V>::width - 1) / LaneTraits<V>::width * LaneTraits<V>::width;
        const bool inPlace = registersEnd <= (wrap < width ? wrap : width);
        const Reader weights{launch, wrap, from, columns, inPlace, copies[0]};
        const Reader values{launch, wrap, from, columns, inPlace, copies[1]};

        Columns sums[channels + 2], means;
        const auto forEachRegister = [&](auto f) VT_INLINE_LAMBDA {
            for (int i = 0; i < columns; i += LaneTraits<V>::width)
                f(i);
        };
        for (Columns& sum : sums)
            forEachRegister([&](int i) VT_INLINE_LAMBDA { store(V(0.f), sum + i, 1); });
        for (int j = y0; j < y1; ++j) {
            const float* w = weights.row(2, j, 0);
            forEachRegister([&](int i) VT_INLINE_LAMBDA {
                const V weight = load<V>(w + i, 1);
                addTo<V>(sums[channels] + i, select(weight > V(0.f), V(1.f), V(0.f)));
                addTo<V>(sums[channels + 1] + i, weight);
            });
            for (int c = 0; c < channels; ++c) {
                const float* v = values.row(c / 3, j, c % 3);
                const long nextRow = launch.images[c / 3].strideY;  // pieces of rows are too short to be foreseen
                forEachRegister([&](int i) VT_INLINE_LAMBDA {
                    __builtin_prefetch(v + nextRow + i);
                    addTo<V>(sums[c] + i, load<V>(w + i, 1) * load<V>(v + i, 1));
                });
            }
        }
        const auto segments = [&](auto f) {
            for (int s = first; s < end; ++s) {
                const int begin = blockCorner(s, p.half, p.odd) - from;
                f(s + launch.images[3].x0, begin, blockCorner(s + 1, p.half, p.odd) - from);
            }
        };
        const auto total = [](const Columns& sum, int begin, int last) {
            float all = 0;
            for (int i = begin; i < last; ++i)
                all += sum[i];
            return all;
        };
        segments([&](int x, int begin, int last) {
            *addressIn(launch.images[3], x, y, 0) = total(sums[channels], begin, last);
            *addressIn(launch.images[3], x, y, 1) = total(sums[channels + 1], begin, last);
        });
        for (int c = 0; c < channels; ++c) {
            segments([&](int x, int begin, int last) {
                const float weight = *addressIn(launch.images[3], x, y, 1);
                const float mean = weight > 0 ? total(sums[c], begin, last) / weight : 0.f;
                *addressIn(launch.images[4 + c / 3], x, y, c % 3) = mean;
                for (int i = begin; i < last; ++i)
                    means[i] = mean;
            });
            for (int i = columns; i < columns + slack; ++i)
                means[i] = 0;
            forEachRegister([&](int i) VT_INLINE_LAMBDA { store(V(0.f), sums[c] + i, 1); });
            for (int j = y0; j < y1; ++j) {
                const float* w = weights.row(2, j, 0);
                const float* v = values.row(c / 3, j, c % 3);
                forEachRegister([&](int i) VT_INLINE_LAMBDA {
                    const V d = load<V>(v + i, 1) - load<V>(means + i, 1);
                    addTo<V>(sums[c] + i, load<V>(w + i, 1) * (d * d));
                });
            }
            segments([&](int x, int begin, int last) {
                *addressIn(launch.images[6 + c / 3], x, y, c % 3) = total(sums[c], begin, last);
            });
        }
    }
    template <class V>
    VT_FN void addTo(float* to, V value) {
        store(load<V>(to, 1) + value, to, 1);
    }
};

/// What blocks make of their four segments: C = 1 where the block has more than leastCount pixels with a weight, else
/// 0; gain and offset take the mean and deviation of S to those of T as blockTransferKernel does, 1 and 0 where C is 0.
struct segmentTransferKernel
    : WholePixel<In<"N", Pattern::rectangle>, In<"mS", Pattern::rectangle>, In<"mT", Pattern::rectangle>,
                 In<"qS", Pattern::rectangle>, In<"qT", Pattern::rectangle>, Out<"C">, Out<"offset">, Out<"gain">> {
    struct Params {
        float leastCount = 5;
    };
    static constexpr ScalarDeclarations scalars{1, {VT_SCALAR(leastCount)}};
    static void derive(Params&, const ImageArgument*, ImageParameters* images) {
        for (int i = 0; i < 5; ++i)
            images[i].rangeMax[0] = images[i].rangeMax[1] = 1;
    }
    template <class V>
    struct Statistics {
        V mean, deviation;
    };
    /// Of the four segments together: their means about the common one add to the squares.
    VT_FN auto combined(auto N, auto m, auto q, auto weight, int c) {
        using V = decltype(weight);
        V sum(0.f);
        forEachSegment([&](int i, int j) { sum += N.at(i, j, 1) * m.at(i, j, c); });
        const V mean = select(weight > V(0.f), sum / weight, V(0.f));
        V squares(0.f);
        forEachSegment([&](int i, int j) {
            const V d = m.at(i, j, c) - mean;
            squares += q.at(i, j, c) + N.at(i, j, 1) * (d * d);
        });
        return Statistics<V>{mean, select(weight > V(0.f), sqrt(squares / weight), V(0.f))};
    }
    VT_FN void forEachSegment(auto f) {
        f(0, 0);
        f(1, 0);
        f(0, 1);
        f(1, 1);
    }
    VT_FN void body(const Params& p, auto N, auto mS, auto mT, auto qS, auto qT, auto C, auto offset, auto gain) {
        using V = decltype(C.lane(0));
        V count(0.f), weight(0.f);
        forEachSegment([&](int i, int j) {
            count += N.at(i, j, 0);
            weight += N.at(i, j, 1);
        });
        const auto serves = count > V(p.leastCount);
        C = select(serves, V(1.f), V(0.f));
        for (int c = 0; c < 3; ++c) {
            const auto source = combined(N, mS, qS, weight, c);
            const auto target = combined(N, mT, qT, weight, c);
            const V factor = transferGain(source.deviation, target.deviation);
            gain.put(c, select(serves, factor, V(1.f)));
            offset.put(c, select(serves, target.mean - factor * source.mean, V(0.f)));
        }
    }
};

/// Upsampling of two grids and their application to a picture at once. Upsampled rows of the grids are kept while the
/// rows of the picture lie between them.
template <class V>
class GridRows {
public:
    static constexpr int stripColumns = 256;
    static constexpr int components = 6;  ///< offsets, then gains

    VT_INLINE GridRows(const ImageArgument& offset, const ImageArgument& gain, const GridScale& scale, int x, int count)
        : offset_(offset), gain_(gain), scale_(scale), x_(x), count_(count) {}

    /// Calls use(i, offsets, gains) with registers of the 3 offsets and gains at columns x + i .. of picture row y.
    VT_INLINE void use(int y, auto f) {
        const GridPlace<float> place = scale_.row(static_cast<float>(y));
        const int last = offset_.y1 - offset_.y0 - 1;
        const float* below = row(clampTo(place.first, 0, last));
        const float* above = row(clampTo(place.second, 0, last));
        const V share(place.share);
        for (int i = 0; i < count_; i += LaneTraits<V>::width) {
            V values[components];
#pragma GCC unroll 6
            for (int c = 0; c < components; ++c)
                values[c] =
                    mixed(load<V>(below + c * stripColumns + i, 1), load<V>(above + c * stripColumns + i, 1), share);
            f(i, values);
        }
    }

private:
    /// A row of the grids at the columns of the strip.
    VT_INLINE const float* row(int y) {
        for (int i = 0; i < 2; ++i)
            if (held_[i] == y) {
                latest_ = i;
                return rows_[i];
            }
        latest_ = 1 - latest_;
        held_[latest_] = y;
        fill(y, rows_[latest_]);
        return rows_[latest_];
    }
    __attribute__((noinline)) void fill(int y, float* to) const {
        using I = IntOf<V>;
        const int last = offset_.x1 - offset_.x0 - 1;
        for (int i = 0; i < count_; i += LaneTraits<V>::width) {
            const auto place = scale_.column(toFloat(laneNumbers<V>() + I(x_ + i)));
            const I first = clampTo(place.first, I(0), I(last)), second = clampTo(place.second, I(0), I(last));
            for (int c = 0; c < components; ++c) {
                const ImageArgument& grid = c < 3 ? offset_ : gain_;
                const float* from = addressIn(grid, grid.x0, grid.y0 + y, c % 3);
                store(mixed(gather(from, first), gather(from, second), place.share), to + c * stripColumns + i, 1);
            }
        }
    }

    const ImageArgument& offset_;
    const ImageArgument& gain_;
    GridScale scale_;
    int x_, count_;
    int held_[2] = {-1, -1};
    int latest_ = 0;
    float rows_[2][components * stripColumns];
};

/// The scale of a picture's grids; without a size to wrap round the picture's ends are ends.
VT_FN GridScale gridScaleOf(const auto& p) {
    const bool wraps = p.wrapSize[0] >= 1 && p.wrapSize[1] >= 1;
    return {p.stepX, p.stepY, wraps ? p.wrapSize[0] : 0, wraps ? p.wrapSize[1] : 0};
}

/// Calls correct(x, y, some, offsets and gains) for registers of `some` pixels of a launch over a picture at (x0, y0).
template <class V>
VT_FN void forEachRegister(const Launch& launch, const ImageArgument& output, const GridScale& scale, auto correct) {
    for (int x = launch.x0; x < launch.x1; x += GridRows<V>::stripColumns) {
        const int count = smaller(GridRows<V>::stripColumns, launch.x1 - x);
        GridRows<V> grids(launch.images[1], launch.images[2], scale, x - output.x0, count);
        for (int y = launch.y0; y < launch.y1; ++y)
            grids.use(y - output.y0, [&](int i, const V(&values)[6]) VT_INLINE_LAMBDA {
                correct(x + i, y, smaller(LaneTraits<V>::width, count - i), values);
            });
    }
}

/// O = S with gain and offset of the grids, upsampled to the picture, as by bilinearUpsample(Wrap)Kernel and
/// gainOffsetApplyKernel. Without a wrapSize of at least 1 by 1 the picture's ends are ends.
struct blockApplyKernel : WholePixel<In<"S">, In<"offset", Pattern::random, EdgeMethod::clamped>,
                                     In<"gain", Pattern::random, EdgeMethod::clamped>, Out<"O">> {
    struct Params {
        int wrapSize[2] = {-1, -1};
        float stepX = 1;
        float stepY = 1;
    };
    static constexpr ScalarDeclarations scalars{1, {VT_SCALAR(wrapSize)}};
    static constexpr ScalarDeclarations derived{2, {VT_SCALAR(stepX), VT_SCALAR(stepY)}};
    static void derive(Params& p, const ImageArgument* images, ImageParameters*) {
        scaleOfGrid(images[1], images[3], p.stepX, p.stepY);
    }
    VT_FN void body(const Params& p, auto S, auto offset, auto gain, auto O) {
        using V = decltype(O.lane(0));
        const GridScale scale = gridScaleOf(p);
        const auto column = scale.column(toFloat(O.column() - IntOf<V>(O.left())));
        const auto row = scale.row(V(static_cast<float>(O.row() - O.bottom())));
        for (int c = 0; c < 3; ++c)
            O.put(c, correctedBy(S(c), bilinear(gain, column, row, c), bilinear(offset, column, row, c)));
    }

    template <class V, Counts T>
    static void hostForm(const Launch& launch) {
        const Params p = *static_cast<const Params*>(launch.parameters);
        const ImageArgument& output = launch.images[3];
        forEachRegister<V>(
            launch, output, gridScaleOf(p), [&](int x, int y, int some, const V(&values)[6]) VT_INLINE_LAMBDA {
#pragma GCC unroll 3
                for (int c = 0; c < 3; ++c) {
                    const V value = loadSome<V>(addressIn(launch.images[0], x, y, c), some);
                    storeSome(correctedBy(value, values[c + 3], values[c]), addressIn(output, x, y, c), some);
                }
            });
    }
};

/// One block size of several: E = the picture of blockApplyKernel in RGB, merged into the result A so far. rule 0: A =
/// E; 1: E where it is nearer to R than A, component by component; 2: A + (E - R).
struct sampleMergeKernel : WholePixel<In<"S">, In<"offset", Pattern::random, EdgeMethod::clamped>,
                                      In<"gain", Pattern::random, EdgeMethod::clamped>, In<"R">, Out<"A">> {
    struct Params {
        int wrapSize[2] = {-1, -1};
        int rule = 0;
        float matrix[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
        float stepX = 1;
        float stepY = 1;
    };
    static constexpr ScalarDeclarations scalars{3, {VT_SCALAR(wrapSize), VT_SCALAR(rule), VT_SCALAR(matrix)}};
    static constexpr ScalarDeclarations derived{2, {VT_SCALAR(stepX), VT_SCALAR(stepY)}};
    static void derive(Params& p, const ImageArgument* images, ImageParameters*) {
        scaleOfGrid(images[1], images[4], p.stepX, p.stepY);
    }
    template <class V>
    VT_FN V merged(int rule, V sample, V soFar, V reference) {
        if (rule == 0) return sample;
        if (rule == 1) return select(abs(reference - sample) < abs(reference - soFar), sample, soFar);
        return soFar + (sample - reference);
    }
    VT_FN void body(const Params& p, auto S, auto offset, auto gain, auto R, auto A) {
        using V = decltype(A.lane(0));
        const GridScale scale = gridScaleOf(p);
        const auto column = scale.column(toFloat(A.column() - IntOf<V>(A.left())));
        const auto row = scale.row(V(static_cast<float>(A.row() - A.bottom())));
        V lab[3];
        for (int c = 0; c < 3; ++c)
            lab[c] = correctedBy(S(c), bilinear(gain, column, row, c), bilinear(offset, column, row, c));
        const auto xyz = xyzOfLab(lab[0], lab[1], lab[2], labKnee);
        const auto rgb = multiplyMatrix(p.matrix, xyz.a, xyz.b, xyz.c);
        A.put(0, merged(p.rule, rgb.a, A(0), R(0)));
        A.put(1, merged(p.rule, rgb.b, A(1), R(1)));
        A.put(2, merged(p.rule, rgb.c, A(2), R(2)));
    }

    template <class V, Counts T>
    static void hostForm(const Launch& launch) {
        const Params p = *static_cast<const Params*>(launch.parameters);
        const ImageArgument& source = launch.images[0];
        const ImageArgument& reference = launch.images[3];
        const ImageArgument& output = launch.images[4];
        forEachRegister<V>(
            launch, output, gridScaleOf(p), [&](int x, int y, int some, const V(&values)[6]) VT_INLINE_LAMBDA {
                const auto at = [&](const ImageArgument& image, int c)
                                    VT_INLINE_LAMBDA { return loadSome<V>(addressIn(image, x, y, c), some); };
                V lab[3];
#pragma GCC unroll 3
                for (int c = 0; c < 3; ++c)
                    lab[c] = correctedBy(at(source, c), values[c + 3], values[c]);
                const auto xyz = xyzOfLab(lab[0], lab[1], lab[2], labKnee);
                const auto rgb = multiplyMatrix(p.matrix, xyz.a, xyz.b, xyz.c);
                const V sample[3] = {rgb.a, rgb.b, rgb.c};
#pragma GCC unroll 3
                for (int c = 0; c < 3; ++c)
                    storeSome(merged(p.rule, sample[c], at(output, c), at(reference, c)), addressIn(output, x, y, c),
                              some);
            });
    }
};

#define VT_SEGMENTS(X, K) X(K, 3f_3f_1f_2f_3f_3f_3f_3f)
#define VT_SEGMENT_TRANSFER(X, K) X(K, 2f_3f_3f_3f_3f_1f_3f_3f)
#define VT_BLOCK_APPLY(X, K) X(K, 3f_3f_3f_3f)
#define VT_SAMPLE_MERGE(X, K) X(K, 3f_3f_3f_3f_3f) X(K, 3f_3f_3f_4f_3f)
#define BLOCK_PASSES(K)                           \
    K(blockSegmentsKernel, VT_SEGMENTS)           \
    K(segmentTransferKernel, VT_SEGMENT_TRANSFER) \
    K(blockApplyKernel, VT_BLOCK_APPLY)           \
    K(sampleMergeKernel, VT_SAMPLE_MERGE)

VT_FAMILY(blockPasses, BLOCK_PASSES)

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
