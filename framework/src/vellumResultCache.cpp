#include "framework/ResultCache.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <istream>
#include <ostream>
#include <vector>

#include "compute/HostDevice.h"

namespace Cobalt::Research::ResultCache {

namespace {

using Fresco::Image::Channel;
using Fresco::Image::Image_Cache;

static_assert(std::endian::native == std::endian::little, "result files are little-endian");

struct Header {
    char magic[4] = {'!', 'V', 'L', 'M'};
    std::int32_t version = 1;
    friend bool operator==(const Header&, const Header&) = default;
};
static_assert(sizeof(Header) == 8);

constexpr std::size_t pieceBytes = 0x2000000;

Hash keyOf(const Hash& hash, Channel channel) {
    Hash key = hash;
    key.append(static_cast<int>(channel));
    return key;
}

/// Reads a whole file's pixels; false where it isn't one.
bool readPlane(std::istream& file, float* pixels, std::size_t bytes) {
    Header header;
    if (!file.read(reinterpret_cast<char*>(&header), sizeof header) || header != Header{}) return false;
    if (!file.read(reinterpret_cast<char*>(pixels), static_cast<std::streamsize>(bytes))) return false;
    return file.peek() == std::istream::traits_type::eof() && !file.bad();
}

/// Rows of one component, perhaps with gaps.
struct Rows {
    const float* first;
    std::int64_t rowStride, pixelStride;
    int width, height;

    std::size_t bytes() const {
        return static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * sizeof(float);
    }
    bool withoutGaps() const { return pixelStride == 1 && rowStride == width; }
};

void writeRows(std::ostream& file, const Rows& rows) {
    const auto write = [&](const float* pixels, std::size_t bytes) {
        file.write(reinterpret_cast<const char*>(pixels), static_cast<std::streamsize>(bytes));
    };
    if (rows.withoutGaps()) {
        for (std::size_t done = 0; done < rows.bytes(); done += pieceBytes)
            write(rows.first + done / sizeof(float), std::min(pieceBytes, rows.bytes() - done));
        return;
    }
    std::vector<float> row(static_cast<std::size_t>(rows.width));
    for (int y = 0; y < rows.height; ++y) {
        for (int x = 0; x < rows.width; ++x)
            row[static_cast<std::size_t>(x)] = rows.first[y * rows.rowStride + x * rows.pixelStride];
        write(row.data(), row.size() * sizeof(float));
    }
}

bool storeRows(Image_Cache& cache, const Hash& key, const Rows& rows) {
    const auto file = cache.add_file(key, rows.bytes() + sizeof(Header));
    if (!file) return false;
    const Header header;
    file->stream().write(reinterpret_cast<const char*>(&header), sizeof header);
    writeRows(file->stream(), rows);
    return file->commit();
}

/// Calls rowsOf(i) for the i-th channel where there is no file yet.
template <class RowsOf>
ChannelSet storeMissing(const ChannelSet& channels, const Hash& hash, RowsOf&& rowsOf) {
    ChannelSet stored;
    Image_Cache& cache = *Image_Cache::mainCache();
    int i = -1;
    for (const Channel channel : channels) {
        ++i;
        const Hash key = keyOf(hash, channel);
        if (!cache.has_file(key) && storeRows(cache, key, rowsOf(i))) stored.insert(channel);
    }
    return stored;
}

}  // namespace

bool hasChannels(const ChannelSet& channels, const Hash& hash) {
    if (!Fresco::Image::IsGUIActive()) return false;
    for (const Channel channel : channels)
        if (!Image_Cache::mainCache()->open(keyOf(hash, channel))) return false;
    return true;
}

ChannelSet load(ImagePlane& plane, const Hash& hash) {
    ChannelSet loaded;
    if (!Fresco::Image::IsGUIActive() || plane.packed()) return loaded;
    plane.writableBuffer();
    Image_Cache& cache = *Image_Cache::mainCache();
    const auto& box = plane.box();
    int component = -1;
    for (const Channel channel : plane.channels()) {
        ++component;
        const Hash key = keyOf(hash, channel);
        const auto file = cache.open(key);
        if (!file) continue;
        if (readPlane(*file, plane.at(box.x0, box.y0, component),
                      static_cast<std::size_t>(box.pixels()) * sizeof(float)))
            loaded.insert(channel);
        else
            cache.remove_file(key);
    }
    return loaded;
}

ChannelSet storeImage(const Vellum::Image::Image& image, const ChannelSet& imageChannels, const Hash& hash) {
    const bool fits = imageChannels.size() == image.components() && image.components() > 0 && !image.box().empty();
    if (!Fresco::Image::IsGUIActive() || !fits || !image.device()->hostAccessible()) return {};
    const auto& layout = image.tile().layout;
    return storeMissing(imageChannels, hash, [&](int component) {
        return Rows{image.data() + component * layout.component.elements, layout.y.elements, layout.x.elements,
                    image.box().width(), image.box().height()};
    });
}

ChannelSet storePlane(const ImagePlane& plane, const Hash& hash) {
    if (!Fresco::Image::IsGUIActive() || plane.box().empty() || !plane.buffer()) return {};
    const auto& box = plane.box();
    return storeMissing(plane.channels(), hash, [&](int component) {
        return Rows{plane.at(box.x0, box.y0, component), plane.rowStride(), plane.pixelStride(), box.width(),
                    box.height()};
    });
}

}  // namespace Cobalt::Research::ResultCache
