#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>
#include <OpenImageIO/imageio.h>
#include <fmt/format.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <fstream>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string_view>

#include "host/files/PictureCodec.h"

namespace ViewTint::Host {

namespace {

namespace fs = std::filesystem;

FileError cannotRead(const fs::path& path, const std::string& reason) {
    return FileError(fmt::format("Cannot read '{}': {}.", path.string(), reason));
}

std::string firstLine(const std::string& text) {
    return text.substr(0, text.find('\n'));
}

PictureLimits limits;

/// How much smaller a picture can get at most. DEFLATE packs 1032-fold; JPEG takes a bit at least for each 64 values;
/// other formats may tell long runs in few bits.
double largestRatioOf(std::string_view format) {
    return format == "png" || format == "jpeg" ? 2000 : 50000;
}

std::unique_ptr<OIIO::ImageInput> openPicture(const fs::path& path) {
    OIIO::ImageSpec config;
    config.attribute("oiio:UnassociatedAlpha", 1);  // multiplied here, after the colours are linear
    auto input = OIIO::ImageInput::open(path.string(), &config);
    if (!input) {
        throw cannotRead(
            path, "it is not a picture that can be read, or it is truncated (" + firstLine(OIIO::geterror()) + ")");
    }
    const OIIO::ImageSpec& spec = input->spec();
    if (spec.deep) throw cannotRead(path, "it has deep pixels; flatten the picture first");
    if (spec.width < 1 || spec.height < 1 || spec.full_width < 1 || spec.full_height < 1 || spec.depth > 1)
        throw cannotRead(path, "it is damaged (a window without pixels); write or copy it again");
    limits.requireSize(path, "data window", spec.width, spec.height);
    limits.requireSize(path, "display window", spec.full_width, spec.full_height);
    const auto channels = static_cast<std::uint64_t>(spec.nchannels);
    limits.require<&PictureLimits::channels>(path, channels, fmt::format("it has {} channels a view", channels));
    std::error_code ignored;
    PictureLimits::requirePlausible(path, static_cast<double>(spec.image_bytes(/*native=*/true)),
                                    largestRatioOf(input->format_name()), fs::file_size(path, ignored));
    return input;
}

std::string bytesOf(const fs::path& path, std::size_t count = std::string::npos) {
    std::ifstream stream(path, std::ios::binary);
    std::string bytes(std::min<std::size_t>(count, fs::file_size(path)), '\0');
    stream.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

/// The JPEG decoder paints what is missing in grey and calls it well. The last scan of a whole file is followed by
/// the end marker, which cannot stand inside the scan's data.
bool jpegIsWhole(const fs::path& path) {
    const std::string bytes = bytesOf(path);
    const std::size_t lastScan = bytes.rfind("\xff\xda");
    return lastScan != std::string::npos && bytes.find("\xff\xd9", lastScan) != std::string::npos;
}

/// The PNG decoder doesn't look for the last chunk, which holds nothing.
bool pngIsWhole(const fs::path& path) {
    return bytesOf(path).rfind("IEND\xae\x42\x60\x82") != std::string::npos;
}

/// The DPX decoder leaves what is missing black. The header tells the file's size at byte 16, all ones if unknown.
bool dpxIsWhole(const fs::path& path) {
    const std::string header = bytesOf(path, 20);
    if (header.size() < 20) return false;
    const bool bigEndian = header.starts_with("SDPX");
    std::uint32_t size = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        const auto byte = static_cast<unsigned char>(header[16 + i]);
        size |= std::uint32_t{byte} << 8 * (bigEndian ? 3 - i : i);
    }
    return size == 0xffffffffu || fs::file_size(path) >= size;
}

/// Looks for the truncations that a decoder passes over in silence.
bool isWhole(const fs::path& path, std::string_view format) {
    if (format == "jpeg") return jpegIsWhole(path);
    if (format == "png") return pngIsWhole(path);
    if (format == "dpx") return dpxIsWhole(path);
    return true;
}

/// Values that nobody has set: memory is taken as they are decoded, and little of it for a file that ends soon.
template <class Value>
struct Values {
    std::unique_ptr<Value[]> first;
    std::size_t count;

