#pragma once

#include <ImathBox.h>
#include <ImfHeader.h>
#include <ImfPixelType.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "compute/Device.h"
#include "host/files/FileIdentity.h"
#include "host/files/MultiViewFile.h"

namespace ViewTint::Host {

/// Memory of a channel, from the device's recycling pool: the pictures of a sequence come and go.
class PixelBytes {
public:
    /// Contents are unspecified. Throws std::bad_alloc.
    void allocate(std::size_t bytes);
    char* data() const { return static_cast<char*>(memory_->address()); }
    std::size_t size() const { return size_; }

private:
    Cobalt::Device::MemoryHandle memory_;
    std::size_t size_ = 0;
};

/// A channel in its own type, rows from the top of the picture downward as the file has them.
struct StoredChannel {
    std::string fileName;  ///< as the part's header has it
    std::string view;
    std::string name;        ///< as MultiViewFile shows it
    std::string secondName;  ///< also understood in lookups; may be empty
    Imf::PixelType type = Imf::HALF;
    PixelBytes pixels;

    bool inMemory() const { return pixels.size() > 0; }
};

struct StoredPart {
    Imf::Header header;
    std::vector<StoredChannel> channels;
    bool replaced = false;
    bool saved = true;  ///< false: channels that only reads see

    const Imath::Box2i& window() const { return header.dataWindow(); }
    std::int64_t width() const { return std::int64_t{window().max.x} - window().min.x + 1; }
    std::int64_t height() const { return std::int64_t{window().max.y} - window().min.y + 1; }
    bool tiled() const { return header.hasTileDescription(); }
};

struct MultiViewFile::Contents {
    struct Location {
        const StoredPart* part = nullptr;
        const StoredChannel* channel = nullptr;
    };

    std::filesystem::path path;
    std::vector<FileIdentity> identities;  ///< of what was read into `parts`
    std::vector<std::string> views;
    Imath::Box2i display;
    std::vector<StoredPart> parts;
    std::string addedFrom;
    std::map<std::string, std::filesystem::path> viewPaths;  ///< where views come from that no one file holds
    std::vector<std::unique_ptr<MultiViewFile>> files;       ///< of several, one for each of `views`; then no parts

    /// Takes the views and the channels' names from the headers of `parts`.
    void nameChannels();

    /// The channel, or null pointers where the view hasn't got it.
    Location find(const std::string& view, const std::string& channel) const;
    /// As find. Throws FileError.
    Location get(const std::string& view, const std::string& channel) const;
    void requireView(const std::string& view) const;

    /// A part's data window in plane coordinates: rows upward from the display window's lower left corner.
    Box planeBox(const StoredPart& part) const;
};

std::size_t bytesOf(Imf::PixelType type);

}  // namespace ViewTint::Host
