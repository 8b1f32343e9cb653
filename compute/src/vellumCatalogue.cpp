#include "compute/Catalogue.h"

#include <algorithm>
#include <atomic>
#include <mutex>

#include "compute/Exception.h"

namespace Vellum::Kernels {

namespace {

constexpr int bitsPerType = 8;
constexpr int unsignedBit = 8;

std::mutex catalogueMutex;
std::vector<const Family*> catalogue;

}  // namespace

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

const char* toString(EdgeMethod edge) {
    switch (edge) {
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

PixelTypes PixelTypes::parse(std::string_view tuple) {
    PixelTypes types;
    std::size_t at = 0;
    while (at <= tuple.size()) {
        const std::size_t end = std::min(tuple.find('_', at), tuple.size());
        const std::string_view token = tuple.substr(at, end - at);
        const bool isUnsigned = token.size() == 3 && token.substr(1) == "ui";
        const bool isFloat = token.size() == 2 && token[1] == 'f';
        if ((!isUnsigned && !isFloat) || token[0] < '1' || token[0] > '4' || types.size_ == mostImages)
            Vellum::Compute::fail("\"" + std::string(tuple) + "\" is not a list of pixel types such as 3f_1f.");
        types.append(token[0] - '0', isUnsigned);
        at = end + 1;
    }
    return types;
}

void PixelTypes::append(int components, bool isUnsigned) {
    if (components < 1 || components > 4 || size_ == mostImages)
        Vellum::Compute::fail("A kernel takes up to " + std::to_string(mostImages) + " images of 1 to 4 components.");
    const auto type = static_cast<std::uint64_t>(components | (isUnsigned ? unsignedBit : 0));
    code_ |= type << (bitsPerType * size_);
    ++size_;
}

std::string PixelTypes::text() const {
    std::string text;
    for (int i = 0; i < size_; ++i) {
        const auto type = static_cast<int>(code_ >> (bitsPerType * i)) & 0xff;
        if (i) text += '_';
        text += std::to_string(type & ~unsignedBit) + (type & unsignedBit ? "ui" : "f");
    }
    return text;
}

CatalogueEntry::CatalogueEntry(std::string_view family, const KernelDeclaration& declaration)
    : family_(family), declaration_(&declaration) {
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

Family::Family(std::initializer_list<const FamilyTable*> tables) {
    const FamilyTable& baseline = **tables.begin();
    name_ = baseline.family;
    for (int k = 0; k < baseline.kernelCount; ++k) {
        CatalogueEntry entry(name_, *baseline.kernels[k].declaration);
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

void registerFamilies(std::initializer_list<const Family*> families) {
    const std::scoped_lock lock(catalogueMutex);
    for (const Family* family : families)
        if (std::find(catalogue.begin(), catalogue.end(), family) == catalogue.end()) catalogue.push_back(family);
}

std::vector<const Family*> families() {
    const std::scoped_lock lock(catalogueMutex);
    auto list = catalogue;
    std::sort(list.begin(), list.end(), [](const Family* a, const Family* b) { return a->name() < b->name(); });
    return list;
}

const CatalogueEntry* findKernel(std::string_view name) {
    const std::scoped_lock lock(catalogueMutex);
    for (const Family* family : catalogue)
        if (const CatalogueEntry* entry = family->find(name)) return entry;
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
