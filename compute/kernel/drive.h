// The loops round a body: rows cut into edge, inside, edge; packed lanes with one-pixel ends; fixed places for sums.
#pragma once

#include "access.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

struct NoSums {};

/// Sums are kept in 16 places per component, pixel x of a piece's row in place (x - x0) mod 16, whatever the register
/// width: so the same numbers are added in the same order on every instruction set.
inline constexpr int sumPlaces = 16;

/// The part of a launch in which no declared read leaves an image.
struct InsideRange {
    int x0, y0, x1, y1;
};

/// How far an image is read round a pixel, as x and y ranges.
template <class D>
VT_FN void readRange(const ImageParameters& p, int& xMin, int& xMax, int& yMin, int& yMax) {
    xMin = xMax = yMin = yMax = 0;
    if constexpr (D::pattern == Pattern::axis) {
        (p.rangedAxisMask ? yMin : xMin) = p.rangeMin[0];
        (p.rangedAxisMask ? yMax : xMax) = p.rangeMax[0];
    } else if constexpr (D::pattern == Pattern::rectangle) {
        xMin = p.rangeMin[0];
        yMin = p.rangeMin[1];
        xMax = p.rangeMax[0];
        yMax = p.rangeMax[1];
    }
}

template <class D>
VT_FN void narrow(InsideRange& range, const ImageArgument& image, const ImageParameters& parameters) {
    if constexpr (D::edge != EdgeMethod::none && D::pattern != Pattern::random) {
        int xMin, xMax, yMin, yMax;
        readRange<D>(parameters, xMin, xMax, yMin, yMax);
        if (range.x0 < image.x0 - xMin) range.x0 = image.x0 - xMin;
        if (range.x1 > image.x1 - xMax) range.x1 = image.x1 - xMax;
        if (range.y0 < image.y0 - yMin) range.y0 = image.y0 - yMin;
        if (range.y1 > image.y1 - yMax) range.y1 = image.y1 - yMax;
    }
}

template <class... D, int... I>
VT_FN InsideRange insideRange(const Launch& launch, ImageList<D...>, Sequence<I...>) {
    InsideRange range{launch.x0, launch.y0, launch.x1, launch.y1};
    (narrow<D>(range, launch.images[I], launch.imageParameters[I]), ...);
    if (range.x0 > launch.x1) range.x0 = launch.x1;
    if (range.x1 < range.x0) range.x1 = range.x0;
    return range;
}

/// Runs pixels x .. x1 of one row as far as whole registers reach and returns where it stopped. A function of its own:
/// inlined into every row loop it costs four times the compile time. Parameters and images are copied, so that the
/// compiler sees that stores to pixels don't change them.
template <class K, Counts T, class V, Reach R>
__attribute__((noinline)) int runSpan(const Launch& launch, int x, int x1, int y, int c, bool columnsInside) {
    constexpr int width = LaneTraits<V>::width;
    const typename K::Params parameters = *static_cast<const typename K::Params*>(launch.parameters);
    ImageArgument images[K::imageCount];
    ImageParameters imageParameters[K::imageCount];
    for (int i = 0; i < K::imageCount; ++i) {
        images[i] = launch.images[i];
        imageParameters[i] = launch.imageParameters[i];
    }
    NoSums none;
    for (; x + width <= x1; x += width)
        callBody<K, T, V, R>(images, imageParameters, parameters, none, typename K::Images{},
                             typename MakeSequence<K::imageCount>::Type{}, x, y, c, columnsInside);
    return x;
}

template <class K, Counts T, class V, Reach R>
VT_FN void runRow(const Launch& launch, const InsideRange& inside, int y, int c) {
    constexpr bool packed = LaneTraits<V>::width > 1;
    int x = launch.x0;
    if constexpr (K::Images::anyEdge) {
        const bool rowInside = y >= inside.y0 && y < inside.y1;
        if (x < inside.x0) {
            if constexpr (packed) x = runSpan<K, T, V, Reach::edge>(launch, x, inside.x0, y, c, false);
            x = runSpan<K, T, float, Reach::edge>(launch, x, inside.x0, y, c, false);
        }
        if (rowInside)
            x = runSpan<K, T, V, R>(launch, x, inside.x1, y, c, true);
        else if constexpr (packed)
            x = runSpan<K, T, V, Reach::edge>(launch, x, inside.x1, y, c, true);
        if constexpr (packed) x = runSpan<K, T, V, Reach::edge>(launch, x, launch.x1, y, c, false);
    } else {
        x = runSpan<K, T, V, R>(launch, x, launch.x1, y, c, true);
    }
    if (x < launch.x1) runSpan<K, T, float, Reach::edge>(launch, x, launch.x1, y, c, false);
}

