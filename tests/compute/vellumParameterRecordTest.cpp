#include <gtest/gtest.h>

#include "compute/Catalogue.h"
#include "compute/Exception.h"
#include "compute/Hash.h"
#include "compute/ParameterRecord.h"

namespace ViewTint::Tests {

using Vellum::Kernels::findKernel;
using Vellum::Kernels::ParameterRecord;

namespace {

using Bytes = std::vector<std::byte>;

/// Bytes written out by hand.
struct HandWritten {
    Bytes bytes;

    HandWritten& u8(int value) {
        bytes.push_back(static_cast<std::byte>(value));
        return *this;
    }
    HandWritten& u32(std::initializer_list<unsigned> values) {
        for (const unsigned value : values)
            u8(value & 0xff).u8(value >> 8 & 0xff).u8(value >> 16 & 0xff).u8(value >> 24);
        return *this;
    }
    HandWritten& text(std::string_view text) {
        u32({static_cast<unsigned>(text.size()), 0});
        for (const char letter : text)
            u8(letter);
        return *this;
    }
};

constexpr const char* a = "oda15c58c265950bd";
constexpr const char* radius = "odebf1b8774c1cec0";

/// testConstantAxisSumKernel: reads A along an axis with a constant edge, writes O; bool horizontal, int radius. The
/// names were hashed with another implementation.
HandWritten expected() {
    HandWritten record;
    record.text("o6b7843e25886ca00").u32({1, 1, 88, 0});
    record.u32({2, 0});
    record.text(a).u32({0, 2});
    record.text("o26ca3a8700a874d2").u32({1, 1});
    record.u32({2, 0});
    record.text("oade2847446ff8fcc").text("oc0bf7b72da80d273").u32({1, 0, 1, 4}).u8(0).u32({1, 1});
    record.text("o78bb37308ead3636").text(radius).u32({4, 4, 1, 3}).u8(0).u32({1, 1});
    record.u32({4, 0});
    record.text(std::string(a) + "rangedAxisMask").u32({4, 0, 16, 3, 1, 1});
    record.text(std::string(a) + "rangeMin").u32({4, 0, 20, 3, 1, 1});
    record.text(std::string(a) + "rangeMax").u32({4, 0, 28, 3, 1, 1});
    record.text(std::string(a) + "constEdgeColor").u32({16, 0, 36, 1, 4, 1});
    record.u32({0, 0});
    return record;
}

std::string refusalOf(const Bytes& bytes) {
    try {
        ParameterRecord::parse(bytes);
    } catch (const Vellum::Compute::Exception& exception) {
        return Cobalt::Base::userMessage(exception);
    }
    return "";
}

ParameterRecord recordOf(const char* kernel) {
    return ParameterRecord::of(*findKernel(kernel));
}

}  // namespace

TEST(ParameterRecord, isWrittenByteForByte) {
    EXPECT_EQ(recordOf("testConstantAxisSumKernel").toBytes(), expected().bytes);
    EXPECT_EQ(ParameterRecord::parse(expected().bytes), recordOf("testConstantAxisSumKernel"));
}

TEST(ParameterRecord, fieldsFollowFromTheDeclaration) {
    const auto hiddenOf = [](const char* kernel) {
        std::string list;
        for (const auto& field : recordOf(kernel).hidden)
            list += field.name.substr(17) + " " + std::to_string(field.offset) + " x" +
                    std::to_string(field.vectorWidth) + "; ";
        return list;
    };
    EXPECT_EQ(hiddenOf("testCornersKernel"), "rangeMin 20 x2; rangeMax 28 x2; ");
    EXPECT_EQ(hiddenOf("testRunningSumKernel"),
              "rangedAxisMask 16 x1; rangeMin 20 x1; rangeMax 28 x1; "
              "rangedAxisMask 52 x1; rangeMin 56 x1; rangeMax 64 x1; ")
        << "the second image follows after 36 bytes";
    EXPECT_EQ(hiddenOf("testConstantDisplacedKernel"), "constEdgeColor 36 x4; ") << "any pixel, so no range";
    EXPECT_EQ(recordOf("testConstantDisplacedKernel").parameterBlockBytes, 16u + 3 * 36);

    EXPECT_FALSE(findKernel("testDisplacedKernel")->hasParameterBlock());
    EXPECT_EQ(recordOf("testDisplacedKernel").parameterBlockBytes, 0u);
    EXPECT_TRUE(findKernel("testConstantDisplacedKernel")->hasParameterBlock());
    EXPECT_TRUE(findKernel("testMathKernel")->hasParameterBlock()) << "it has scalars";

    const auto record = recordOf("testConstantAxisSumKernel");
    ASSERT_NE(record.scalar(Vellum::Kernels::nameHash("radius")), nullptr);
    EXPECT_EQ(record.scalar(Vellum::Kernels::nameHash("radius"))->offset, 4u);
    EXPECT_EQ(record.scalar(Vellum::Kernels::nameHash("A")), nullptr);
}

TEST(ParameterRecord, truncatedOrTooLong) {
    Bytes bytes = expected().bytes;
    for (std::size_t size = 0; size < bytes.size(); ++size)
        EXPECT_NE(refusalOf({bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size)}).find("too early"),
                  std::string::npos)
            << size;
    bytes.push_back({});
    EXPECT_NE(refusalOf(bytes).find("1 bytes follow"), std::string::npos) << refusalOf(bytes);
}

