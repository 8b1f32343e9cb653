#include <Iex.h>
#include <ImfChannelList.h>
#include <ImfFloatAttribute.h>
#include <ImfFrameBuffer.h>
#include <ImfInputPart.h>
#include <ImfMultiPartInputFile.h>
#include <ImfMultiPartOutputFile.h>
#include <ImfOutputFile.h>
#include <ImfOutputPart.h>
#include <ImfPartType.h>
#include <ImfTestFile.h>
#include <ImfThreading.h>
#include <ImfTiledInputPart.h>
#include <ImfTiledOutputFile.h>
#include <ImfTiledOutputPart.h>
#include <ImfVersion.h>
#include <fmt/format.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <mutex>
#include <new>
#include <optional>
#include <string_view>
#include <type_traits>

#include "host/files/AtomicFile.h"
#include "host/files/ExrScan.h"
#include "host/files/ExrStream.h"
#include "host/files/InputFile.h"
#include "host/files/MultiViewFile.h"
#include "host/files/MultiViewFileContents.h"
#include "host/files/PictureLimits.h"
#include "host/files/ZipPart.h"

namespace ViewTint::Host {

namespace fs = std::filesystem;

namespace {

// ---- reading ---------------------------------------------------------------------------------------------------

void requireOpenExr(InputFile& file, const fs::path& path) {
    const bool isOpenExr = Imf::isOpenExrFile(file);
    file.seekg(0);
    if (!isOpenExr)
        throw FileError(
            fmt::format("Cannot read '{}': it is not an OpenEXR picture; separate pictures can be packed "
                        "into one first.",
                        path.string()));
}

/// A second lock: scanExr has refused such headers before.
void limitLibrary() {
    static std::once_flag once;
    std::call_once(once, [] {
        const int side = static_cast<int>(std::min<std::uint64_t>(PictureLimits::current().side, INT_MAX));
        Imf::Header::setMaxImageSize(side, side);
        Imf::Header::setMaxTileSize(side, side);
    });
}

FileError unsupported(const fs::path& path, const std::string& what, const std::string& remedy) {
    return FileError(fmt::format("Cannot read '{}': it has {}; {}.", path.string(), what, remedy));
}

void checkSupported(const fs::path& path, const ExrPart& part) {
    if (part.deep) throw unsupported(path, "deep pixels", "flatten the picture first");
    if (part.severalLevels) throw unsupported(path, "several resolution levels", "write it with one level");
    if (!part.subsampledChannel.empty())
        throw unsupported(path, fmt::format("the subsampled channel '{}'", part.subsampledChannel),
                          "write it with a value for every pixel");
}

/// The library refuses parts of unlike display windows as it refuses damaged files; only its words differ.
bool tellsUnlikeSizes(const std::exception& error) {
    const std::string_view text = error.what();
    return text.find("non-conforming shared attributes") != text.npos && text.find("displayWindow") != text.npos;
}

/// The frame buffer over those of a part's channels that are in memory; used for reading and for writing.
Imf::FrameBuffer frameBufferOf(const StoredPart& part) {
    Imf::FrameBuffer buffer;
    for (const StoredChannel& channel : part.channels) {
        if (!channel.inMemory()) continue;
        const std::size_t pixelBytes = bytesOf(channel.type);
        buffer.insert(channel.fileName, Imf::Slice::Make(channel.type, channel.pixels.data(), part.window(), pixelBytes,
                                                         pixelBytes * static_cast<std::size_t>(part.width())));
    }
    return buffer;
}

void readTiles(Imf::MultiPartInputFile& file, int index, const Imf::FrameBuffer& buffer) {
    Imf::TiledInputPart input(file, index);
    input.setFrameBuffer(buffer);
    input.readTiles(0, input.numXTiles() - 1, 0, input.numYTiles() - 1);
}

void readScanLines(Imf::MultiPartInputFile& file, int index, const Imath::Box2i& window,
                   const Imf::FrameBuffer& buffer) {
    Imf::InputPart input(file, index);
    input.setFrameBuffer(buffer);
    input.readPixels(window.min.y, window.max.y);
}

StoredPart readHeader(Imf::MultiPartInputFile& file, int index, const fs::path& path) {
    StoredPart part;
    part.header = file.header(index);
    if (!file.partComplete(index)) throw damagedFile(path, "");

    const Imf::ChannelList& list = part.header.channels();
    for (auto channel = list.begin(); channel != list.end(); ++channel) {
        StoredChannel stored;
        stored.fileName = channel.name();
        stored.type = channel.channel().type;
        part.channels.push_back(std::move(stored));
    }
    return part;
}

template <class Wanted>
void readPixels(Imf::MultiPartInputFile& file, int index, StoredPart& part, Wanted wanted) {
    std::size_t wantedBytes = 0, allBytes = 0;  // of a pixel
    for (StoredChannel& channel : part.channels) {
        allBytes += bytesOf(channel.type);
        if (!wanted(channel)) continue;
        channel.pixels.allocate(static_cast<std::size_t>(part.width() * part.height()) * bytesOf(channel.type));
        wantedBytes += bytesOf(channel.type);
    }
    if (wantedBytes == 0) return;
    if (2 * wantedBytes <= allBytes && ZipPart::serves(part.header)) {
        ZipPart(part).read(file, index);
        return;
    }
    const Imf::FrameBuffer buffer = frameBufferOf(part);
    part.tiled() ? readTiles(file, index, buffer) : readScanLines(file, index, part.window(), buffer);
}

/// Decodes a part into one row of one channel, over and over: a chunk is decompressed with all its channels, and its
/// checksum tested, whichever of them is wanted.
void decodePixels(Imf::MultiPartInputFile& file, int index, const StoredPart& part) {
    if (ZipPart::serves(part.header)) return ZipPart(part).check(file, index);
    const StoredChannel& any = part.channels.front();
    const std::size_t pixelBytes = bytesOf(any.type);
    std::vector<char> row(static_cast<std::size_t>(part.width()) * pixelBytes);
    const auto left = static_cast<std::ptrdiff_t>(part.window().min.x) * static_cast<std::ptrdiff_t>(pixelBytes);
    Imf::FrameBuffer buffer;
    buffer.insert(any.fileName, Imf::Slice(any.type, row.data() - left, pixelBytes, 0));
    part.tiled() ? readTiles(file, index, buffer) : readScanLines(file, index, part.window(), buffer);
}

/// Reading a one-part file adds a `type` attribute to its header in memory; true if the file itself has one.
bool onePartHeaderHasType(InputFile& file) {
    file.seekg(0);
    char magicAndVersion[8];
    file.read(magicAndVersion, sizeof magicAndVersion);
    int version = static_cast<unsigned char>(magicAndVersion[5]) << 8 | static_cast<unsigned char>(magicAndVersion[4]);
    Imf::Header header;
    header.readFrom(file, version);
    return header.hasType();
}

// ---- writing ---------------------------------------------------------------------------------------------------

/// The level of a DWA compression is kept in an attribute that older libraries wrote; the header's setting is not.
void restoreCompressionLevel(Imf::Header& header) {
    const auto* level = header.findTypedAttribute<Imf::FloatAttribute>("dwaCompressionLevel");
    if (level != nullptr) header.dwaCompressionLevel() = level->value();
}

/// Writes a part through an output object for lines or for tiles, from memory or, undecoded, from `source`.
template <class Output>
void writePart(Output&& output, const StoredPart& part, Imf::MultiPartInputFile* source, int index) {
    constexpr bool tiles = requires {
        output.numXTiles();
    };
    if (!part.replaced) {
        std::conditional_t<tiles, Imf::TiledInputPart, Imf::InputPart> input(*source, index);
        output.copyPixels(input);
        return;
    }
    output.setFrameBuffer(frameBufferOf(part));
    if constexpr (tiles) {
        output.writeTiles(0, output.numXTiles() - 1, 0, output.numYTiles() - 1);
    } else {
        output.writePixels(static_cast<int>(part.height()));
    }
}

/// A file of one part need not say its part's type, which a part object of the library insists on.
void writeOnlyPart(ExrStream& stream, const Imf::Header& header, const StoredPart& part,
                   Imf::MultiPartInputFile* source) {
    if (part.tiled()) {
        writePart(Imf::TiledOutputFile(stream, header), part, source, 0);
    } else {
        writePart(Imf::OutputFile(stream, header), part, source, 0);
    }
}

void writeAllParts(ExrStream& stream, const std::vector<Imf::Header>& headers,
                   const std::vector<const StoredPart*>& parts, Imf::MultiPartInputFile* source) {
    Imf::MultiPartOutputFile file(stream, headers.data(), static_cast<int>(headers.size()));
    for (int index = 0; index < file.parts(); ++index) {
        const StoredPart& part = *parts[static_cast<std::size_t>(index)];
        if (part.tiled()) {
            writePart(Imf::TiledOutputPart(file, index), part, source, index);
        } else {
            writePart(Imf::OutputPart(file, index), part, source, index);
        }
    }
}

}  // namespace

void setFileThreads(int count) try { Imf::setGlobalThreadCount(count); } catch (const std::exception&) {
    Imf::setGlobalThreadCount(0);  // the system gives no more: whoever reads decodes
}

template <class ReadPart>
std::unique_ptr<MultiViewFile::Contents> MultiViewFile::readParts(const fs::path& path, int threads,
                                                                  ReadPart readPart) {
    InputFile input(path);
    auto contents = std::make_unique<Contents>();
    contents->path = path;
    contents->identities.push_back(input.identity());
    try {
        requireOpenExr(input, path);
        for (const ExrPart& part : scanExr(input, path))
            checkSupported(path, part);
        limitLibrary();
        Imf::MultiPartInputFile file(input, threads, /*reconstructChunkOffsetTable=*/false);
        for (int index = 0; index < file.parts(); ++index) {
            contents->parts.push_back(readHeader(file, index, path));
        }
        contents->nameChannels();
        for (int index = 0; index < file.parts(); ++index)
            readPart(file, index, contents->parts[static_cast<std::size_t>(index)]);
        if (!Imf::isMultiPart(file.version()) && !onePartHeaderHasType(input)) contents->parts[0].header.erase("type");
        input.requireUnchanged();
    } catch (const FileError&) {
        throw;
    } catch (const std::bad_alloc&) {
        throw FileError(
            fmt::format("Cannot read '{}': there is not enough memory for a picture of this size.", path.string()));
    } catch (const std::exception& error) {
        input.requireUnchanged();
        if (tellsUnlikeSizes(error)) {
            throw FileError(fmt::format("Cannot read '{}': its parts differ in size; write all views with one size.",
                                        path.string()));
        }
        throw damagedFile(path, error.what());
    }
    contents->display = contents->parts.front().header.displayWindow();
    return contents;
}

MultiViewFile MultiViewFile::open(const fs::path& path, const std::optional<std::set<std::string>>& channels) {
    const auto wanted = [&](const StoredChannel& channel) {
        return !channels || channels->contains(channel.name) || channels->contains(channel.secondName);
    };
    return MultiViewFile(readParts(
        path, Imf::globalThreadCount(),
        [&](Imf::MultiPartInputFile& file, int index, StoredPart& part) { readPixels(file, index, part, wanted); }));
}

MultiViewFile MultiViewFile::check(const fs::path& path) {
    return MultiViewFile(readParts(path, /*threads=*/0, decodePixels));
}

void MultiViewFile::save(const fs::path& path) const {
    AtomicFile target(path);
    ExrStream stream(target.temporaryPath(), path);
    try {
        std::optional<InputFile> input;
        std::unique_ptr<Imf::MultiPartInputFile> source;
        std::vector<const StoredPart*> parts;
        for (const StoredPart& part : contents_->parts)
            if (part.saved) parts.push_back(&part);
        if (!std::ranges::all_of(parts, &StoredPart::replaced)) {
            try {
                input.emplace(contents_->path);
            } catch (const FileError&) {
                throw FileError(fmt::format("Cannot write '{}': '{}' cannot be read again; run again.", path.string(),
                                            contents_->path.string()));
            }
            if (input->identity() != contents_->identities.front()) {
                throw FileError(fmt::format("Cannot write '{}': '{}' was changed meanwhile; run again.", path.string(),
                                            contents_->path.string()));
            }
            source = std::make_unique<Imf::MultiPartInputFile>(*input);
        }
        std::vector<Imf::Header> headers;
        for (const StoredPart* part : parts) {
            headers.push_back(part->header);
            restoreCompressionLevel(headers.back());
        }
        if (headers.size() == 1) {
            writeOnlyPart(stream, headers.front(), *parts.front(), source.get());
        } else {
            writeAllParts(stream, headers, parts, source.get());
        }
    } catch (const Iex::BaseExc& error) {
        throw FileError(fmt::format("Cannot write '{}': {}.", path.string(), error.what()));
    }
    stream.finish();
    target.commit();
}

}  // namespace ViewTint::Host
