#include "host/files/ExrScan.h"

#include <Iex.h>
#include <ImfCompression.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <set>

#include "host/files/PictureLimits.h"

namespace ViewTint::Host {

namespace {

// The layout of files is told in "OpenEXR File Layout" and "Reading and Writing OpenEXR Image Files".
constexpr std::uint32_t tiledFlag = 0x200, nonImageFlag = 0x800, multiPartFlag = 0x1000;

struct Window {
    std::int32_t x0 = 0, y0 = 0, x1 = 0, y1 = 0;
    std::int64_t width() const { return std::int64_t{x1} - x0 + 1; }
    std::int64_t height() const { return std::int64_t{y1} - y0 + 1; }
};

struct Tiles {
    std::uint32_t width = 0, height = 0;
    std::uint8_t mode = 0;
};

/// A header's attributes that sizes depend on.
struct Header {
    ExrPart part;
    std::optional<Window> data, display;
    std::optional<Tiles> tiles;
    int compression = Imf::NO_COMPRESSION;
    std::uint64_t channels = 0;
    double bytesOfPixel = 0;
};

/// Of types whose values are all of one length.
const std::map<std::string, std::uint64_t, std::less<>> bytesOfType{{"box2f", 16},
                                                                    {"box2i", 16},
                                                                    {"chromaticities", 32},
                                                                    {"compression", 1},
                                                                    {"deepImageState", 1},
                                                                    {"double", 8},
                                                                    {"envmap", 1},
                                                                    {"float", 4},
                                                                    {"int", 4},
                                                                    {"keycode", 28},
                                                                    {"lineOrder", 1},
                                                                    {"m33d", 72},
                                                                    {"m33f", 36},
                                                                    {"m44d", 128},
                                                                    {"m44f", 64},
                                                                    {"rational", 8},
                                                                    {"tiledesc", 9},
                                                                    {"timecode", 8},
                                                                    {"v2d", 16},
                                                                    {"v2f", 8},
                                                                    {"v2i", 8},
                                                                    {"v3d", 24},
                                                                    {"v3f", 12},
                                                                    {"v3i", 12}};

std::uint64_t linesOfChunk(int compression) {
    switch (compression) {
        case Imf::ZIP_COMPRESSION:
        case Imf::PXR24_COMPRESSION:
            return 16;
        case Imf::PIZ_COMPRESSION:
        case Imf::B44_COMPRESSION:
        case Imf::B44A_COMPRESSION:
        case Imf::DWAA_COMPRESSION:
            return 32;
        case Imf::DWAB_COMPRESSION:
            return 256;
        default:
            return 1;
    }
}

/// How much smaller a picture can get at most, with room to spare. A damaged header may promise any size.
double largestRatioOf(int compression) {
    switch (compression) {
        case Imf::NO_COMPRESSION:
            return 1;
        case Imf::RLE_COMPRESSION:
            return 100;  // two bytes for 128
        case Imf::ZIP_COMPRESSION:
        case Imf::ZIPS_COMPRESSION:
        case Imf::PXR24_COMPRESSION:
            return 2000;  // DEFLATE packs 1032-fold; PXR24 leaves out a byte of four before
        default:
            return 50000;  // DWA packs an all-black picture 21000-fold
    }
}

std::uint64_t dividedUp(std::uint64_t number, std::uint64_t by) {
    return (number + by - 1) / by;
}

class Scan {
public:
    Scan(InputFile& file, const std::filesystem::path& path) : file_(file), path_(path) {}

    std::vector<ExrPart> run() {
        file_.seekg(sizeof(std::uint32_t));  // behind the magic number
        const auto version = take<std::uint32_t>();
        std::vector<Header> headers;
        while (auto header = takeHeader(version)) {
            headers.push_back(std::move(*header));
            if ((version & multiPartFlag) == 0) break;
        }
        if (headers.empty()) fail("no part");
        limits_.require<&PictureLimits::views>(path_, views_.size(), fmt::format("it has {} views", views_.size()));
        std::uint64_t channels = 0;
        for (const Header& header : headers)
            channels += header.channels;
        const std::uint64_t ofEach = dividedUp(channels, std::max<std::uint64_t>(views_.size(), 1));
        limits_.require<&PictureLimits::channels>(path_, ofEach, fmt::format("it has {} channels a view", ofEach));
        std::vector<ExrPart> parts;
        for (const Header& header : headers) {
            checkWindows(header);
            parts.push_back(header.part);
        }
        checkChunks(headers);
        return parts;
    }

private:
    [[noreturn]] void fail(const std::string& detail) const { throw damagedFile(path_, detail); }

