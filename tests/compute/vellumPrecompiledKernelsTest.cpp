#include <gtest/gtest.h>
#include <zlib.h>

#include <deque>

#include "compute/Catalogue.h"
#include "compute/Exception.h"
#include "compute/ParameterRecord.h"
#include "compute/PrecompiledKernels.h"

namespace Vellum::Kernels {
extern const Family testPatterns;
}

namespace ViewTint::Tests {

using Vellum::JIT::AddPrecompiledKernel;
using Vellum::JIT::findPrecompiledKernel;
using Vellum::JIT::precompiledKernel;
using Vellum::JIT::PrecompiledKernel;
using Vellum::JIT::precompiledKernelCount;

namespace {

/// The registry keeps pointers only.
std::deque<std::string> kept;

std::string deflated(const std::string& text) {
    uLongf size = compressBound(text.size());
    std::string stream(size, '\0');
    compress2(reinterpret_cast<Bytef*>(stream.data()), &size, reinterpret_cast<const Bytef*>(text.data()), text.size(),
              Z_BEST_COMPRESSION);
    stream.resize(size);
    return stream;
}

/// Enters a variant whose slot 1 is `stored` and inflates to `bytes`.
const PrecompiledKernel& add(const std::string& key, const std::string& stored, std::int32_t storedBytes,
                             std::int32_t bytes) {
    const char* data = kept.emplace_back(stored).data();
    AddPrecompiledKernel(kept.emplace_back(key), data, storedBytes, bytes, "12", 2, 2, "", 0);
    return precompiledKernel(key);
}

const PrecompiledKernel& add(const std::string& key, const std::string& stored, std::size_t bytes) {
    return add(key, stored, static_cast<std::int32_t>(stored.size()), static_cast<std::int32_t>(bytes));
}

std::string textOf(std::span<const std::byte> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace

TEST(PrecompiledKernels, slotsAreRawOrInflated) {
    std::string text;
    for (int i = 0; i < 1000; ++i)
        text += "mad.f32 %f" + std::to_string(i % 37) + ";\n";
    const std::string stream = deflated(text);
    ASSERT_LT(stream.size(), text.size());
    const auto& inflated = add("inflated", stream, text.size());
    EXPECT_EQ(textOf(inflated.slot1()), text);
    EXPECT_EQ(inflated.slot1().data(), inflated.slot1().data()) << "inflated once";
    EXPECT_TRUE(inflated.hasGpuBody());
    EXPECT_EQ(textOf(inflated.slot2()), "12");
    EXPECT_EQ(textOf(add("raw", text, text.size()).slot1()), text);

    EXPECT_FALSE(add("placeholder", "12", 2).hasGpuBody());
    EXPECT_TRUE(add("twoOthers", "13", 2).hasGpuBody());
    EXPECT_TRUE(add("longer", "123", 3).hasGpuBody());
}

TEST(PrecompiledKernels, damageIsFoundAtTheFirstUse) {
    const std::string text(5000, 'x');
    const std::string stream = deflated(text);
    std::string flipped = stream;
    flipped[stream.size() / 2] ^= 0x10;
    const std::int32_t stored = static_cast<std::int32_t>(stream.size());
    const std::vector<const PrecompiledKernel*> damaged{&add("flipped", flipped, text.size()),
                                                        &add("tooFew", stream, text.size() - 1),
                                                        &add("tooMany", stream, text.size() + 1),
                                                        &add("truncated", stream, stored - 1, 5000),
                                                        &add("trailing", stream + "x", text.size()),
                                                        &add("huge", stream, stored, 0x7fffffff),
                                                        &add("negative", stream, -4, -4),
                                                        &add("negativeStored", stream, -4, 5000),
                                                        &add("noBytes", stream, stored, 0)};
    for (const PrecompiledKernel* kernel : damaged) {
        for (int use = 0; use < 2; ++use) {
            try {
                kernel->slot1();
                ADD_FAILURE() << kernel->key();
            } catch (const Vellum::Compute::Exception& exception) {
                EXPECT_NE(Cobalt::Base::userMessage(exception).find(kernel->key()), std::string::npos);
            }
        }
        EXPECT_EQ(textOf(kernel->slot2()), "12") << "the other slot is as it should be";
    }
}

TEST(PrecompiledKernels, keysAreMatchedWhole) {
    add("digits_2_2_1_1f_1f_1f_1f", "four tokens", 11);
    EXPECT_EQ(findPrecompiledKernel("digits_2_2_1_1f_1f_1f"), nullptr);
    EXPECT_EQ(findPrecompiledKernel("digits_2_2_1_1f_1f_1f_1f_1f"), nullptr);
    EXPECT_THROW(precompiledKernel("digits_2_2_1_1f"), Vellum::Compute::Exception);
    add("digits_2_2_1_1f", "one token", 9);
    EXPECT_EQ(textOf(precompiledKernel("digits_2_2_1_1f").slot1()), "one token");
    EXPECT_EQ(textOf(precompiledKernel("digits_2_2_1_1f_1f_1f_1f").slot1()), "four tokens");
    EXPECT_EQ(textOf(add("digits_2_2_1_1f", "again", 5).slot1()), "one token") << "the first stays";
}

TEST(PrecompiledKernels, familiesEnterTheirVariantsOnce) {
    const auto& entry = *Vellum::Kernels::findKernel("testAxisSumKernel");
    for (int variant = 0; variant < 4; ++variant) {
        for (const auto target :
             {Vellum::Kernels::KernelTarget::cpuOnePixel, Vellum::Kernels::KernelTarget::cpuPacked}) {
            const auto& kernel = precompiledKernel(entry.key(variant, target).text());
            EXPECT_FALSE(kernel.hasGpuBody());
            EXPECT_EQ(textOf(kernel.slot1()) + textOf(kernel.slot2()), "1212");
            EXPECT_EQ(Vellum::Kernels::ParameterRecord::parse(kernel.record()),
                      Vellum::Kernels::ParameterRecord::of(entry));
        }
        EXPECT_EQ(textOf(precompiledKernel(entry.key(variant, Vellum::Kernels::KernelTarget::cuda).text()).slot2()),
                  "12");
    }
    const std::size_t before = precompiledKernelCount();
    Vellum::Kernels::registerFamilies({&Vellum::Kernels::testPatterns});
    EXPECT_EQ(precompiledKernelCount(), before);
}

}  // namespace ViewTint::Tests
