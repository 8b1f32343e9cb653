#include <algorithm>
#include <deque>
#include <mutex>
#include <string>
#include <utility>

#include "compute/Catalogue.h"
#include "compute/ParameterRecord.h"
#include "compute/PrecompiledKernels.h"

namespace Vellum::Kernels {

namespace {

std::mutex catalogueMutex;
std::vector<const Family*> catalogue;

/// What the registry points to. Deques, because nothing in them moves.
std::deque<std::string> keys;
std::deque<std::vector<std::byte>> records;

/// The forms for the CPU are functions of this program, so there is nothing to store for them; nor is there where the
/// build had no compiler for GPUs.
void registerVariant(const Family& family, const CatalogueEntry& entry, int variant, KernelTarget target,
                     const std::vector<std::byte>& record) {
    const char* slot = Vellum::JIT::placeholderSlot.data();
    constexpr auto size = static_cast<std::int32_t>(Vellum::JIT::placeholderSlot.size());
    const StoredText* text = target == KernelTarget::cuda ? family.text(entry, variant) : nullptr;
    const StoredText none{nullptr, nullptr, reinterpret_cast<const unsigned char*>(slot), size, size};
    const StoredText& first = text ? *text : none;
    Vellum::JIT::AddPrecompiledKernel(keys.emplace_back(entry.key(variant, target).text()), first.data,
                                      first.storedBytes, first.bytes, slot, size, size, record.data(),
                                      static_cast<std::int32_t>(record.size()));
}

void registerVariants(const Family& family) {
    for (const CatalogueEntry& entry : family.kernels()) {
        const auto& record = records.emplace_back(ParameterRecord::of(entry).toBytes());
        for (int variant = 0; variant < static_cast<int>(entry.tuples().size()); ++variant)
            for (const KernelTarget target : kernelTargets)
                registerVariant(family, entry, variant, target, record);
    }
}

}  // namespace

void registerFamilies(std::initializer_list<const Family*> families) {
    const std::scoped_lock lock(catalogueMutex);
    for (const Family* family : families)
        if (std::find(catalogue.begin(), catalogue.end(), family) == catalogue.end()) {
            catalogue.push_back(family);
            registerVariants(*family);
        }
}

std::vector<const Family*> families() {
    const std::scoped_lock lock(catalogueMutex);
    auto list = catalogue;
    std::sort(list.begin(), list.end(), [](const Family* a, const Family* b) {
        return std::make_pair(a->library(), a->name()) < std::make_pair(b->library(), b->name());
    });
    return list;
}

const CatalogueEntry* findKernel(std::string_view name) {
    const std::scoped_lock lock(catalogueMutex);
    for (const Family* family : catalogue)
        if (const CatalogueEntry* entry = family->find(name)) return entry;
    return nullptr;
}

}  // namespace Vellum::Kernels