template <class K, Counts T, class V, Reach R>
void runRows(const Launch& launch) {
    const InsideRange inside = insideRange(launch, typename K::Images{}, typename MakeSequence<K::imageCount>::Type{});
    const int c0 = K::perComponent ? launch.c0 : 0;
    const int c1 = K::perComponent ? launch.c1 : 1;
    for (int y = launch.y0; y < launch.y1; ++y)
        for (int c = c0; c < c1; ++c)
            runRow<K, T, V, R>(launch, inside, y, c);
}

/// How the float of that number in a kernel's `Results` is folded.
template <class K>
consteval Fold foldOf(int result) {
    const ScalarDeclarations accumulators = accumulatorsOf<K>();
    for (int i = 0; i < accumulators.count; ++i) {
        const ScalarDeclaration& field = accumulators.list[i];
        const int first = field.offset / static_cast<int>(sizeof(float));
        if (result >= first && result < first + field.bytes / static_cast<int>(sizeof(float))) return field.fold;
    }
    return Fold::sum;
}
template <Fold fold>
VT_FN float folded(float a, float b) {
    if constexpr (fold == Fold::sum)
        return a + b;
    else
        return (fold == Fold::least ? b < a : b > a) ? b : a;
}

template <class K>
VT_FN auto freshResults() {
    if constexpr (K::reduction)
        return typename K::Results{};
    else
        return NoParams{};
}
template <class K>
VT_INLINE void startResults(float* results) {
    if constexpr (K::reduction) {
        const auto fresh = freshResults<K>();
        __builtin_memcpy(results, &fresh, sizeof fresh);
    }
}
template <class K, int... I>
VT_FN void foldEach(float* results, const float* part, Sequence<I...>) {
    ((results[I] = folded<foldOf<K>(I)>(results[I], part[I])), ...);
}
template <class K>
VT_INLINE void foldResults(float* results, const float* part) {
    if constexpr (K::reduction)
        foldEach<K>(results, part, typename MakeSequence<sizeof(typename K::Results) / sizeof(float)>::Type{});
}

/// Folds the places of one field, packed ones and single ones, in the order of the places.
template <Fold fold, class V>
VT_FN float foldPlaces(float total, const float* packed, const float* single, int field, int fields) {
    constexpr int width = LaneTraits<V>::width;
    for (int place = 0; place < sumPlaces; ++place)
        total =
            folded<fold>(total, folded<fold>(packed[(place / width) * fields * width + field * width + place % width],
                                             single[place * fields + field]));
    return total;
}
template <class K, class V, int... Field>
VT_FN void foldFields(float* results, const float* packed, const float* single, int c, Sequence<Field...>) {
    constexpr int stride = K::perComponent ? 4 : 1;
    constexpr int fields = sizeof...(Field);
    const auto start = freshResults<K>();
    const float* fresh = reinterpret_cast<const float*>(&start);
    const auto foldField = [&]<int field>() {
        constexpr Fold fold = foldOf<K>(field * stride);
        float& result = results[field * stride + c];
        result = folded<fold>(result, foldPlaces<fold, V>(fresh[field * stride + c], packed, single, field, fields));
    };
    (foldField.template operator()<Field>(), ...);
}

template <class K, Counts T, class V, Reach R>
void runSums(const Launch& launch) {
    using Packed = typename K::template Sums<V>;
    using Single = typename K::template Sums<float>;
    constexpr int width = LaneTraits<V>::width;
    constexpr int fields = sizeof(Single) / sizeof(float);
    constexpr auto sequence = typename MakeSequence<K::imageCount>::Type{};
    constexpr typename K::Images list{};
    static_assert(!K::Images::anyEdge, "a reduction reads inside its images");

    const typename K::Params parameters = *static_cast<const typename K::Params*>(launch.parameters);
    ImageArgument images[K::imageCount];
    for (int i = 0; i < K::imageCount; ++i)
        images[i] = launch.images[i];
    const ImageParameters* imageParameters = launch.imageParameters;

    const int c0 = K::perComponent ? launch.c0 : 0;
    const int c1 = K::perComponent ? launch.c1 : 1;
    for (int c = c0; c < c1; ++c) {
        Packed packed[sumPlaces / width] = {};
        Single single[sumPlaces] = {};
        for (int y = launch.y0; y < launch.y1; ++y) {
            int x = launch.x0;
            for (; x + sumPlaces <= launch.x1; x += sumPlaces)
                for (int part = 0; part < sumPlaces / width; ++part)
                    callBody<K, T, V, R>(images, imageParameters, parameters, packed[part], list, sequence,
                                         x + part * width, y, c, true);
            for (; x < launch.x1; ++x)
                callBody<K, T, float, Reach::inside>(images, imageParameters, parameters,
                                                     single[(x - launch.x0) % sumPlaces], list, sequence, x, y, c,
                                                     true);
        }
        foldFields<K, V>(launch.accumulators, reinterpret_cast<const float*>(packed),
                         reinterpret_cast<const float*>(single), K::perComponent ? c : 0,
                         typename MakeSequence<fields>::Type{});
    }
}

