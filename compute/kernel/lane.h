// The lane type: one value (float), or a native register of them (Lanes), with one small vocabulary, so that a kernel's
// body is written once. No standard headers: this file is compiled again for every instruction set, and an inline
// function of a shared header could be linked into baseline code in its wider form.
//
// Values that depend on pixels are chosen with select(mask, a, b), never with `if`. Comparisons with NaN are false
// (but != is true), so select takes its last argument there.
#pragma once

#ifndef VIEWTINT_ISA
#define VIEWTINT_ISA sse2  // the build names the instruction set
#endif

#if defined(__NVCC__)
#define VT_INLINE inline __attribute__((always_inline, host, device))
#else
#define VT_INLINE inline __attribute__((always_inline))
#endif
#define VT_FN static VT_INLINE
/// For functions that a GPU's compiler needn't understand.
#define VT_HOST_INLINE inline __attribute__((always_inline))
#define VT_HOST_FN static VT_HOST_INLINE
/// Before a short loop over registers: they stay in registers only if the loop is written out.
#if defined(__clang__)
#define VT_UNROLL _Pragma("unroll")
#else
#define VT_UNROLL _Pragma("GCC unroll 8")
#endif

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

template <int... I>
struct Sequence {};
template <int N, int... I>
struct MakeSequence : MakeSequence<N - 1, N - 1, I...> {};
template <int... I>
struct MakeSequence<0, I...> {
    using Type = Sequence<I...>;
};

// ---- one pixel at a time

VT_FN float select(bool mask, float a, float b) {
    return mask ? a : b;
}
VT_FN int select(bool mask, int a, int b) {
    return mask ? a : b;
}
VT_FN int bitsOf(float a) {
    return __builtin_bit_cast(int, a);
}
VT_FN float fromBits(int a) {
    return __builtin_bit_cast(float, a);
}
VT_FN float toFloat(int a) {
    return static_cast<float>(a);
}
VT_FN float sqrt(float a) {
    return __builtin_sqrtf(a);
}
VT_FN bool any(bool mask) {
    return mask;
}

// ---- a register of pixels: the compilers' own vector types

#if defined(__AVX512F__)
inline constexpr int lanesPerRegister = 16;
#elif defined(__AVX2__)
inline constexpr int lanesPerRegister = 8;
#else
inline constexpr int lanesPerRegister = 4;
#endif

typedef float FloatRegister __attribute__((vector_size(lanesPerRegister * 4)));
typedef int IntRegister __attribute__((vector_size(lanesPerRegister * 4)));
using EachLane = MakeSequence<lanesPerRegister>::Type;

// Lane by lane work is written as packs, not as loops, so that it doesn't rest on the optimiser's unrolling.
template <int... I>
VT_HOST_FN FloatRegister sqrtEach(FloatRegister a, Sequence<I...>) {
    return FloatRegister{__builtin_sqrtf(a[I])...};
}
template <int... I>
VT_HOST_FN FloatRegister gatherEach(const float* p, IntRegister index, Sequence<I...>) {
    return FloatRegister{p[index[I]]...};
}
template <int... I>
VT_HOST_FN FloatRegister loadEach(const float* p, long stride, Sequence<I...>) {
    return FloatRegister{p[I * stride]...};
}
template <int... I>
VT_HOST_FN void storeEach(FloatRegister v, float* p, long stride, Sequence<I...>) {
    ((p[I * stride] = v[I]), ...);
}
template <int... I>
VT_HOST_FN IntRegister countEach(Sequence<I...>) {
    return IntRegister{I...};
}
/// Asked in inner loops: taking the lanes one by one would cost more than most bodies.
VT_HOST_FN bool anyLane(IntRegister mask) {
#if defined(__AVX512F__)
    return __builtin_ia32_ptestmd512(mask, mask, 0xffff) != 0;
#elif defined(__AVX2__)
    using Longs = long long __attribute__((vector_size(32)));
    return __builtin_ia32_ptestz256((Longs)mask, (Longs)mask) == 0;
#else
    using Bytes = char __attribute__((vector_size(16)));
    return __builtin_ia32_pmovmskb128((Bytes)mask) != 0;
#endif
}

