#include <gtest/gtest.h>

#include <functional>
#include <set>

#include "compute/Exception.h"
#include "compute/Hash.h"
#include "tests/harness/KernelHarness.h"

namespace ViewTint::Tests {

using Cobalt::Device::APIEnum;
using Vellum::CodeGen::Flags;
using Vellum::Kernels::KernelDeclaration;
using Vellum::Kernels::KernelIdentity;
using Vellum::Kernels::KernelKey;
using Vellum::Kernels::KernelTarget;
using Vellum::Kernels::nameHash;
using Vellum::Kernels::PixelTypes;

namespace {

const Vellum::Kernels::CatalogueEntry& axisSum() {
    return *Vellum::Kernels::findKernel("testConstantAxisSumKernel");
}

/// Of testConstantAxisSumKernel, worked out with another implementation of the hash.
const std::string digits = "98777ec683ee2cf70826b3f5fb6745f6d6323c72ec7358bcb7acedcd56d24fc0";

}  // namespace

TEST(KernelKey, theHashIsTheSameEverywhere) {
    EXPECT_EQ(nameHash("radius"), 0xdebf1b8774c1cec0u);
    EXPECT_EQ(nameHash(""), 0xefd01f60ba992926u);
    EXPECT_EQ(nameHash("n479"), 0x174721fd7ce756au) << "raised to 15 digits";
    EXPECT_EQ(axisSum().identity().text(), digits);
}

TEST(KernelKey, aListOfPixelTypesHoldsAsManyAsAKernelTakes) {
    std::string text = "4ui";
    for (int i = 1; i < Vellum::Kernels::mostImages; ++i)
        text += i % 2 ? "_3f" : "_1ui";
    EXPECT_EQ(PixelTypes::parse(text).text(), text);
    EXPECT_THROW(PixelTypes::parse(text + "_1f"), Vellum::Compute::Exception);
}

TEST(KernelKey, everyPartOfADeclarationCounts) {
    const std::vector<std::function<void(KernelDeclaration&)>> changes{
        [](auto& d) { d.name = "testConstantAxisSumKerneL"; },
        [](auto& d) { d.perComponent = false; },
        [](auto& d) { d.passes = 2; },
        [](auto& d) { d.images.list[0].name = "B"; },
        [](auto& d) { d.images.list[0].written = true; },
        [](auto& d) { d.images.list[0].pattern = Vellum::Kernels::Pattern::rectangle; },
        [](auto& d) { d.images.list[0].edge = Vellum::Kernels::EdgeMethod::clamped; },
        [](auto& d) { d.images.count = 1; },
        [](auto& d) { d.scalars.list[1].name = "reach"; },
        [](auto& d) { d.scalars.list[1].type = Vellum::Kernels::ScalarType::real; },
        [](auto& d) { std::swap(d.scalars, d.derived); },
        [](auto& d) { std::swap(d.scalars, d.accumulators); },
        [](auto& d) {
            d.writeDefaults = [](void* parameters) {
                axisSum().declaration().writeDefaults(parameters);
                static_cast<std::byte*>(parameters)[4] = std::byte{3};
            };
        }};
    std::set<std::string> identities{digits};
    for (const auto& change : changes) {
        KernelDeclaration changed = axisSum().declaration();
        change(changed);
        EXPECT_TRUE(identities.insert(KernelIdentity::of(changed).text()).second) << "change " << identities.size();
    }
}

TEST(KernelKey, textAndBack) {
    const KernelKey key{axisSum().identity(), KernelTarget::cpuPacked, PixelTypes::parse("3f_1f_4ui_2f")};
    EXPECT_EQ(key.text(), digits + "_2_2_19_3f_1f_4ui_2f");
    EXPECT_EQ(KernelKey::parse(key.text()), key);
    EXPECT_EQ(KernelKey::parse(digits + "_2_2_1_3f").target, KernelTarget::cpuOnePixel);
    EXPECT_EQ(KernelKey::parse(digits + "_4_8_1_3f").target, KernelTarget::cuda);
    EXPECT_NE(KernelKey::parse(digits + "_2_2_1_1f"), KernelKey::parse(digits + "_2_2_1_1f_1f"));

    std::string capital = digits;
    capital[5] = 'E';
    for (const std::string& text :
         {std::string(), digits, digits + "_2_2_19", digits + "_2_2_19_", digits + "_2_2_2_1f", digits + "_2_2_1f",
          digits + "_2_2_1_1f_", digits + "_2_2_1_5f", digits + "_2_2_1_1F", digits + "_2_2_1_1f 1f",
          digits.substr(1) + "_2_2_1_1f", digits + "0_2_2_1_1f", capital + "_2_2_1_1f"})
        EXPECT_THROW(KernelKey::parse(text), Vellum::Compute::Exception) << text;
}

TEST(KernelKey, tagsHoldTheNumbersOfDevicesAndFlags) {
    for (const auto& [api, flags, tag] : {std::tuple{APIEnum::Host, Flags::onePixel, "2_2_1"},
                                          {APIEnum::Host, Flags::packed, "2_2_19"},
                                          {APIEnum::CUDA, Flags::onePixel, "4_8_1"},
                                          {APIEnum::CUDA, Flags::packed, "4_8_1"}})
        EXPECT_EQ(Vellum::Kernels::tagOf(Vellum::Kernels::targetOf(api, flags)), tag);
    EXPECT_EQ(static_cast<int>(APIEnum::Host), 2);
    EXPECT_EQ(static_cast<int>(APIEnum::CUDA), 4);
    EXPECT_EQ(static_cast<int>(Flags::packed), 19);
}

TEST(KernelKey, aMadeKernelKnowsItsKey) {
    const Box box{0, 0, 4, 4};
    const TestImage a(Pixels(box, 3), Arrangement::planar), o(Pixels(box, 3), Arrangement::packed);
    const std::vector<const Image*> images{&a.image(), &o.image()};
    using Vellum::JIT::Kernel;
    EXPECT_EQ(Kernel::Make(axisSum(), images, Flags::onePixel)->key().text(), digits + "_2_2_1_3f_3f");
    EXPECT_EQ(Kernel::Make(axisSum(), images, Flags::packed)->key().text(), digits + "_2_2_19_3f_3f");
    EXPECT_EQ(Kernel::Make(axisSum(), images, Flags::packed, APIEnum::CUDA)->key().text(), digits + "_4_8_1_3f_3f");

    Vellum::JIT::KernelExecutionContext context(Kernel::Make(axisSum(), images, Flags::packed));
    EXPECT_EQ(context.get<int>({{}, nameHash("radius")}), 2) << "by its hash alone";
    EXPECT_THROW(context.getMarshalledParamThrow({{}, nameHash("Radius")}), Vellum::Compute::Exception);
}

}  // namespace ViewTint::Tests