    template <class Value>
    Value take() {
        Value value;
        file_.read(reinterpret_cast<char*>(&value), sizeof value);
        return value;
    }

    /// A text that ends with a zero.
    std::string takeName() {
        constexpr std::size_t longest = 255;
        std::string name;
        while (const char character = take<char>()) {
            name += character;
            if (name.size() > longest) fail("a name without end");
        }
        return name;
    }

    std::string takeText(std::uint64_t bytes) {
        std::string text(bytes, '\0');  // of an attribute whose length was checked
        file_.read(text.data(), static_cast<int>(bytes));
        return text;
    }

    /// Nothing where the list of headers ends.
    std::optional<Header> takeHeader(std::uint32_t version) {
        Header header;
        std::string name = takeName();
        if (name.empty() && (version & multiPartFlag) != 0) return std::nullopt;
        for (; !name.empty(); name = takeName())
            takeAttribute(name, header);
        header.part.deep =
            header.part.type.starts_with("deep") || (header.part.type.empty() && (version & nonImageFlag));
        header.part.tiled =
            (version & multiPartFlag) != 0 ? header.part.type == "tiledimage" : (version & tiledFlag) != 0;
        constexpr std::uint8_t levels = 0xf;  // the other bits tell how their sizes are rounded
        header.part.severalLevels = header.tiles && (header.tiles->mode & levels) != 0;
        return header;
    }

    void takeAttribute(const std::string& name, Header& header) {
        constexpr std::uint64_t leastBytes = 1024;  // what a library keeps of the smallest
        const std::string type = takeName();
        const auto length = take<std::int32_t>();
        const std::uint64_t begin = file_.tellg(), bytes = static_cast<std::uint64_t>(std::max(length, 0));
        if (length < 0 || bytes > file_.size() - begin)
            fail(fmt::format("the attribute '{}' leads out of the file", name));
        // The library believes the type more than the length, and would read on from another place than this.
        if (const auto own = bytesOfType.find(type); own != bytesOfType.end() && own->second != bytes)
            fail(fmt::format("the attribute '{}' has a length that its type can't have", name));
        attributeBytes_ += std::max(bytes, leastBytes);
        limits_.require<&PictureLimits::attributes>(
            path_, attributeBytes_, fmt::format("its attributes take {} bytes or more", attributeBytes_));
        if (name == "dataWindow" && bytes == sizeof(Window)) header.data = take<Window>();
        if (name == "displayWindow" && bytes == sizeof(Window)) header.display = take<Window>();
        if (name == "compression" && bytes == 1) header.compression = take<std::uint8_t>();
        if (name == "tiles" && bytes == 9)
            header.tiles = Tiles{take<std::uint32_t>(), take<std::uint32_t>(), take<std::uint8_t>()};
        if (name == "type") header.part.type = takeText(bytes);
        if (name == "view") views_.insert(takeText(bytes));
        if (type == "stringvector") takeTexts(begin + bytes, name == "multiView");
        if (type == "chlist") takeChannels(begin + bytes, header);
        const bool isList = type == "stringvector" || type == "chlist";
        if (isList && file_.tellg() != begin + bytes)
            fail(fmt::format("the list '{}' has another length than it tells", name));
        file_.seekg(begin + bytes);
    }

    void takeTexts(std::uint64_t end, bool views) {
        while (file_.tellg() < end) {
            const auto length = take<std::int32_t>();
            const std::uint64_t begin = file_.tellg();
            if (length < 0 || begin > end || static_cast<std::uint64_t>(length) > end - begin)
                fail("a text leads out of its list");
            if (views) views_.insert(takeText(static_cast<std::uint64_t>(length)));
            file_.seekg(begin + static_cast<std::uint64_t>(length));
        }
    }

