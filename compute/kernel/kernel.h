// What a kernel family includes. The file is compiled once per instruction set; its last line, VT_FAMILY, turns the
// declarations into the tables that the catalogue is made from. docs/kernels.md tells how to write one.
#pragma once

#include "deviceForm.h"
#include "drive.h"

#define VT_PASTE_(a, b) a##b
#define VT_PASTE(a, b) VT_PASTE_(a, b)

// ---- tuples of pixel types, such as 3f_1f: one call of X(kernel, tuple) for each

#define VT_SAME_1(X, K) X(K, 1f) X(K, 2f) X(K, 3f) X(K, 4f)
#define VT_SAME_1_AND_UNSIGNED(X, K) VT_SAME_1(X, K) X(K, 1ui) X(K, 2ui) X(K, 3ui) X(K, 4ui)
#define VT_SAME_2(X, K) X(K, 1f_1f) X(K, 2f_2f) X(K, 3f_3f) X(K, 4f_4f)
#define VT_SAME_3(X, K) X(K, 1f_1f_1f) X(K, 2f_2f_2f) X(K, 3f_3f_3f) X(K, 4f_4f_4f)
#define VT_TO_ONE(X, K) X(K, 1f_1f) X(K, 2f_1f) X(K, 3f_1f) X(K, 4f_1f)
#define VT_PAIRS_FROM(X, K, n) X(K, n##f_1f) X(K, n##f_2f) X(K, n##f_3f) X(K, n##f_4f)
#define VT_PAIRS(X, K) VT_PAIRS_FROM(X, K, 1) VT_PAIRS_FROM(X, K, 2) VT_PAIRS_FROM(X, K, 3) VT_PAIRS_FROM(X, K, 4)
#define VT_COLOUR_PAIRS(X, K) X(K, 3f_3f) X(K, 3f_4f) X(K, 4f_3f) X(K, 4f_4f)

#if VIEWTINT_CUDA

#include "cudaForm.h"

#define VT_FAMILY(family, LIST) LIST(VT_ENTRY_POINTS)

#else

// ---- tables

#define VT_FORM(K, tuple, V, R) \
    &Vellum::Kernels::runLaunch<K, Vellum::Kernels::bodyCounts<K>(#tuple), V, Vellum::Kernels::Reach::R>
#define VT_DEVICE_BODY(K, tuple) &Vellum::Kernels::deviceBody<K, Vellum::Kernels::bodyCounts<K>(#tuple)>
#define VT_TUPLE_TEXT(K, tuple) #tuple,

#if VIEWTINT_BASELINE
// The baseline object also holds the declarations, the one-pixel forms, the packed forms for any stride and the forms
// for the software device.
#define VT_FORMS(K, tuple)                                                                                  \
    Vellum::Kernels::VariantFunctions{                                                                      \
        VT_FORM(K, tuple, Vellum::Kernels::Lanes, unit), VT_FORM(K, tuple, Vellum::Kernels::Lanes, inside), \
        VT_FORM(K, tuple, float, inside), VT_DEVICE_BODY(K, tuple), &Vellum::Kernels::deviceFold<K>},
#define VT_DECLARATION(K) &K##Declaration
#define VT_DECLARE(K, TUPLES)                                                                                       \
    static_assert(Vellum::Kernels::declaresAllFields<K>(),                                                          \
                  "a field of Params is missing in scalars and derived, or one of Results in accumulators");        \
    static constexpr const char* K##Tuples[] = {TUPLES(VT_TUPLE_TEXT, K)};                                          \
    static constexpr Vellum::Kernels::KernelDeclaration K##Declaration{#K,                                          \
                                                                       K::perComponent,                             \
                                                                       K::reduction ? 2 : 1,                        \
                                                                       Vellum::Kernels::hostFormChoice<K>(),        \
                                                                       Vellum::Kernels::takesWholeStrips<K>(),      \
                                                                       Vellum::Kernels::runsInRasterOrder<K>(),     \
                                                                       Vellum::Kernels::hasCostlyPixels<K>(),       \
                                                                       Vellum::Kernels::hasParameterBlock<K>(),     \
                                                                       sizeof(K::Params),                           \
                                                                       Vellum::Kernels::accumulatorBytes<K>(),      \
                                                                       Vellum::Kernels::declareImages(K::Images{}), \
                                                                       Vellum::Kernels::scalarsOf<K>(),             \
                                                                       Vellum::Kernels::derivedOf<K>(),             \
                                                                       Vellum::Kernels::accumulatorsOf<K>(),        \
                                                                       &Vellum::Kernels::writeDefaults<K>,          \
                                                                       &Vellum::Kernels::derive<K>,                 \
                                                                       &Vellum::Kernels::startResults<K>,           \
                                                                       &Vellum::Kernels::foldResults<K>,            \
                                                                       K##Tuples,                                   \
                                                                       sizeof K##Tuples / sizeof *K##Tuples};
#else
#define VT_FORMS(K, tuple)                                                                                        \
    Vellum::Kernels::VariantFunctions{VT_FORM(K, tuple, Vellum::Kernels::Lanes, unit), nullptr, nullptr, nullptr, \
                                      nullptr},
#define VT_DECLARATION(K) nullptr
#define VT_DECLARE(K, TUPLES)
#endif

#define VT_VARIANTS(K, TUPLES) static constexpr Vellum::Kernels::VariantFunctions K##Variants[] = {TUPLES(VT_FORMS, K)};
#define VT_ENTRY(K, TUPLES) Vellum::Kernels::KernelEntry{VT_DECLARATION(K), K##Variants},

/// Exports the kernels of a family, given as a list macro: #define LIST(K) K(copyKernel, VT_SAME_2) K(...)
#define VT_FAMILY(family, LIST)                                                         \
    LIST(VT_DECLARE)                                                                    \
    LIST(VT_VARIANTS)                                                                   \
    static constexpr Vellum::Kernels::KernelEntry family##Entries[] = {LIST(VT_ENTRY)}; \
    extern const Vellum::Kernels::FamilyTable VT_PASTE(family##_, VIEWTINT_ISA);        \
    constinit const Vellum::Kernels::FamilyTable VT_PASTE(family##_, VIEWTINT_ISA){     \
        #family, sizeof family##Entries / sizeof *family##Entries, family##Entries};

#endif