    explicit Values(std::size_t count) : first(new Value[count]), count(count) {}
    const Value& operator[](std::size_t place) const { return first[place]; }
};

/// Stops at the first error: some decoders note it, paint the rest grey and call the picture read, whatever its size.
bool readRows(OIIO::ImageInput& input, OIIO::TypeDesc type, void* pixels) {
    const OIIO::ImageSpec& spec = input.spec();
    if (spec.tile_width != 0) return input.read_image(0, 0, 0, spec.nchannels, type, pixels) && !input.has_error();
    constexpr int rows = 256;  // enough for all threads where a format is decoded by several
    auto* next = static_cast<char*>(pixels);
    for (int y = spec.y; y < spec.y + spec.height; y += rows) {
        const int end = std::min(y + rows, spec.y + spec.height);
        if (!input.read_scanlines(0, 0, y, end, 0, 0, spec.nchannels, type, next) || input.has_error()) return false;
        next += static_cast<std::size_t>(end - y) * static_cast<std::size_t>(spec.width) *
                static_cast<std::size_t>(spec.nchannels) * type.size();
    }
    return true;
}

template <class Value>
Values<Value> readPixels(OIIO::ImageInput& input, const fs::path& path, OIIO::TypeDesc type) {
    const OIIO::ImageSpec& spec = input.spec();
    if (!isWhole(path, input.format_name())) {
        throw cannotRead(path, "it is truncated; write or copy it again");
    }
    Values<Value> pixels(static_cast<std::size_t>(spec.image_pixels()) * static_cast<std::size_t>(spec.nchannels));
    if (!readRows(input, type, pixels.first.get())) {
        throw cannotRead(path,
                         "it is truncated or damaged (" + firstLine(input.geterror()) + "); write or copy it again");
    }
    return pixels;
}

/// The piecewise curve of IEC 61966-2-1, from codes to linear light.
float decodeSrgb(float value) {
    if (value <= 0.04045f) return value / 12.92f;
    return std::pow((value + 0.055f) / 1.055f, 2.4f);
}

bool isColour(const OIIO::ImageSpec& spec, int channel) {
    return channel != spec.alpha_channel && channel != spec.z_channel;
}

/// Interleaved rows from the top, in the file's data window, become planes from the bottom, in its display window.
Picture toPlanes(const OIIO::ImageSpec& spec, const Values<float>& pixels) {
    Picture picture;
    picture.width = spec.full_width;
    picture.height = spec.full_height;
    picture.channels = spec.channelnames;
    const auto area = static_cast<std::size_t>(picture.width) * static_cast<std::size_t>(picture.height);
    picture.planes.assign(picture.channels.size(), std::vector<float>(area, 0.0f));
    const int left = spec.x - spec.full_x;
    const int top = spec.y - spec.full_y;
    for (int row = std::max(0, -top); row < std::min(spec.height, picture.height - top); ++row) {
        const auto planeRow = static_cast<std::size_t>(picture.height - 1 - (row + top));
        for (int x = std::max(0, -left); x < std::min(spec.width, picture.width - left); ++x) {
            const float* pixel = &pixels[(static_cast<std::size_t>(row) * spec.width + x) * spec.nchannels];
            const std::size_t place = planeRow * picture.width + (x + left);
            for (std::size_t c = 0; c < picture.planes.size(); ++c)
                picture.planes[c][place] = pixel[c];
        }
    }
    return picture;
}

void linearize(Picture& picture, const OIIO::ImageSpec& spec) {
    for (int c = 0; c < spec.nchannels; ++c) {
        if (isColour(spec, c)) std::ranges::transform(picture.planes[c], picture.planes[c].begin(), decodeSrgb);
    }
}

void multiplyByAlpha(Picture& picture, const OIIO::ImageSpec& spec) {
    const std::vector<float>& alpha = picture.planes[spec.alpha_channel];
    for (int c = 0; c < spec.nchannels; ++c) {
        if (!isColour(spec, c)) continue;
        std::ranges::transform(picture.planes[c], alpha, picture.planes[c].begin(), std::multiplies<float>());
    }
}

template <class Code>
Values<float> codesAsFloats(OIIO::ImageInput& input, const fs::path& path, OIIO::TypeDesc type) {
    const Values<Code> codes = readPixels<Code>(input, path, type);
    Values<float> floats(codes.count);
    std::copy_n(codes.first.get(), codes.count, floats.first.get());
    return floats;
}

class OpenImageIOCodec : public PictureCodec {
public:
    void setThreads(int count) const override { OIIO::attribute("threads", count); }

    void setLimits(const PictureLimits& wanted) const override {
        constexpr std::uint64_t floatsOfPixel = 4;
        const std::uint64_t megabytes = (wanted.pixels >> 20) * floatsOfPixel * sizeof(float) + 1;
        limits = wanted;
        OIIO::attribute("limits:imagesize_MB", static_cast<int>(std::min<std::uint64_t>(megabytes, INT_MAX)));
        OIIO::attribute("limits:channels", static_cast<int>(std::min<std::uint64_t>(limits.channels, INT_MAX)));
    }

