#include "host/files/ZipPart.h"

#include <Iex.h>
#include <ImfChannelList.h>
#include <ImfInputPart.h>
#include <ImfMultiPartInputFile.h>
#include <zlib.h>

#include <algorithm>
#include <bit>
#include <cstring>

namespace ViewTint::Host {

namespace {

std::int64_t linesOfChunk(const Imf::Header& header) {
    constexpr std::int64_t zip = 16;
    return header.compression() == Imf::ZIPS_COMPRESSION ? 1 : zip;
}

/// Their sum, modulo 256.
std::uint8_t sumOf(const std::uint8_t* bytes, std::size_t count) {
    using Bytes = std::uint8_t __attribute__((vector_size(32)));
    Bytes sums{};
    std::size_t i = 0;
    for (; i + sizeof(Bytes) <= count; i += sizeof(Bytes)) {
        Bytes next;
        std::memcpy(&next, bytes + i, sizeof next);
        sums += next;
    }
    unsigned sum = 0;
    for (std::size_t lane = 0; lane < sizeof(Bytes); ++lane)
        sum += sums[lane];
    for (; i < count; ++i)
        sum += bytes[i];
    return static_cast<std::uint8_t>(sum);
}

/// Bytes from their deltas, from left to right: each is the one before it plus its delta less 128.
class Deltas {
public:
    explicit Deltas(const std::uint8_t* deltas) : deltas_(deltas) {}

    /// The bytes from `begin` on, which is not before the end of what was asked for last, to every second place.
    void undo(std::size_t begin, std::size_t count, char* everySecond) {
        constexpr unsigned middle = 128;
        value_ = static_cast<std::uint8_t>(value_ + sumOf(deltas_ + at_, begin - at_) + middle * (begin - at_));
        for (std::size_t i = 0; i < count; ++i) {
            value_ = static_cast<std::uint8_t>(value_ + deltas_[begin + i] + middle);
            everySecond[2 * i] = static_cast<char>(value_);
        }
        at_ = begin + count;
    }

private:
    const std::uint8_t* deltas_;
    std::size_t at_ = 0;
    std::uint8_t value_ = 128;  // so that the first byte is its own delta
};

}  // namespace

bool ZipPart::serves(const Imf::Header& header) {
    const bool zip = header.compression() == Imf::ZIP_COMPRESSION || header.compression() == Imf::ZIPS_COMPRESSION;
    return zip && !header.hasTileDescription() && std::endian::native == std::endian::little;
}

ZipPart::ZipPart(const StoredPart& part) : part_(part) {
    // Channels lie in the order of their names, which is that of the header's list and of the stored ones.
    for (const StoredChannel& channel : part.channels) {
        const std::size_t bytes = static_cast<std::size_t>(part.width()) * bytesOf(channel.type);
        if (channel.inMemory()) places_.push_back({&channel, lineBytes_, bytes});
        lineBytes_ += bytes;
    }
    inflated_.resize(lineBytes_ * static_cast<std::size_t>(linesOfChunk(part.header)));
}

/// Calls `use(bytes, firstRow, inflated)` for each chunk; one that didn't get smaller is stored as it is.
template <class Use>
void ZipPart::forEachChunk(Imf::MultiPartInputFile& file, int index, Use use) {
    Imf::InputPart input(file, index);
    for (std::int64_t row = 0; row < part_.height(); row += linesOfChunk(part_.header)) {
        const char* data = nullptr;
        int size = 0;
        input.rawPixelData(static_cast<int>(part_.window().min.y + row), data, size);
        const auto* bytes = reinterpret_cast<const std::uint8_t*>(data);
        const auto lines = std::min(linesOfChunk(part_.header), part_.height() - row);
        const std::size_t wanted = lineBytes_ * static_cast<std::size_t>(lines);
        if (static_cast<std::size_t>(size) == wanted) {
            use(std::span(bytes, wanted), row, false);
            continue;
        }
        uLongf got = wanted;
        if (uncompress(inflated_.data(), &got, bytes, static_cast<uLong>(size)) != Z_OK || got != wanted)
            throw Iex::InputExc("a chunk of its pixels is damaged");
        use(std::span<const std::uint8_t>(inflated_.data(), wanted), row, true);
    }
}

void ZipPart::read(Imf::MultiPartInputFile& file, int index) {
    forEachChunk(file, index, [this](std::span<const std::uint8_t> chunk, std::int64_t firstRow, bool inflated) {
        inflated ? copyDeltas(chunk, firstRow) : copyStored(chunk, firstRow);
    });
}

void ZipPart::check(Imf::MultiPartInputFile& file, int index) {
    forEachChunk(file, index, [](std::span<const std::uint8_t>, std::int64_t, bool) {});
}

void ZipPart::copyStored(std::span<const std::uint8_t> chunk, std::int64_t firstRow) const {
    for (std::size_t line = 0; line < chunk.size() / lineBytes_; ++line)
        for (const Place& place : places_)
            std::memcpy(place.channel->pixels.data() + (static_cast<std::size_t>(firstRow) + line) * place.bytes,
                        chunk.data() + line * lineBytes_ + place.offset, place.bytes);
}

/// Even bytes fill the first half of a chunk, odd ones the second. Channels begin at even places.
void ZipPart::copyDeltas(std::span<const std::uint8_t> chunk, std::int64_t firstRow) const {
    Deltas deltas(chunk.data());
    for (const std::size_t parity : {0, 1})
        for (std::size_t line = 0; line < chunk.size() / lineBytes_; ++line)
            for (const Place& place : places_)
                deltas.undo(
                    (parity * chunk.size() + line * lineBytes_ + place.offset) / 2, place.bytes / 2,
                    place.channel->pixels.data() + (static_cast<std::size_t>(firstRow) + line) * place.bytes + parity);
}

}  // namespace ViewTint::Host