    void takeChannels(std::uint64_t end, Header& header) {
        struct Channel {
            std::int32_t type;
            std::uint32_t linear;
            std::int32_t xSampling, ySampling;
        };
        while (file_.tellg() < end) {
            const std::string name = takeName();
            if (name.empty()) return;
            const auto channel = take<Channel>();
            constexpr std::int32_t half = 1;
            const double places = static_cast<double>(std::max(channel.xSampling, 1)) * std::max(channel.ySampling, 1);
            header.bytesOfPixel += (channel.type == half ? 2 : 4) / places;
            ++header.channels;
            if (channel.xSampling == 1 && channel.ySampling == 1) continue;
            if (header.part.subsampledChannel.empty()) header.part.subsampledChannel = name;
        }
    }

    void checkWindow(const std::optional<Window>& window, const char* name) const {
        constexpr std::int32_t furthest = 1 << 29;  // differences of places stay within integers
        if (!window || window->width() < 1 || window->height() < 1) fail(fmt::format("no {}", name));
        limits_.requireSize(path_, name, window->width(), window->height());
        for (const std::int32_t place : {window->x0, window->y0, window->x1, window->y1})
            if (place < -furthest || place > furthest) fail(fmt::format("its {} lies at {}", name, place));
    }

    void checkWindows(const Header& header) const {
        checkWindow(header.display, "display window");
        checkWindow(header.data, "data window");
        if (header.channels == 0) fail("no channels");
        const double pixels = static_cast<double>(header.data->width() * header.data->height());
        limits_.requirePlausible(path_, pixels * header.bytesOfPixel, largestRatioOf(header.compression), file_.size());
        if (!header.tiles) return;
        if (header.tiles->width == 0 || header.tiles->height == 0) fail("tiles without pixels");
        limits_.requireSize(path_, "tile", header.tiles->width, header.tiles->height);
    }

    /// How many entries the part's table has, or nothing where this system doesn't read such parts.
    std::optional<std::uint64_t> chunksOf(const Header& header) const {
        const auto width = static_cast<std::uint64_t>(header.data->width()),
                   height = static_cast<std::uint64_t>(header.data->height());
        if (header.part.deep || header.part.severalLevels || !header.part.subsampledChannel.empty() ||
            (header.part.tiled && !header.tiles))
            return std::nullopt;
        if (header.part.tiled) return dividedUp(width, header.tiles->width) * dividedUp(height, header.tiles->height);
        return dividedUp(height, linesOfChunk(header.compression));
    }

    /// Chunks lie behind all tables.
    void checkChunks(std::vector<Header>& headers) {
        const std::uint64_t tables = file_.tellg();
        std::uint64_t end = tables;
        for (const Header& header : headers) {
            const auto chunks = chunksOf(header);
            if (!chunks) return;
            if (*chunks > (file_.size() - end) / sizeof(std::uint64_t))
                fail("its table of chunks leads out of the file");
            end += *chunks * sizeof(std::uint64_t);
        }
        std::array<std::uint64_t, 1024> offsets;
        for (std::uint64_t left = (end - tables) / sizeof(std::uint64_t); left > 0;) {
            const std::size_t count = std::min<std::uint64_t>(left, offsets.size());
            file_.read(reinterpret_cast<char*>(offsets.data()), static_cast<int>(count * sizeof(std::uint64_t)));
            left -= count;
            for (std::size_t i = 0; i < count; ++i)
                if (offsets[i] < end || offsets[i] >= file_.size())
                    fail(offsets[i] == 0 ? "" : "a chunk leads out of the file");
        }
    }

    InputFile& file_;
    const std::filesystem::path& path_;
    const PictureLimits& limits_ = PictureLimits::current();
    std::set<std::string> views_;
    std::uint64_t attributeBytes_ = 0;
};

}  // namespace

FileError damagedFile(const std::filesystem::path& path, const std::string& detail) {
    return FileError(fmt::format("Cannot read '{}': it is truncated or damaged{}; write or copy it again.",
                                 path.string(), detail.empty() ? "" : " (" + detail + ")"));
}

std::vector<ExrPart> scanExr(InputFile& file, const std::filesystem::path& path) try {
    std::vector<ExrPart> parts = Scan(file, path).run();
    file.seekg(0);
    return parts;
} catch (const Iex::BaseExc& error) {
    throw damagedFile(path, error.what());
}

}  // namespace ViewTint::Host
