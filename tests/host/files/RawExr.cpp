#include "tests/host/files/RawExr.h"

#include <ImfFrameBuffer.h>
#include <ImfInputPart.h>
#include <ImfMultiPartInputFile.h>
#include <ImfMultiPartOutputFile.h>
#include <ImfOutputFile.h>
#include <ImfOutputPart.h>
#include <ImfStdIO.h>
#include <ImfTiledOutputFile.h>
#include <ImfTiledOutputPart.h>
#include <ImfVersion.h>
#include <half.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>

#include "host/files/MultiViewFile.h"

/// Read by the leak sanitizer: damaged files and failed reads make these libraries lose small pieces of their own.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libOpenEXR\nleak:libOpenImageIO\n";
}

namespace ViewTint::Host::Testing {

namespace {

std::size_t pixelBytes(Imf::PixelType type) {
    return type == Imf::HALF ? 2 : 4;
}

std::size_t widthOf(const Imf::Header& header) {
    return static_cast<std::size_t>(header.dataWindow().max.x - header.dataWindow().min.x + 1);
}

std::size_t heightOf(const Imf::Header& header) {
    return static_cast<std::size_t>(header.dataWindow().max.y - header.dataWindow().min.y + 1);
}

Imf::FrameBuffer bufferOf(const RawPart& part) {
    Imf::FrameBuffer buffer;
    for (const auto& [name, bytes] : part.channels) {
        const Imf::PixelType type = part.header.channels()[name].type;
        buffer.insert(name, Imf::Slice::Make(type, bytes.data(), part.header.dataWindow()));
    }
    return buffer;
}

template <class Output>
void writeLines(Output&& output, const RawPart& part) {
    output.setFrameBuffer(bufferOf(part));
    output.writePixels(static_cast<int>(heightOf(part.header)));
}

template <class Output>
void writeTiles(Output&& output, const RawPart& part) {
    output.setFrameBuffer(bufferOf(part));
    output.writeTiles(0, output.numXTiles() - 1, 0, output.numYTiles() - 1);
}

template <class Value>
void put(std::vector<char>& bytes, std::size_t index, Value value) {
    std::memcpy(bytes.data() + index * sizeof value, &value, sizeof value);
}

}  // namespace

RawPart randomPart(Imf::Header header, const ChannelTypes& channels, unsigned seed) {
    std::mt19937 random(seed);
    RawPart part;
    const std::size_t width = widthOf(header);
    const std::size_t pixels = width * heightOf(header);
    for (const auto& [name, type] : channels) {
        header.channels().insert(name, Imf::Channel(type));
        std::vector<char> bytes(pixels * pixelBytes(type));
        for (std::size_t i = 0; i < pixels; ++i) {
            const float wave = std::sin(0.1f * static_cast<float>(i % width)) + 1.5f;
            const float value = wave * (1.0f + 1e-3f * static_cast<float>(random() % 1000));
            if (type == Imf::HALF) put(bytes, i, half(value));
            if (type == Imf::FLOAT) put(bytes, i, value);
            if (type == Imf::UINT) put(bytes, i, static_cast<std::uint32_t>(random()));
        }
        part.channels[name] = std::move(bytes);
    }
    part.header = header;
    return part;
}

RawPart functionPart(Imf::Header header, const std::vector<std::string>& channels,
                     const std::function<float(const std::string&, int x, int y)>& value) {
    RawPart part;
    const Imath::Box2i window = header.dataWindow();
    for (const std::string& name : channels) {
        header.channels().insert(name, Imf::Channel(Imf::FLOAT));
        std::vector<char> bytes(widthOf(header) * heightOf(header) * sizeof(float));
        std::size_t index = 0;
        for (int y = window.min.y; y <= window.max.y; ++y) {
            for (int x = window.min.x; x <= window.max.x; ++x)
                put(bytes, index++, value(name, x, y));
        }
        part.channels[name] = std::move(bytes);
    }
    part.header = header;
    return part;
}

void writeRaw(const std::filesystem::path& path, const std::vector<RawPart>& parts) {
    if (parts.size() == 1) {
        if (parts[0].header.hasTileDescription()) {
            writeTiles(Imf::TiledOutputFile(path.c_str(), parts[0].header), parts[0]);
        } else {
            writeLines(Imf::OutputFile(path.c_str(), parts[0].header), parts[0]);
        }
        return;
    }
    std::vector<Imf::Header> headers;
    for (const RawPart& part : parts)
        headers.push_back(part.header);
    Imf::MultiPartOutputFile file(path.c_str(), headers.data(), static_cast<int>(headers.size()));
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (headers[i].hasTileDescription()) {
            writeTiles(Imf::TiledOutputPart(file, static_cast<int>(i)), parts[i]);
        } else {
            writeLines(Imf::OutputPart(file, static_cast<int>(i)), parts[i]);
        }
    }
}

std::vector<RawPart> readRaw(const std::filesystem::path& path) {
    Imf::MultiPartInputFile file(path.c_str());
    std::vector<RawPart> parts;
    for (int i = 0; i < file.parts(); ++i) {
        RawPart part;
        part.header = file.header(i);
        const std::size_t pixels = widthOf(part.header) * heightOf(part.header);
        const Imf::ChannelList& list = part.header.channels();
        for (auto channel = list.begin(); channel != list.end(); ++channel) {
            part.channels[channel.name()].resize(pixels * pixelBytes(channel.channel().type));
        }
        Imf::InputPart input(file, i);
        input.setFrameBuffer(bufferOf(part));
        input.readPixels(part.header.dataWindow().min.y, part.header.dataWindow().max.y);
        parts.push_back(std::move(part));
    }
    return parts;
}

std::map<std::string, std::pair<std::string, std::string>> attributesOf(const Imf::Header& header) {
    std::map<std::string, std::pair<std::string, std::string>> attributes;
    for (auto i = header.begin(); i != header.end(); ++i) {
        Imf::StdOSStream value;
        i.attribute().writeValueTo(value, Imf::EXR_VERSION);
        attributes[i.name()] = {i.attribute().typeName(), value.str()};
    }
    return attributes;
}

std::string bytesOfFile(const std::filesystem::path& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

void writeBytes(const std::filesystem::path& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

void FolderTest::SetUp() {
    std::string name = (std::filesystem::temp_directory_path() / "viewtint-test-XXXXXX").string();
    ASSERT_NE(::mkdtemp(name.data()), nullptr);
    folder_ = name;
}

void FolderTest::TearDown() {
    std::filesystem::remove_all(folder_);
}

std::vector<std::string> FolderTest::filesThere() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
        names.push_back(entry.path().filename().string());
    }
    std::ranges::sort(names);
    return names;
}

std::string fileErrorOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const FileError& error) {
        return error.what();
    }
    ADD_FAILURE() << "no FileError was thrown";
    return "";
}

}  // namespace ViewTint::Host::Testing