template <int... I>
VT_HOST_FN FloatRegister evenEach(FloatRegister a, FloatRegister b, Sequence<I...>) {
    return __builtin_shufflevector(a, b, (2 * I)...);
}
template <int... I>
VT_HOST_FN FloatRegister oddEach(FloatRegister a, FloatRegister b, Sequence<I...>) {
    return __builtin_shufflevector(a, b, (2 * I + 1)...);
}
/// a[first], b[first], a[first + 1], b[first + 1] ..
template <int... I>
VT_HOST_FN FloatRegister chooseEach(FloatRegister a, FloatRegister b, Sequence<I...>) {
    return __builtin_shufflevector(a, b, I...);
}
template <int first, int... I>
VT_HOST_FN FloatRegister interleaveEach(FloatRegister a, FloatRegister b, Sequence<I...>) {
    return __builtin_shufflevector(a, b, (first + I / 2 + I % 2 * lanesPerRegister)...);
}
template <int... I>
VT_HOST_FN FloatRegister afterEach(FloatRegister a, FloatRegister next, Sequence<I...>) {
    return __builtin_shufflevector(a, next, (I + 1)...);
}
template <int... I>
VT_HOST_FN FloatRegister beforeEach(FloatRegister previous, FloatRegister a, Sequence<I...>) {
    return __builtin_shufflevector(previous, a, (I + lanesPerRegister - 1)...);
}

struct Mask {
    IntRegister v;
    friend VT_HOST_INLINE Mask operator&(Mask a, Mask b) { return {a.v & b.v}; }
    friend VT_HOST_INLINE Mask operator|(Mask a, Mask b) { return {a.v | b.v}; }
    friend VT_HOST_INLINE Mask operator!(Mask a) { return {~a.v}; }
    friend VT_HOST_INLINE bool any(Mask mask) { return anyLane(mask.v); }
};

struct Ints {
    IntRegister v;
    VT_HOST_INLINE Ints() = default;
    VT_HOST_INLINE Ints(IntRegister x) : v(x) {}
    VT_HOST_INLINE Ints(int x) : v(x - IntRegister{}) {}

    friend VT_HOST_INLINE Ints operator+(Ints a, Ints b) { return {a.v + b.v}; }
    friend VT_HOST_INLINE Ints operator-(Ints a, Ints b) { return {a.v - b.v}; }
    friend VT_HOST_INLINE Ints operator*(Ints a, Ints b) { return {a.v * b.v}; }
    friend VT_HOST_INLINE Ints operator&(Ints a, Ints b) { return {a.v & b.v}; }
    friend VT_HOST_INLINE Ints operator|(Ints a, Ints b) { return {a.v | b.v}; }
    friend VT_HOST_INLINE Ints operator^(Ints a, Ints b) { return {a.v ^ b.v}; }
    friend VT_HOST_INLINE Ints operator<<(Ints a, int bits) { return {a.v << bits}; }
    friend VT_HOST_INLINE Ints operator>>(Ints a, int bits) { return {a.v >> bits}; }
    friend VT_HOST_INLINE Mask operator<(Ints a, Ints b) { return {a.v < b.v}; }
    friend VT_HOST_INLINE Mask operator>(Ints a, Ints b) { return {a.v > b.v}; }
    friend VT_HOST_INLINE Mask operator<=(Ints a, Ints b) { return {a.v <= b.v}; }
    friend VT_HOST_INLINE Mask operator>=(Ints a, Ints b) { return {a.v >= b.v}; }
    friend VT_HOST_INLINE Mask operator==(Ints a, Ints b) { return {a.v == b.v}; }
    friend VT_HOST_INLINE Mask operator!=(Ints a, Ints b) { return {a.v != b.v}; }
    friend VT_HOST_INLINE Ints select(Mask mask, Ints a, Ints b) { return {mask.v ? a.v : b.v}; }
    friend VT_HOST_INLINE Ints select(bool uniform, Ints a, Ints b) { return uniform ? a : b; }
};

struct Lanes {
    FloatRegister v;
    VT_HOST_INLINE Lanes() = default;
    VT_HOST_INLINE Lanes(FloatRegister x) : v(x) {}
    // x - (+0) keeps every value, the sign of zero too: this is a broadcast.
    VT_HOST_INLINE Lanes(float x) : v(x - FloatRegister{}) {}

    friend VT_HOST_INLINE Lanes operator+(Lanes a, Lanes b) { return {a.v + b.v}; }
    friend VT_HOST_INLINE Lanes operator-(Lanes a, Lanes b) { return {a.v - b.v}; }
    friend VT_HOST_INLINE Lanes operator*(Lanes a, Lanes b) { return {a.v * b.v}; }
    friend VT_HOST_INLINE Lanes operator/(Lanes a, Lanes b) { return {a.v / b.v}; }
    friend VT_HOST_INLINE Lanes operator-(Lanes a) { return {-a.v}; }
    VT_HOST_INLINE Lanes& operator+=(Lanes b) {
        v += b.v;
        return *this;
    }
    friend VT_HOST_INLINE Mask operator<(Lanes a, Lanes b) { return {a.v < b.v}; }
    friend VT_HOST_INLINE Mask operator>(Lanes a, Lanes b) { return {a.v > b.v}; }
    friend VT_HOST_INLINE Mask operator<=(Lanes a, Lanes b) { return {a.v <= b.v}; }
    friend VT_HOST_INLINE Mask operator>=(Lanes a, Lanes b) { return {a.v >= b.v}; }
    friend VT_HOST_INLINE Mask operator==(Lanes a, Lanes b) { return {a.v == b.v}; }
    friend VT_HOST_INLINE Mask operator!=(Lanes a, Lanes b) { return {a.v != b.v}; }
    friend VT_HOST_INLINE Lanes select(Mask mask, Lanes a, Lanes b) { return {mask.v ? a.v : b.v}; }
    friend VT_HOST_INLINE Lanes select(bool uniform, Lanes a, Lanes b) { return uniform ? a : b; }
    friend VT_HOST_INLINE Lanes sqrt(Lanes a) { return {sqrtEach(a.v, EachLane{})}; }
    friend VT_HOST_INLINE Ints bitsOf(Lanes a) { return {(IntRegister)a.v}; }
};