/// A kernel may bring a second form of itself for whole pieces of a launch, where neighbouring pixels lie next to each
/// other: `template <class V, Counts T> static void hostForm(const Launch&)`. It adds in the body's order and gives the
/// body's bits; all other forms of the kernel are the body. It gets no piece that itself lies outside an image with an
/// edge, as happens where that is smaller than the written one. With `static bool hostFormTakes(const ImageArgument*)`
/// the kernel chooses by itself, with whatever strides and boxes, where that form serves.
template <class K, class V, Counts T>
concept HasHostForm = requires(const Launch& launch) {
    K::template hostForm<V, T>(launch);
};
template <class K>
concept ChoosesHostForm = requires(const ImageArgument* images) {
    K::hostFormTakes(images);
};

template <class K>
consteval auto hostFormChoice() {
    if constexpr (ChoosesHostForm<K>)
        return &K::hostFormTakes;
    else
        return static_cast<bool (*)(const ImageArgument*)>(nullptr);
}

template <class... D, int... I>
VT_FN bool liesInImagesWithEdges(const Launch& launch, ImageList<D...>, Sequence<I...>) {
    const auto covers = [&](const ImageArgument& image) {
        return image.x0 <= launch.x0 && launch.x1 <= image.x1 && image.y0 <= launch.y0 && launch.y1 <= image.y1;
    };
    return (... && (D::edge == EdgeMethod::none || D::pattern == Pattern::random || covers(launch.images[I])));
}

template <class K>
consteval bool takesWholeStrips() {
    if constexpr (requires { K::hostFormTakesStrips; })
        return K::hostFormTakesStrips;
    else
        return false;
}

/// A kernel whose pixels write the same place with unlike values says `static constexpr bool inRasterOrder = true`: it
/// runs row by row from the left on one thread, so that the last one stays.
template <class K>
consteval bool runsInRasterOrder() {
    if constexpr (requires { K::inRasterOrder; })
        return K::inRasterOrder;
    else
        return false;
}

/// A kernel that works long on a pixel says `static constexpr bool costlyPixels = true`.
template <class K>
consteval bool hasCostlyPixels() {
    if constexpr (requires { K::costlyPixels; })
        return K::costlyPixels;
    else
        return false;
}

template <class K, Counts T, class V, Reach R>
void runLaunch(const Launch& launch) {
    if constexpr (R == Reach::unit && HasHostForm<K, V, T> && ChoosesHostForm<K>) {
        if (K::hostFormTakes(launch.images)) return K::template hostForm<V, T>(launch);
    } else if constexpr (R == Reach::unit && HasHostForm<K, V, T>) {
        if (liesInImagesWithEdges(launch, typename K::Images{}, typename MakeSequence<K::imageCount>::Type{}))
            return K::template hostForm<V, T>(launch);
    }
    if constexpr (K::reduction)
        runSums<K, T, V, R>(launch);
    else
        runRows<K, T, V, R>(launch);
}

template <class K>
void writeDefaults(void* parameters) {
    *static_cast<typename K::Params*>(parameters) = typename K::Params{};
}

template <class K>
void derive(void* parameters, const ImageArgument* images, ImageParameters* imageParameters) {
    if constexpr (requires(typename K::Params & p) { K::derive(p, images, imageParameters); })
        K::derive(*static_cast<typename K::Params*>(parameters), images, imageParameters);
}

template <class K>
consteval int accumulatorBytes() {
    if constexpr (K::reduction)
        return sizeof(typename K::Results);
    else
        return 0;
}

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