    Picture readPicture(const fs::path& path, Colourspace colourspace) const override {
        const auto input = openPicture(path);
        const OIIO::ImageSpec& spec = input->spec();
        Picture picture = toPlanes(spec, readPixels<float>(*input, path, OIIO::TypeDesc::FLOAT));
        if (colourspace == Colourspace::sRGB) linearize(picture, spec);
        const bool unassociated = spec.get_int_attribute("oiio:UnassociatedAlpha") != 0;
        if (unassociated && spec.alpha_channel >= 0) multiplyByAlpha(picture, spec);
        return picture;
    }

    Picture readCodes(const fs::path& path) const override {
        const auto input = openPicture(path);
        const OIIO::ImageSpec& spec = input->spec();
        if (spec.nchannels != 1) {
            throw cannotRead(
                path, fmt::format("it has {} channels where one is needed; give a grey picture", spec.nchannels));
        }
        switch (spec.format.basetype) {
            case OIIO::TypeDesc::UINT8:
                return toPlanes(spec, codesAsFloats<std::uint8_t>(*input, path, OIIO::TypeDesc::UINT8));
            case OIIO::TypeDesc::UINT16:
                return toPlanes(spec, codesAsFloats<std::uint16_t>(*input, path, OIIO::TypeDesc::UINT16));
            case OIIO::TypeDesc::UINT32:
                return toPlanes(spec, codesAsFloats<std::uint32_t>(*input, path, OIIO::TypeDesc::UINT32));
            case OIIO::TypeDesc::HALF:
            case OIIO::TypeDesc::FLOAT:
                return toPlanes(spec, readPixels<float>(*input, path, OIIO::TypeDesc::FLOAT));
            default:
                throw cannotRead(path, fmt::format("its pixels are of type {}; give unsigned integers or floats",
                                                   spec.format.c_str()));
        }
    }

    Colourspace usualColourspace(const fs::path& path) const override {
        const auto input = OIIO::ImageInput::open(path.string());
        if (!input) {
            OIIO::geterror();          // taken, so that it isn't told twice
            return Colourspace::sRGB;  // whoever reads the picture next says what is wrong with it
        }
        return input->spec().format.is_floating_point() ? Colourspace::linear : Colourspace::sRGB;
    }

    std::vector<float> resizeRgb(const std::vector<float>& pixels, int width, int height, int newWidth,
                                 int newHeight) const override {
        OIIO::ImageBuf source(OIIO::ImageSpec(width, height, 3, OIIO::TypeFloat));
        source.set_pixels(OIIO::ROI::All(), OIIO::TypeFloat, pixels.data());
        const OIIO::ROI target(0, newWidth, 0, newHeight, 0, 1, 0, 3);
        const OIIO::ImageBuf resized = OIIO::ImageBufAlgo::resize(source, "triangle", 0.0f, target);
        std::vector<float> result(static_cast<std::size_t>(target.npixels()) * 3);
        if (resized.has_error() || !resized.get_pixels(target, OIIO::TypeFloat, result.data()))
            throw std::runtime_error("a picture can't be resized: " + resized.geterror());
        return result;
    }

    void encodeRgb8(const fs::path& path, const fs::path& temporary, int width, int height,
                    const std::vector<std::uint8_t>& pixels) const override {
        const auto failed = [&](const std::string& reason) {
            return FileError(fmt::format("Cannot write '{}': {}.", path.string(), firstLine(reason)));
        };
        const auto output = OIIO::ImageOutput::create(path.string());  // the name's ending chooses the format
        if (!output) throw failed("no picture format has this ending; use .png");
        OIIO::ImageSpec spec(width, height, 3, OIIO::TypeDesc::UINT8);
        spec.attribute("oiio:ColorSpace", "sRGB");
        spec.attribute("png:compressionLevel", 4);  // half the time of the usual 6 for 2% more bytes
        if (!output->open(temporary.string(), spec) || !output->write_image(OIIO::TypeDesc::UINT8, pixels.data()) ||
            !output->close()) {
            throw failed(output->geterror());
        }
        // Some encoders pass over a full disk in silence: what was written must be readable.
        try {
            readPixels<std::uint8_t>(*openPicture(temporary), temporary, OIIO::TypeDesc::UINT8);
        } catch (const FileError&) {
            throw failed("the disk took only a part of it; make room");
        }
    }
};

}  // namespace

extern "C" __attribute__((visibility("default"))) const PictureCodec* viewtintPictureCodec() {
    static const OpenImageIOCodec codec;
    return &codec;
}

}  // namespace ViewTint::Host
