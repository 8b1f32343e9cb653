#include <ImfFrameBuffer.h>
#include <ImfOutputFile.h>
#include <ImfPartType.h>
#include <ImfStandardAttributes.h>

#include <algorithm>
#include <random>

#include "host/files/MultiViewFile.h"
#include "tests/host/files/RawExr.h"

namespace ViewTint::Host::Testing {
namespace {

class DamagedFileTest : public FolderTest {
protected:
    std::string openError() const {
        const std::string error = fileErrorOf([this] { MultiViewFile::open(file("in.exr")); });
        EXPECT_EQ(fileErrorOf([this] { MultiViewFile::check(file("in.exr")); }).empty(), error.empty()) << error;
        return error;
    }

    /// Files of every structure: lines plain and packed, tiles, several parts.
    std::vector<std::string> wholeFiles() const {
        std::vector<std::string> files;
        const ChannelTypes channels = {{"R", Imf::HALF}, {"right.R", Imf::FLOAT}};
        for (const auto compression : {Imf::NO_COMPRESSION, Imf::ZIP_COMPRESSION, Imf::DWAA_COMPRESSION}) {
            for (const bool tiled : {false, true}) {
                Imf::Header header(37, 41);
                header.compression() = compression;
                Imf::addMultiView(header, {"left", "right"});
                if (tiled) header.setTileDescription(Imf::TileDescription(16, 16));
                files.push_back(bytesWith({randomPart(header, channels, 1)}));

                std::vector<RawPart> parts;
                for (const std::string view : {"left", "right"}) {
                    header.setName(view);
                    header.setView(view);
                    header.setType(tiled ? Imf::TILEDIMAGE : Imf::SCANLINEIMAGE);
                    parts.push_back(randomPart(header, channels, 2));
                }
                files.push_back(bytesWith(parts));
            }
        }
        return files;
    }

private:
    std::string bytesWith(const std::vector<RawPart>& parts) const {
        writeRaw(file("whole.exr"), parts);
        return bytesOfFile(file("whole.exr"));
    }
};

TEST_F(DamagedFileTest, aFileCutAnywhereIsRefused) {
    for (const std::string& whole : wholeFiles()) {
        const std::size_t step = std::max<std::size_t>(1, whole.size() / 120);
        std::vector<std::size_t> lengths = {whole.size() - 1, whole.size() - 2, whole.size() - 3};
        for (std::size_t length = 0; length < whole.size(); length += step)
            lengths.push_back(length);
        for (const std::size_t length : lengths) {
            writeBytes(file("in.exr"), whole.substr(0, length));
            const std::string error = openError();
            ASSERT_NE(error.find(file("in.exr").string()), std::string::npos) << length;
            if (length <= 8) continue;  // too short to be told from other files
            ASSERT_NE(error.find("truncated or damaged"), std::string::npos) << length << error;
        }
    }
}

TEST_F(DamagedFileTest, aFileOfZerosFromItsMiddleIsRefused) {
    // What a crashed copy leaves: the right length, nothing behind a point.
    for (std::string bytes : wholeFiles()) {
        std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(bytes.size() / 2), bytes.end(), '\0');
        writeBytes(file("in.exr"), bytes);
        EXPECT_NE(openError().find("truncated or damaged"), std::string::npos);
    }
}

TEST_F(DamagedFileTest, anyDamagedBytesEitherReadOrAreRefused) {
    std::mt19937 random(3);
    int refused = 0;
    for (const std::string& whole : wholeFiles()) {
        for (int attempt = 0; attempt < 60; ++attempt) {
            std::string bytes = whole;
            const std::size_t range = attempt % 2 == 0 ? std::min<std::size_t>(600, whole.size()) : whole.size();
            for (int i = 0; i < 4; ++i)
                bytes[random() % range] = static_cast<char>(random());
            writeBytes(file("in.exr"), bytes);
            try {
                MultiViewFile::open(file("in.exr"));
            } catch (const FileError&) {
                ++refused;
            }
        }
    }
    EXPECT_GT(refused, 0);
}

TEST_F(DamagedFileTest, anUnfinishedFileIsRefused) {
    {
        Imf::Header header(8, 64);
        header.channels().insert("R", Imf::Channel(Imf::FLOAT));
        std::vector<float> row(8);
        Imf::OutputFile output(file("in.exr").c_str(), header);
        Imf::FrameBuffer buffer;
        buffer.insert("R", Imf::Slice(Imf::FLOAT, reinterpret_cast<char*>(row.data()), sizeof(float), 0));
        output.setFrameBuffer(buffer);
        output.writePixels(40);
    }
    EXPECT_NE(openError().find("truncated or damaged"), std::string::npos);
}

}  // namespace
}  // namespace ViewTint::Host::Testing