/// Of two registers that hold neighbouring pixels, every second lane: 0, 2, 4 .. and 1, 3, 5 ..
VT_HOST_FN Lanes evenLanes(Lanes a, Lanes b) {
    return {evenEach(a.v, b.v, EachLane{})};
}
VT_HOST_FN Lanes oddLanes(Lanes a, Lanes b) {
    return {oddEach(a.v, b.v, EachLane{})};
}
/// The way back: the lanes of both in turn, the first half of them and the second.
VT_HOST_FN Lanes interleaveLow(Lanes even, Lanes odd) {
    return {interleaveEach<0>(even.v, odd.v, EachLane{})};
}
VT_HOST_FN Lanes interleaveHigh(Lanes even, Lanes odd) {
    return {interleaveEach<lanesPerRegister / 2>(even.v, odd.v, EachLane{})};
}

/// The neighbours of all lanes: lanes 1 and up, then `next`; `previous`, then all but the last.
VT_HOST_FN Lanes lanesAfter(Lanes a, float next) {
    return {afterEach(a.v, Lanes(next).v, EachLane{})};
}
VT_HOST_FN Lanes lanesBefore(float previous, Lanes a) {
    return {beforeEach(Lanes(previous).v, a.v, EachLane{})};
}

VT_HOST_FN Lanes fromBits(Ints a) {
    return {(FloatRegister)a.v};
}
VT_HOST_FN Lanes toFloat(Ints a) {
    return {__builtin_convertvector(a.v, FloatRegister)};
}

/// Toward zero. The value must lie within the range of int: clamp before converting, since what comes out beyond it
/// differs from target to target.
VT_FN int toInt(float a) {
    return static_cast<int>(a);
}
VT_HOST_FN Ints toInt(Lanes a) {
    return {__builtin_convertvector(a.v, IntRegister)};
}

// ---- what a body needs to know of its lane type

template <class V>
struct LaneTraits;
template <>
struct LaneTraits<float> {
    using Int = int;
    static constexpr int width = 1;
};
template <>
struct LaneTraits<Lanes> {
    using Int = Ints;
    static constexpr int width = lanesPerRegister;
};
template <class V>
using IntOf = typename LaneTraits<V>::Int;

/// 0, 1, 2 .. : the number of each lane.
template <class V>
VT_FN IntOf<V> laneNumbers() {
    if constexpr (LaneTraits<V>::width == 1)
        return 0;
    else
        return {countEach(EachLane{})};
}

/// One lane of a value, for the few bodies that end in loops of their own for each pixel.
VT_FN float laneOf(float value, int) {
    return value;
}
VT_FN int laneOf(int value, int) {
    return value;
}
VT_FN bool laneOf(bool mask, int) {
    return mask;
}
VT_HOST_FN float laneOf(Lanes value, int lane) {
    return value.v[lane];
}
VT_HOST_FN bool laneOf(Mask mask, int lane) {
    return mask.v[lane] != 0;
}

template <class V>
requires(LaneTraits<V>::width == 1) VT_FN V load(const float* p, long) {
    return *p;
}
template <class V>
requires(LaneTraits<V>::width > 1) VT_HOST_FN V load(const float* p, long stride) {
    if (stride != 1) return {loadEach(p, stride, EachLane{})};
    V lanes;
    __builtin_memcpy(&lanes.v, p, sizeof lanes.v);
    return lanes;
}
VT_FN void store(float v, float* p, long) {
    *p = v;
}
VT_HOST_FN void store(Lanes v, float* p, long stride) {
    if (stride == 1)
        __builtin_memcpy(p, &v.v, sizeof v.v);
    else
        storeEach(v.v, p, stride, EachLane{});
}
/// p[index] in each lane.
VT_FN float gather(const float* p, int index) {
    return p[index];
}
VT_HOST_FN Lanes gather(const float* p, Ints index) {
    return {gatherEach(p, index.v, EachLane{})};
}

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
