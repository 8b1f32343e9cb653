#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "compute/Box.h"
#include "host/files/FileIdentity.h"

namespace ViewTint::Host {

using Vellum::Image::Box;

/// Something is wrong with a file: one sentence for the person at the keyboard, naming the file.
class FileError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Sets how many threads the file library uses for compression; 0 means the calling thread alone.
void setFileThreads(int count);

/// A view to be written to a new file: named planes of one size, each with its lowest row first.
struct NewView {
    struct Plane {
        std::string channel;  ///< without the view's name: "R", "disparityL.x"
        std::vector<float> pixels;
    };
    std::string name;
    std::vector<Plane> planes;
};

enum class PixelStorage { half, single };

/// A multi-view OpenEXR picture in memory, every channel in the type that the file has.
///
/// Both ways of storing views are understood: all views in one part (`multiView` attribute; channels of the
/// default view bare, those of others as `right.R`, `disparityL.right.x`) and a part for each view (`view`
/// attribute). Channels are named here without their view: `R`, `disparityL.x`, `mask_occlusion.alpha`. Where a view
/// has several parts, the name of a later part stands for the layer of channels without one: `x` in the part
/// `disparityL.right` is `disparityL.x`.
///
/// Coordinates are those of the compositing plane: the display window's lower left corner is (0, 0), rows count
/// upward. Files count rows downward; this class turns them over, both ways.
class MultiViewFile {
public:
    /// Reads headers and pixels. Throws FileError: no such file, not an OpenEXR picture, truncated or damaged, changed
    /// while it was read; deep pixels, subsampled channels and several resolution levels are refused. With `channels`,
    /// named without their view, only the pixels of these are read; no others may be asked for, nor may any be
    /// replaced.
    static MultiViewFile open(const std::filesystem::path& path,
                              const std::optional<std::set<std::string>>& channels = {});

    /// Decodes every pixel of a file to its end and keeps none: no channel may be asked for. Throws as open does.
    static MultiViewFile check(const std::filesystem::path& path);

    /// A file for each view, under its name; each holds one view. Throws FileError, also where they differ in size.
    struct ViewFile {
        std::string view;
        std::filesystem::path path;
        FileIdentity identity = {};  ///< for `make`: of what was read
    };
    static MultiViewFile openViews(std::span<const ViewFile> files,
                                   const std::optional<std::set<std::string>>& channels = {});

    /// A picture in one part that no file holds yet. `sources` are the files that its views come from.
    static MultiViewFile make(std::span<const ViewFile> sources, int width, int height, std::span<const NewView> views,
                              PixelStorage storage);

    MultiViewFile(MultiViewFile&&) noexcept;
    MultiViewFile& operator=(MultiViewFile&&) noexcept;
    ~MultiViewFile();

    /// Of several files the first.
    const std::filesystem::path& path() const;
    /// The file that holds a view.
    const std::filesystem::path& pathOf(const std::string& view) const;

    /// The identities of all files that the pixels were read from, as they were when they were read.
    std::string identity() const;

    /// Names of the views in the file's order, the default view first. A file without views has one, "main".
    const std::vector<std::string>& views() const;
    /// Names of a view's channels without the view's name. Throws FileError for an unknown view.
    std::vector<std::string> channels(const std::string& view) const;
    bool hasChannel(const std::string& view, const std::string& channel) const;

    /// Width and height of the display window.
    int width() const;
    int height() const;
    /// What the pixels take in memory, and what they would take if all were read.
    std::size_t bytes() const;
    std::size_t allBytes() const;
    /// The data window of a view's channels (of several parts: their union).
    Box dataBox(const std::string& view) const;

    /// Copies a channel as float. `destination` is pixel (box.x0, box.y0), the lowest row first, `rowStride` in
    /// floats. Pixels outside the data window become 0.
    void read(const std::string& view, const std::string& channel, const Box& box, float* destination,
              std::ptrdiff_t rowStride) const;

    /// Overwrites a channel inside its data window; the values are converted to the channel's own type. In half
    /// precision finite values beyond its range become the largest half, 65504, and not infinity; integers are
    /// rounded to the nearest and clamped, NaN becomes 0.
    void replace(const std::string& view, const std::string& channel, const Box& box, const float* source,
                 std::ptrdiff_t rowStride);

    /// Adds a channel to a view, over the view's data window, in single precision. `plane` covers the display window;
    /// `origin` tells where it comes from. Unless it is to be saved, only reads see it, in place of one of that name.
    void add(const std::string& view, const NewView::Plane& plane, bool saved, const std::string& origin);
    /// Where the added channels come from; empty where there are none.
    const std::string& addedFrom() const;

    /// A text attribute; empty where there is none. Of several parts the first has it, of several files each.
    std::string text(const std::string& attribute) const;
    void setText(const std::string& attribute, const std::string& text);

    /// Writes the picture with every attribute, channel, part, compression and pixel type that came in. Parts in
    /// which nothing was replaced are copied without decoding; in others a lossy compression works anew on every
    /// channel of the part. Written beside the target under a temporary name, synced and renamed: the target is
    /// either the whole new file or what it was before. May overwrite the file that was opened. Throws FileError.
    void save(const std::filesystem::path& path) const;
    /// The same for the file of one view, where each view has a file of its own.
    void saveView(const std::string& view, const std::filesystem::path& path) const;

private:
    struct Contents;
    template <class ReadPart>
    static std::unique_ptr<Contents> readParts(const std::filesystem::path& path, int threads, ReadPart readPart);
    explicit MultiViewFile(std::unique_ptr<Contents> contents);
    MultiViewFile* fileOf(const std::string& view) const;
    std::unique_ptr<Contents> contents_;
};

/// Writes views of one size as a new multi-view OpenEXR file in one part. Colour and masks are stored as `storage`;
/// disparity always in single precision. Throws FileError.
void writeMultiView(const std::filesystem::path& path, int width, int height, std::span<const NewView> views,
                    PixelStorage storage);

}  // namespace ViewTint::Host
