// The words in which a kernel declares its images and scalars.
//
//     struct thresholdKernel : PerComponent<In<"A">, Out<"O">> {
//         struct Params { float threshold = 0; bool binarise = false; };
//         static constexpr ScalarDeclarations scalars{2, {VT_SCALAR(threshold), VT_SCALAR(binarise)}};
//         VT_FN void body(const Params& p, auto A, auto O) { ... }
//     };
#pragma once

#include "lane.h"
#include "launch.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// A text as a template argument.
template <int N>
struct Name {
    char text[N];
    constexpr Name(const char (&source)[N]) {
        for (int i = 0; i < N; ++i)
            text[i] = source[i];
    }
};

/// An image that is read. `P` tells where, `E` what a read outside its box gives.
template <Name N, Pattern P = Pattern::point, EdgeMethod E = EdgeMethod::none>
struct In {
    static constexpr auto name = N;
    static constexpr bool written = false;
    static constexpr Pattern pattern = P;
    static constexpr EdgeMethod edge = E;
};

/// An image that is written, and may be read where it is written.
template <Name N, Pattern P = Pattern::point>
struct Out {
    static constexpr auto name = N;
    static constexpr bool written = true;
    static constexpr Pattern pattern = P;
    static constexpr EdgeMethod edge = EdgeMethod::none;
};

template <class... Declarations>
struct ImageList {
    static constexpr int size = sizeof...(Declarations);
    /// Reads outside an image's box are answered for at least one image: rows are cut into edge, inside, edge.
    static constexpr bool anyEdge =
        ((Declarations::edge != EdgeMethod::none && Declarations::pattern != Pattern::random) || ...);
};

struct NoParams {};

template <bool PerComponentBody, bool Reduces, class... Declarations>
struct KernelBase {
    static constexpr bool perComponent = PerComponentBody;
    static constexpr bool reduction = Reduces;
    using Images = ImageList<Declarations...>;
    static constexpr int imageCount = Images::size;
    using Params = NoParams;
};

/// The body is written for one component and knows no component count.
template <class... D>
using PerComponent = KernelBase<true, false, D...>;
/// The body sees whole pixels.
template <class... D>
using WholePixel = KernelBase<false, false, D...>;
/// The body adds to sums of one component: `struct Sums<V> { V name; ... }`, results `float name[4]`.
template <class... D>
using PerComponentSum = KernelBase<true, true, D...>;
/// The body adds to sums of all components: `struct Sums<V> { V name[4]; ... }`, and may write pixels.
template <class... D>
using WholePixelSum = KernelBase<false, true, D...>;

/// Component counts of the images of one variant.
struct Counts {
    int of[mostImages] = {};
};

/// "3f_1f" gives {3, 1}.
consteval Counts parseTuple(const char* tuple) {
    Counts counts;
    int n = 0;
    bool atToken = true;
    for (; *tuple; ++tuple) {
        if (atToken) counts.of[n++] = *tuple - '0';
        atToken = *tuple == '_';
    }
    return counts;
}

/// A body for single components is the same for all tuples of a kernel, so they share one instantiation.
template <class K>
consteval Counts bodyCounts(const char* tuple) {
    return K::perComponent ? Counts{} : parseTuple(tuple);
}

template <class T>
struct Element {
    using Type = T;
    static constexpr int length = 1;
};
template <class T, __SIZE_TYPE__ N>
struct Element<T[N]> {
    using Type = T;
    static constexpr int length = N;
};

template <class T>
inline constexpr ScalarType scalarTypeOf = ScalarType::integer;
template <>
inline constexpr ScalarType scalarTypeOf<float> = ScalarType::real;
template <>
inline constexpr ScalarType scalarTypeOf<bool> = ScalarType::boolean;

template <class T>
consteval ScalarDeclaration declareScalar(const char* name, int offset, Fold fold = Fold::sum) {
    constexpr int length = Element<T>::length;
    constexpr bool isVector = length <= 4;
    return {name,
            scalarTypeOf<typename Element<T>::Type>,
            isVector ? length : 1,
            isVector ? 1 : length,
            static_cast<int>(sizeof(T)),
            offset,
            fold};
}

template <class K>
consteval ScalarDeclarations scalarsOf() {
    if constexpr (requires { K::scalars; })
        return K::scalars;
    else
        return {};
}
template <class K>
consteval ScalarDeclarations derivedOf() {
    if constexpr (requires { K::derived; })
        return K::derived;
    else
        return {};
}
template <class K>
consteval ScalarDeclarations accumulatorsOf() {
    if constexpr (requires { K::accumulators; })
        return K::accumulators;
    else
        return {};
}

/// Converts to the type of any field.
struct AnyField {
    template <class T>
    consteval operator T() const;
};
/// How many fields a struct without base classes has: one more initialiser than that is refused.
template <class S, class... Fields>
consteval int fieldCount() {
    if constexpr (requires { S{{Fields{}}..., {AnyField{}}}; })
        return fieldCount<S, Fields..., AnyField>();
    else
        return sizeof...(Fields);
}
/// A field that isn't declared would be unknown to callers, records and other devices.
template <class K>
consteval bool declaresAllFields() {
    if constexpr (K::reduction)
        if (fieldCount<typename K::Results>() != accumulatorsOf<K>().count) return false;
    return fieldCount<typename K::Params>() == scalarsOf<K>().count + derivedOf<K>().count;
}

template <class... D>
consteval ImageDeclarations declareImages(ImageList<D...>) {
    return {sizeof...(D), {ImageDeclaration{D::name.text, D::written, D::pattern, D::edge}...}};
}

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels

/// Declares a field of the kernel's own `Params` as a scalar under its own name.
#define VT_SCALAR(field) declareScalar<decltype(Params::field)>(#field, __builtin_offsetof(Params, field))
/// Declares a field of the kernel's `Results` as an accumulator: a sum, or the least or most of the workers' values.
/// The latter two begin with the values that `Results` and `Sums` give them.
#define VT_RESULT(field) declareScalar<decltype(Results::field)>(#field, __builtin_offsetof(Results, field))
#define VT_LEAST(field) \
    declareScalar<decltype(Results::field)>(#field, __builtin_offsetof(Results, field), Vellum::Kernels::Fold::least)
#define VT_MOST(field) \
    declareScalar<decltype(Results::field)>(#field, __builtin_offsetof(Results, field), Vellum::Kernels::Fold::most)
