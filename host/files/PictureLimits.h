#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>

#include <fmt/format.h>

#include "host/files/MultiViewFile.h"

namespace ViewTint::Host {

/// How large a picture may be that is read at all. Headers are looked at before memory is taken for what they promise:
/// a damaged or hostile one may promise anything.
struct PictureLimits {
    std::uint64_t side = 65536;                          ///< pixels: width and height of windows and tiles
    std::uint64_t pixels = std::uint64_t{1} << 30;       ///< of the data window and of the display window, of each view
    std::uint64_t channels = 1024;                       ///< of a view
    std::uint64_t views = 64;                            ///< of a file
    std::uint64_t attributes = std::uint64_t{64} << 20;  ///< bytes of all attributes; each counts as 1 KiB at least

    struct Limit {
        const char* name;
        std::uint64_t PictureLimits::*value;
        const char* unit;
    };
    static constexpr std::array<Limit, 5> all{{{"side", &PictureLimits::side, "pixels"},
                                               {"pixels", &PictureLimits::pixels, "pixels"},
                                               {"channels", &PictureLimits::channels, "channels a view"},
                                               {"views", &PictureLimits::views, "views"},
                                               {"attributes", &PictureLimits::attributes, "bytes of attributes"}}};

    /// The limits of this process; set before pictures are read.
    static PictureLimits& current();
    /// Takes "side=131072,channels=4000". Throws std::invalid_argument.
    void parse(const std::string& text);
    /// "side=65536,pixels=1073741824,...": what `parse` takes.
    std::string text() const;

    /// Throws FileError where `found` is beyond the limit; `what` says what has so many, for example "its data window
    /// is 99999 pixels wide".
    template <std::uint64_t PictureLimits::*limit>
    void require(const std::filesystem::path& path, std::uint64_t found, const std::string& what) const {
        if (found <= this->*limit) return;
        for (const auto& [name, value, unit] : all)
            if (value == limit)
                throw FileError(
                    fmt::format("Cannot read '{}': {}, more than the limit of {} {}; if the file is right, allow it "
                                "with --limits {}={}.",
                                path.string(), what, this->*limit, unit, name, found));
    }

    /// Throws FileError unless a window of this size, 1 by 1 or more, is within the limits of sides and pixels.
    void requireSize(const std::filesystem::path& path, const char* window, std::int64_t width,
                     std::int64_t height) const {
        const auto wide = static_cast<std::uint64_t>(width), high = static_cast<std::uint64_t>(height);
        require<&PictureLimits::side>(path, wide, fmt::format("its {} is {} pixels wide", window, width));
        require<&PictureLimits::side>(path, high, fmt::format("its {} is {} pixels high", window, height));
        std::uint64_t area = 0;
        if (__builtin_mul_overflow(wide, high, &area)) area = UINT64_MAX;
        require<&PictureLimits::pixels>(path, area, fmt::format("its {} is {} x {} pixels", window, width, height));
    }

    /// Throws FileError where so many bytes of pixels can't come from a file of this size, which packs them
    /// `ratio`-fold at most. Small pictures are taken anyway.
    static void requirePlausible(const std::filesystem::path& path, double pixelBytes, double ratio,
                                 std::uint64_t fileBytes) {
        constexpr double alwaysTaken = 64 << 20;
        if (pixelBytes > alwaysTaken && pixelBytes / ratio > static_cast<double>(fileBytes))
            throw FileError(
                fmt::format("Cannot read '{}': it is truncated or damaged (impossible size); write or copy it again.",
                            path.string()));
    }
};

}  // namespace ViewTint::Host
