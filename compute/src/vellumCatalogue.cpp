#include "compute/Catalogue.h"

#include <algorithm>
#include <atomic>

namespace Vellum::Kernels {

const char* toString(Pattern pattern) {
    switch (pattern) {
        case Pattern::point:
            return "point";
        case Pattern::axis:
            return "axis";
        case Pattern::rectangle:
            return "rectangle";
        case Pattern::random:
            return "random";
    }
    return "unknown";
}

const char* toString(EdgeMethod method) {
    switch (method) {
        case EdgeMethod::none:
            return "none";
        case EdgeMethod::clamped:
            return "clamped";
        case EdgeMethod::constant:
            return "constant";
    }
    return "unknown";
}

const char* toString(ScalarType type) {
    switch (type) {
        case ScalarType::real:
            return "float";
        case ScalarType::integer:
            return "int";
        case ScalarType::boolean:
            return "bool";
    }
    return "unknown";
}

std::string typeText(ScalarType type, int elements) {
    return toString(type) + (elements == 1 ? "" : "[" + std::to_string(elements) + "]");
}

std::vector<std::byte> defaultParameters(const KernelDeclaration& declaration) {
    std::vector<std::byte> parameters(static_cast<std::size_t>(declaration.parameterBytes));
    declaration.writeDefaults(parameters.data());
    return parameters;
}

CatalogueEntry::CatalogueEntry(const KernelDeclaration& declaration)
    : declaration_(&declaration), identity_(KernelIdentity::of(declaration)) {
    for (int i = 0; i < declaration.tupleCount; ++i)
        tuples_.push_back(PixelTypes::parse(declaration.tuples[i]));
}

int CatalogueEntry::variant(const PixelTypes& types) const {
    const auto found = std::find(tuples_.begin(), tuples_.end(), types);
    return found == tuples_.end() ? -1 : static_cast<int>(found - tuples_.begin());
}

LaunchFunction CatalogueEntry::packedForm(int variant, bool unitStride) const {
    if (!unitStride) return forms_[0][variant].anyStride;
    return forms_[static_cast<int>(Vellum::CodeGen::instructionSet())][variant].unitStride;
}

Family::Family(std::string_view library, std::initializer_list<const FamilyTable*> tables, const StoredTexts& texts)
    : library_(library), texts_(texts) {
    const FamilyTable& baseline = **tables.begin();
    name_ = baseline.family;
    for (int k = 0; k < baseline.kernelCount; ++k) {
        CatalogueEntry entry(*baseline.kernels[k].declaration);
        for (const FamilyTable* table : tables)
            entry.forms_.push_back(table->kernels[k].variants);
        kernels_.push_back(std::move(entry));
    }
}

const CatalogueEntry* Family::find(std::string_view kernel) const {
    const auto found = std::find_if(kernels_.begin(), kernels_.end(),
                                    [&](const CatalogueEntry& entry) { return entry.declaration().name == kernel; });
    return found == kernels_.end() ? nullptr : &*found;
}

const StoredText* Family::text(const CatalogueEntry& entry, int variant) const {
    const std::string tuple = entry.tuples()[static_cast<std::size_t>(variant)].text();
    for (int i = 0; i < texts_.count; ++i)
        if (tuple == texts_.list[i].tuple && std::string_view(entry.declaration().name) == texts_.list[i].kernel)
            return &texts_.list[i];
    return nullptr;
}

}  // namespace Vellum::Kernels

namespace Vellum::CodeGen {

namespace {

InstructionSet widestOfMachine() {
    __builtin_cpu_init();
#if VIEWTINT_HAS_AVX512
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl") &&
        __builtin_cpu_supports("avx512bw"))
        return InstructionSet::avx512;
#endif
    return __builtin_cpu_supports("avx2") ? InstructionSet::avx2 : InstructionSet::sse2;
}

InstructionSet available() {
    static const InstructionSet set = widestOfMachine();
    return set;
}

std::atomic<InstructionSet> limit{InstructionSet::avx512};
std::atomic<bool> onePixelCode{false};

}  // namespace

InstructionSet instructionSet() {
    return std::min(available(), limit.load(std::memory_order_relaxed));
}

void limitInstructionSet(InstructionSet newLimit) {
    limit = newLimit;
}

const char* toString(InstructionSet set) {
    switch (set) {
        case InstructionSet::sse2:
            return "SSE2";
        case InstructionSet::avx2:
            return "AVX2";
        case InstructionSet::avx512:
            return "AVX-512";
    }
    return "unknown";
}

std::vector<InstructionSet> availableInstructionSets() {
    std::vector<InstructionSet> sets;
    for (const InstructionSet set : allInstructionSets)
        if (set <= available()) sets.push_back(set);
    return sets;
}

void serveOnePixelCode(bool enabled) {
    onePixelCode = enabled;
}

bool onePixelCodeServed() {
    return onePixelCode.load(std::memory_order_relaxed);
}

}  // namespace Vellum::CodeGen
