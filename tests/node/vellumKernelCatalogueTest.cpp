#include <algorithm>
#include <set>

#include "compute/Catalogue.h"
#include "compute/Hash.h"
#include "compute/ParameterRecord.h"
#include "compute/PrecompiledKernels.h"
#include "tests/node/NodeTest.h"

namespace ViewTint::Tests {

using Vellum::Kernels::CatalogueEntry;
using Vellum::Kernels::KernelKey;
using Vellum::Kernels::KernelTarget;
using Vellum::Kernels::ParameterRecord;
using Vellum::Kernels::ScalarDeclaration;
using Vellum::Kernels::ScalarDeclarations;

namespace {

/// All kernels: the node of the fixture has entered them.
class KernelCatalogue : public NodeTest {
protected:
    std::vector<const CatalogueEntry*> entries() const {
        std::vector<const CatalogueEntry*> list;
        for (const auto* family : Vellum::Kernels::families())
            for (const CatalogueEntry& entry : family->kernels())
                list.push_back(&entry);
        return list;
    }
};

void expectInRecord(const ParameterRecord& record, const ScalarDeclarations& scalars, bool inAccumulator) {
    for (int i = 0; i < scalars.count; ++i) {
        const ScalarDeclaration& scalar = scalars.list[i];
        const auto* found = record.scalar(Vellum::Kernels::nameHash(scalar.name));
        ASSERT_NE(found, nullptr) << scalar.name;
        EXPECT_EQ(found->offset, static_cast<unsigned>(scalar.offset)) << scalar.name;
        EXPECT_EQ(found->type, scalar.type) << scalar.name;
        EXPECT_EQ(found->inAccumulator, inAccumulator) << scalar.name;
    }
}

/// What lies between fields must be what their alignment asks for.
void expectNoGaps(std::vector<ScalarDeclaration> fields, int bytes) {
    const auto elementBytes = [](const ScalarDeclaration& field) {
        return field.bytes / (field.vectorWidth * field.arrayLength);
    };
    std::ranges::sort(fields, {}, &ScalarDeclaration::offset);
    int end = 0;
    int alignment = 1;
    const auto aligned = [](int offset, int to) { return (offset + to - 1) / to * to; };
    for (const ScalarDeclaration& field : fields) {
        EXPECT_EQ(field.offset, aligned(end, elementBytes(field))) << field.name;
        end = field.offset + field.bytes;
        alignment = std::max(alignment, elementBytes(field));
    }
    EXPECT_EQ(bytes, aligned(end, alignment));
}

}  // namespace

TEST_F(KernelCatalogue, everyKernelHasItsRecord) {
    ASSERT_FALSE(entries().empty());
    for (const CatalogueEntry* entry : entries()) {
        SCOPED_TRACE(entry->declaration().name);
        const auto record = ParameterRecord::of(*entry);
        EXPECT_EQ(ParameterRecord::parse(record.toBytes()), record);
        expectInRecord(record, entry->declaration().scalars, false);
        expectInRecord(record, entry->declaration().accumulators, true);
    }
}

TEST_F(KernelCatalogue, everyByteOfTheBlocksIsDeclared) {
    for (const CatalogueEntry* entry : entries()) {
        const auto& declaration = entry->declaration();
        SCOPED_TRACE(declaration.name);
        std::vector<ScalarDeclaration> fields;
        for (const auto* list : {&declaration.scalars, &declaration.derived})
            fields.insert(fields.end(), list->list, list->list + list->count);
        if (!fields.empty() || declaration.parameterBytes > 1)  // an empty struct has one byte
            expectNoGaps(fields, declaration.parameterBytes);
        const auto& results = declaration.accumulators;
        expectNoGaps({results.list, results.list + results.count}, declaration.accumulatorBytes);
    }
}

TEST_F(KernelCatalogue, everyVariantIsFoundByItsKey) {
    std::set<std::string> keys;
    for (const CatalogueEntry* entry : entries()) {
        for (int variant = 0; variant < std::ssize(entry->tuples()); ++variant) {
            for (const KernelTarget target : {KernelTarget::cpuOnePixel, KernelTarget::cpuPacked}) {
                const std::string key = entry->key(variant, target).text();
                EXPECT_TRUE(keys.insert(key).second) << entry->declaration().name;
                EXPECT_NE(Vellum::JIT::findPrecompiledKernel(key), nullptr) << entry->declaration().name;
                EXPECT_EQ(entry->variant(KernelKey::parse(key).types), variant) << key;
            }
        }
    }
}

TEST_F(KernelCatalogue, aSecondNodeEntersNothing) {
    const std::size_t before = Vellum::JIT::precompiledKernelCount();
    TestNode secondHost;
    const TestedNode second(&secondHost);
    EXPECT_EQ(Vellum::JIT::precompiledKernelCount(), before);
}

}  // namespace ViewTint::Tests