TEST(ParameterRecord, damaged) {
    // Places in the first fields: 8 + 17 for the kernel's id, then four numbers, then the images.
    const auto withByte = [](std::size_t place, int value) {
        Bytes bytes = expected().bytes;
        bytes.at(place) = static_cast<std::byte>(value);
        return refusalOf(bytes);
    };
    const std::string prefix = "The parameter record of a kernel is damaged at ";
    EXPECT_EQ(withByte(25, 3), prefix + "\"passes\": it is 3, not 1 to 2.");
    EXPECT_EQ(withByte(29, 2), prefix + "\"per component\": it is 2, not 0 to 1.");
    EXPECT_EQ(withByte(8, 'p'), prefix + "\"kernel id\": it is \"p6b7843e25886ca00\", not a hashed name.");
    EXPECT_EQ(withByte(9, '0'), prefix + "\"kernel id\": it is \"o0b7843e25886ca00\", not a hashed name.");
    EXPECT_EQ(withByte(49 + 25 + 4, 5), prefix + "\"pattern\" of image 1: it is 5, not 1 to 4.");
    EXPECT_EQ(withByte(expected().bytes.size() - 1, 1), prefix + "\"terminator\": it is 72057594037927936, not 0.");
    EXPECT_NE(withByte(7, 1).find("\"kernel id\": the record ends"), std::string::npos) << "a text of 2^56 letters";
    EXPECT_NE(withByte(48, 1).find("of image 3: "), std::string::npos) << "2^56 images";

    const auto with = [](auto change) {
        ParameterRecord record = recordOf("testConstantAxisSumKernel");
        change(record);
        const std::string message = refusalOf(record.toBytes());
        return message.substr(0, message.find(", which"));
    };
    using Vellum::Kernels::ScalarType;
    const std::string theRadius = radius;
    EXPECT_EQ(with([](auto& r) { r.scalars[1].offset = 85; }),
              prefix + "\"offset\": " + theRadius + " reaches out of its block of 88 bytes.");
    EXPECT_EQ(with([](auto& r) { r.scalars[1].inAccumulator = true; }),
              prefix + "\"offset\": " + theRadius + " reaches out of its block of 0 bytes.");
    EXPECT_EQ(with([](auto& r) { r.scalars[1].bytes = 3; }), prefix + "\"size\": " + theRadius + " has 3 bytes");
    EXPECT_EQ(with([](auto& r) { r.scalars[1].type = ScalarType{2}; }), prefix + "\"type\": there is no type 2.");
    EXPECT_EQ(with([](auto& r) { r.scalars[1].count = 2; }),
              prefix + "\"count\": " + theRadius + " has another vector width.");
    EXPECT_EQ(with([](auto& r) { r.hidden[3].offset = ~0u; }), prefix + "\"offset\": " + std::string(a) +
                                                                   "constEdgeColor reaches out of its block of 88 "
                                                                   "bytes.");
    EXPECT_NE(with([](auto& r) { r.hidden[3].name += 's'; }), "");
    EXPECT_NE(with([](auto& r) { r.scalars[0].name += "rangeMin"; }), "") << "only hidden fields have suffixes";
    EXPECT_EQ(with([](auto& r) { r.hidden[3].name = "ob33a2d2a009f1feconstEdgeColor"; }), "")
        << "15 digits; the suffix begins with a hexadecimal digit";
}

}  // namespace ViewTint::Tests
