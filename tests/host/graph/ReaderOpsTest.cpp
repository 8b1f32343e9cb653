#include "host/graph/ReaderOps.h"

#include <fstream>

#include "base/Exception.h"
#include "host/files/InputFile.h"
#include "tests/host/files/RawExr.h"

namespace ViewTint::Host::Testing {
namespace {

using Fresco::Image::Channel;
using Fresco::Image::ChannelSet;
using Fresco::Image::ImagePlane;

class ReaderOpsTest : public FolderTest {
protected:
    /// 6 by 4 pixels shown, data in (1, 1)-(5, 4) of the plane; the value tells the channel and the file's place.
    std::shared_ptr<const MultiViewFile> picture() const {
        Imf::Header header(Imath::Box2i({0, 0}, {5, 3}), Imath::Box2i({1, 0}, {4, 2}));
        writeRaw(file("in.exr"), {functionPart(header, {"R", "G", "disparityR.y", "mask_occlusion.alpha"}, valueAt)});
        return std::make_shared<MultiViewFile>(MultiViewFile::open(file("in.exr")));
    }
    static float valueAt(const std::string& channel, int x, int y) {
        return static_cast<float>(channel.size()) * 100.0f + (channel == "G" ? 50.0f : 0.0f) +
               static_cast<float>(10 * y + x);
    }
};

TEST_F(ReaderOpsTest, tellsWhatTheFileHolds) {
    FileReadOp reader(picture(), "main", ChannelRoles());
    reader.validate(true);
    EXPECT_EQ(reader.info().box, (Box{1, 1, 5, 4}));
    EXPECT_EQ(reader.info().shown, (Fresco::Image::Format{6, 4}));
    EXPECT_EQ(reader.info().format, Fresco::Image::Format{}) << "its ends don't meet";
    const Channel occlusion = Fresco::Image::getChannel("mask_occlusion.alpha", false);
    EXPECT_EQ(reader.info().channels, (ChannelSet{1, 2, 13, occlusion}));

    ChannelRoles swapped;
    swapped.assign("red=G");
    swapped.assign("green=missing");
    FileReadOp other(picture(), "main", swapped);
    other.validate(true);
    EXPECT_EQ(other.info().channels, (ChannelSet{1, 13, occlusion}));
}

TEST_F(ReaderOpsTest, deliversPlanarAndPackedPlanes) {
    FileReadOp reader(picture(), "main", ChannelRoles());
    reader.validate(true);
    const Channel occlusion = Fresco::Image::getChannel("mask_occlusion.alpha", false);
    const std::vector<std::string> names = {"R", "G", "", "disparityR.y", "mask_occlusion.alpha"};
    for (const bool packed : {false, true}) {
        const Box box{-1, 0, 4, 5};
        ImagePlane plane(box, packed, {1, 2, 3, 13, occlusion});
        reader.fetchPlane(plane);
        for (int y = box.y0; y < box.y1; ++y) {
            for (int x = box.x0; x < box.x1; ++x) {
                for (int c = 0; c < 5; ++c) {
                    const bool there = x >= 1 && x < 5 && y >= 1 && y < 4 && c != 2;
                    ASSERT_EQ(*plane.at(x, y, c), there ? valueAt(names[c], x, 3 - y) : 0.0f)
                        << x << ", " << y << ", " << c << (packed ? " packed" : " planar");
                }
            }
        }
    }
}

TEST_F(ReaderOpsTest, aFileThatFailsIsToldInItsOwnWords) {
    class Boaster : public FileReadOp {
        using FileReadOp::FileReadOp;
        void _validate(bool forReal) override {
            FileReadOp::_validate(forReal);
            info_.channels.insert(Fresco::Image::blueChannel);
        }
    };
    Boaster reader(picture(), "main", ChannelRoles());
    reader.validate(true);
    ImagePlane plane(reader.info().box, false, {1, 3});
    try {
        reader.fetchPlane(plane);
        ADD_FAILURE() << "nothing was thrown";
    } catch (const Cobalt::Base::Exception& failure) {
        EXPECT_EQ(userMessage(failure), fileErrorOf([&] {
                      picture()->read("main", "B", plane.box(), plane.at(1, 1, 0), plane.rowStride());
                  }));
    }
}

TEST_F(ReaderOpsTest, anEmptyFrameIsLikeItsNeighbourButZero) {
    FileReadOp reader(picture(), "main", ChannelRoles());
    reader.validate(true);
    EmptyFrameOp empty(reader.info());
    empty.validate(true);
    EXPECT_EQ(empty.info(), reader.info());
    ImagePlane plane(empty.info().box, false, {1, 13});
    std::fill_n(plane.writableBuffer().data(), 24, 7.0f);
    empty.fetchPlane(plane);
    for (int i = 0; i < 24; ++i)
        ASSERT_EQ(plane.buffer().data()[i], 0.0f) << i;
}

TEST_F(ReaderOpsTest, hashesFollowTheFileTheViewAndTheRoles) {
    const auto hashOf = [&](const ChannelRoles& roles) {
        FileReadOp reader(std::make_shared<MultiViewFile>(MultiViewFile::open(file("in.exr"))), "main", roles);
        Fresco::Image::Hash hash;
        reader.append(hash);
        return hash;
    };
    picture();
    const auto before = hashOf({});
    EXPECT_EQ(hashOf({}), before);
    ChannelRoles swapped;
    swapped.assign("red=G");
    EXPECT_NE(hashOf(swapped), before);
    std::filesystem::last_write_time(file("in.exr"),
                                     std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));
    EXPECT_NE(hashOf({}), before);
}

TEST_F(ReaderOpsTest, hashesBelongToThePixelsAndNotToWhatBearsTheNameNow) {
    const auto read = picture();
    const auto hashOf = [](const std::shared_ptr<const MultiViewFile>& file) {
        FileReadOp reader(file, "main", ChannelRoles());
        Fresco::Image::Hash hash;
        reader.append(hash);
        return hash;
    };
    const auto before = hashOf(read);
    std::filesystem::rename(file("in.exr"), file("old.exr"));
    const auto later = picture();
    EXPECT_EQ(hashOf(read), before);
    EXPECT_NE(hashOf(later), before);
}

TEST_F(ReaderOpsTest, aFileThatIsWrittenToWhileItIsReadIsRefused) {
    picture();
    const InputFile input(file("in.exr"));
    input.requireUnchanged();
    std::ofstream(file("in.exr"), std::ios::app) << "more";
    const std::string error = fileErrorOf([&] { input.requireUnchanged(); });
    EXPECT_NE(error.find(file("in.exr").string() + "': it was changed while it was read"), std::string::npos) << error;
}

}  // namespace
}  // namespace ViewTint::Host::Testing
