#include "host/files/MultiViewFile.h"

#include <ImfChannelList.h>
#include <ImfStandardAttributes.h>
#include <ImfStringAttribute.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <set>
#include <utility>

#include "base/Ensure.h"
#include "compute/Exception.h"
#include "compute/HostDevice.h"
#include "host/files/ChannelNames.h"
#include "host/files/HalfFloat.h"
#include "host/files/MultiViewFileContents.h"
#include "host/files/PictureLimits.h"

namespace ViewTint::Host {

namespace {

constexpr const char* onlyView = "main";

bool contains(const std::vector<std::string>& names, const std::string& name) {
    return std::ranges::find(names, name) != names.end();
}

/// The views that a part's header speaks of; empty when it speaks of none.
std::vector<std::string> viewsInHeader(const Imf::Header& header) {
    if (header.hasView()) return {header.view()};
    if (Imf::hasMultiView(header)) return Imf::multiView(header);  // perhaps an empty list
    return {};
}

std::uint32_t toUint(float value) {
    constexpr double largest = std::numeric_limits<std::uint32_t>::max();
    if (!(value > 0.0f)) return 0;  // NaN as well
    return static_cast<std::uint32_t>(std::min(std::nearbyint(static_cast<double>(value)), largest));
}

template <class Stored>
void loadRow(const char* row, std::int64_t count, float* destination) {
    const Stored* values = reinterpret_cast<const Stored*>(row);
    for (std::int64_t i = 0; i < count; ++i)
        destination[i] = static_cast<float>(values[i]);
}

template <class Stored, class Convert>
void storeRow(const float* source, std::int64_t count, char* row, Convert convert) {
    Stored* values = reinterpret_cast<Stored*>(row);
    for (std::int64_t i = 0; i < count; ++i)
        values[i] = convert(source[i]);
}

void loadRow(Imf::PixelType type, const char* row, std::int64_t count, float* destination) {
    switch (type) {
        case Imf::HALF:
            return loadRow<half>(row, count, destination);
        case Imf::FLOAT:
            return loadRow<float>(row, count, destination);
        default:
            return loadRow<std::uint32_t>(row, count, destination);
    }
}

void storeRow(Imf::PixelType type, const float* source, std::int64_t count, char* row) {
    switch (type) {
        case Imf::HALF:
            return storeRow<half>(source, count, row, toHalf);
        case Imf::FLOAT:
            std::memcpy(row, source, static_cast<std::size_t>(count) * sizeof(float));
            return;
        default:
            return storeRow<std::uint32_t>(source, count, row, toUint);
    }
}

/// The byte offset of plane pixel (x, y) in a channel whose data window is `window`; the top row comes first.
std::size_t offsetOf(const Box& window, std::size_t pixelBytes, std::int32_t x, std::int32_t y) {
    const std::int64_t row = window.y1 - 1 - std::int64_t{y};
    return static_cast<std::size_t>(row * window.width() + (x - window.x0)) * pixelBytes;
}

}  // namespace

std::size_t bytesOf(Imf::PixelType type) {
    return type == Imf::HALF ? 2 : 4;
}

void MultiViewFile::Contents::nameChannels() {
    for (const StoredPart& part : parts) {
        for (const std::string& view : viewsInHeader(part.header)) {
            if (!contains(views, view)) views.push_back(view);
        }
    }
    if (views.empty()) views.push_back(onlyView);

    std::set<std::pair<std::string, std::string>> taken;  // by the channels before: views and names
    std::vector<std::string> begunViews;                  // those of which an earlier part held the main layer
    for (StoredPart& part : parts) {
        const std::vector<std::string> ownViews = viewsInHeader(part.header);
        const bool partOfOneView = part.header.hasView() || ownViews.empty();
        const std::string partView = part.header.hasView() ? part.header.view() : views.front();
        const std::string layer = part.header.hasName() ? layerOfPart(part.header.name(), partView) : "";
        for (StoredChannel& channel : part.channels) {
            if (!partOfOneView) {
                const ViewChannel split = splitViewName(channel.fileName, ownViews);
                channel.view = split.view;
                channel.name = split.channel;
            } else {
                channel.view = partView;
                channel.name = channel.fileName;
            }
            // A view's further parts may leave out the layer in the channels' names, since the part's name has it.
            const bool bare = channel.name.find('.') == std::string::npos;
            if (partOfOneView && bare && !layer.empty()) {
                channel.secondName = layer + "." + channel.name;
                if (contains(begunViews, partView)) std::swap(channel.name, channel.secondName);
            }
            // Two channels under one name: the later one is shown as the file has it.
            if (taken.contains({channel.view, channel.name})) channel.name = channel.fileName;
            taken.insert({channel.view, channel.name});
        }
        if (partOfOneView) begunViews.push_back(partView);
    }
}

MultiViewFile::Contents::Location MultiViewFile::Contents::find(const std::string& view,
                                                                const std::string& channel) const {
    for (const bool saved : {false, true}) {  // an added channel stands before the file's own
        for (const auto name : {&StoredChannel::name, &StoredChannel::secondName}) {
            for (const StoredPart& part : parts) {
                for (const StoredChannel& candidate : part.channels) {
                    const bool here = part.saved == saved && candidate.view == view && candidate.*name == channel;
                    if (here) return {&part, &candidate};
                }
            }
        }
    }
    return {};
}

void MultiViewFile::Contents::requireView(const std::string& view) const {
    if (contains(views, view)) return;
    throw FileError(fmt::format("'{}' has no view '{}'; its views are: {}.", path.string(), view, listNames(views)));
}

MultiViewFile::Contents::Location MultiViewFile::Contents::get(const std::string& view,
                                                               const std::string& channel) const {
    requireView(view);
    const Location found = find(view, channel);
    if (found.channel == nullptr) {
        throw FileError(fmt::format("'{}': the view '{}' has no channel '{}'.", path.string(), view, channel));
    }
    return found;
}

Box MultiViewFile::Contents::planeBox(const StoredPart& part) const {
    const Imath::Box2i& window = part.window();
    return {window.min.x - display.min.x, display.max.y - window.max.y, window.max.x - display.min.x + 1,
            display.max.y - window.min.y + 1};
}

MultiViewFile::MultiViewFile(std::unique_ptr<Contents> contents) : contents_(std::move(contents)) {}
MultiViewFile::MultiViewFile(MultiViewFile&&) noexcept = default;
MultiViewFile& MultiViewFile::operator=(MultiViewFile&&) noexcept = default;
MultiViewFile::~MultiViewFile() = default;

const std::filesystem::path& MultiViewFile::path() const {
    return contents_->path;
}

const std::vector<std::string>& MultiViewFile::views() const {
    return contents_->views;
}

MultiViewFile MultiViewFile::openViews(std::span<const ViewFile> files,
                                       const std::optional<std::set<std::string>>& channels) {
    auto contents = std::make_unique<Contents>();
    for (const ViewFile& file : files) {
        auto opened = std::make_unique<MultiViewFile>(open(file.path, channels));
        if (opened->views().size() != 1)
            throw FileError(fmt::format("'{}' holds several views ({}); name it without %V.", file.path.string(),
                                        listNames(opened->views())));
        contents->views.push_back(file.view);
        contents->files.push_back(std::move(opened));
    }
    const MultiViewFile& first = *contents->files.front();
    for (const auto& file : contents->files)
        if (file->width() != first.width() || file->height() != first.height())
            throw FileError(fmt::format("'{}' and '{}' differ in size; give all views the same.", first.path().string(),
                                        file->path().string()));
    contents->path = first.path();
    contents->display = first.contents_->display;
    return MultiViewFile(std::move(contents));
}

/// Where each view has a file, that of the view; else null.
MultiViewFile* MultiViewFile::fileOf(const std::string& view) const {
    if (contents_->files.empty()) return nullptr;
    contents_->requireView(view);
    const auto place = std::ranges::find(contents_->views, view) - contents_->views.begin();
    return contents_->files[static_cast<std::size_t>(place)].get();
}

const std::filesystem::path& MultiViewFile::pathOf(const std::string& view) const {
    if (const auto own = contents_->viewPaths.find(view); own != contents_->viewPaths.end()) return own->second;
    const MultiViewFile* file = fileOf(view);
    return file ? file->path() : path();
}

std::string MultiViewFile::identity() const {
    std::string text;
    for (const FileIdentity& file : contents_->identities)
        text += file.text() + "\n";
    for (const auto& file : contents_->files)
        text += file->identity();
    return text;
}

void MultiViewFile::saveView(const std::string& view, const std::filesystem::path& path) const {
    const MultiViewFile* file = fileOf(view);
    (file ? *file : *this).save(path);
}

std::vector<std::string> MultiViewFile::channels(const std::string& view) const {
    if (const MultiViewFile* file = fileOf(view)) return file->channels(file->views().front());
    contents_->requireView(view);
    std::vector<std::string> names;
    for (const StoredPart& part : contents_->parts) {
        for (const StoredChannel& channel : part.channels) {
            if (channel.view == view) names.push_back(channel.name);
        }
    }
    return names;
}

bool MultiViewFile::hasChannel(const std::string& view, const std::string& channel) const {
    if (!contents_->files.empty() && !contains(contents_->views, view)) return false;
    if (const MultiViewFile* file = fileOf(view)) return file->hasChannel(file->views().front(), channel);
    return contents_->find(view, channel).channel != nullptr;
}

int MultiViewFile::width() const {
    return contents_->display.max.x - contents_->display.min.x + 1;
}

int MultiViewFile::height() const {
    return contents_->display.max.y - contents_->display.min.y + 1;
}

void PixelBytes::allocate(std::size_t bytes) try {
    memory_ = Vellum::Compute::Host::hostDevice().allocate(bytes, Cobalt::Device::bufferMemory());
    size_ = bytes;
} catch (const Vellum::Compute::MemoryException&) {
    throw std::bad_alloc();
}

std::size_t MultiViewFile::bytes() const {
    std::size_t sum = 0;
    for (const auto& file : contents_->files)
        sum += file->bytes();
    for (const StoredPart& part : contents_->parts)
        for (const StoredChannel& channel : part.channels)
            sum += channel.pixels.size();
    return sum;
}

std::size_t MultiViewFile::allBytes() const {
    std::size_t sum = 0;
    for (const auto& file : contents_->files)
        sum += file->allBytes();
    for (const StoredPart& part : contents_->parts)
        for (const StoredChannel& channel : part.channels)
            sum += static_cast<std::size_t>(part.width() * part.height()) * bytesOf(channel.type);
    return sum;
}

Box MultiViewFile::dataBox(const std::string& view) const {
    if (const MultiViewFile* file = fileOf(view)) return file->dataBox(file->views().front());
    contents_->requireView(view);
    Box all;
    for (const StoredPart& part : contents_->parts) {
        const bool inView =
            std::ranges::any_of(part.channels, [&](const StoredChannel& channel) { return channel.view == view; });
        if (!inView) continue;
        const Box box = contents_->planeBox(part);
        all = all.empty() ? box
                          : Box{std::min(all.x0, box.x0), std::min(all.y0, box.y0), std::max(all.x1, box.x1),
                                std::max(all.y1, box.y1)};
    }
    PictureLimits::current().requireSize(contents_->path, "data window (of all parts of a view)",
                                         std::int64_t{all.x1} - all.x0, std::int64_t{all.y1} - all.y0);
    return all;
}

void MultiViewFile::read(const std::string& view, const std::string& channel, const Box& box, float* destination,
                         std::ptrdiff_t rowStride) const {
    if (const MultiViewFile* file = fileOf(view))
        return file->read(file->views().front(), channel, box, destination, rowStride);
    const auto [part, stored] = contents_->get(view, channel);
    ENSURE(stored->inMemory(), "the channel {} of {} was not read", channel, path().string());
    const Box window = contents_->planeBox(*part);
    const Box common = intersect(box, window);
    const std::size_t pixelBytes = bytesOf(stored->type);
    for (std::int32_t y = box.y0; y < box.y1; ++y) {
        float* row = destination + std::ptrdiff_t{y - box.y0} * rowStride;
        if (common.empty() || y < common.y0 || y >= common.y1) {
            std::fill_n(row, std::max(box.width(), 0), 0.0f);
            continue;
        }
        std::fill(row, row + (common.x0 - box.x0), 0.0f);
        loadRow(stored->type, stored->pixels.data() + offsetOf(window, pixelBytes, common.x0, y), common.width(),
                row + (common.x0 - box.x0));
        std::fill(row + (common.x1 - box.x0), row + box.width(), 0.0f);
    }
}

void MultiViewFile::replace(const std::string& view, const std::string& channel, const Box& box, const float* source,
                            std::ptrdiff_t rowStride) {
    if (MultiViewFile* file = fileOf(view))
        return file->replace(file->views().front(), channel, box, source, rowStride);
    const auto location = contents_->get(view, channel);
    auto* part = const_cast<StoredPart*>(location.part);
    auto* stored = const_cast<StoredChannel*>(location.channel);
    ENSURE(std::ranges::all_of(part->channels, &StoredChannel::inMemory), "{} was read in part only", path().string());
    const Box window = contents_->planeBox(*part);
    const Box common = intersect(box, window);
    const std::size_t pixelBytes = bytesOf(stored->type);
    for (std::int32_t y = common.y0; y < common.y1 && !common.empty(); ++y) {
        const float* row = source + std::ptrdiff_t{y - box.y0} * rowStride + (common.x0 - box.x0);
        storeRow(stored->type, row, common.width(), stored->pixels.data() + offsetOf(window, pixelBytes, common.x0, y));
    }
    part->replaced = true;
}

namespace {

/// A channel's pixels as they are stored: from the top row of `window` (in the plane's coordinates) downward.
StoredChannel storedChannel(const ViewChannel& name, const std::string& fileName, Imf::PixelType type,
                            const std::vector<float>& pixels, int planeWidth, const Box& window) {
    StoredChannel stored;
    stored.fileName = fileName;
    stored.view = name.view;
    stored.name = name.channel;
    stored.type = type;
    const std::size_t pixelBytes = bytesOf(type);
    stored.pixels.allocate(static_cast<std::size_t>(window.pixels()) * pixelBytes);
    for (std::int32_t y = window.y0; y < window.y1; ++y)
        storeRow(type, pixels.data() + std::int64_t{y} * planeWidth + window.x0, window.width(),
                 stored.pixels.data() + offsetOf(window, pixelBytes, window.x0, y));
    return stored;
}

}  // namespace

MultiViewFile MultiViewFile::make(std::span<const ViewFile> sources, int width, int height,
                                  std::span<const NewView> views, PixelStorage storage) {
    auto contents = std::make_unique<Contents>();
    contents->path = sources.front().path;
    for (const ViewFile& source : sources) {
        contents->viewPaths[source.view] = source.path;
        contents->identities.push_back(source.identity);
    }
    StoredPart part;
    part.header = Imf::Header(width, height);
    part.replaced = true;
    const Imf::PixelType type = storage == PixelStorage::half ? Imf::HALF : Imf::FLOAT;
    for (const NewView& view : views) {
        contents->views.push_back(view.name);
        for (const NewView::Plane& plane : view.planes) {
            const std::string fileName = joinViewName(plane.channel, view.name, views.front().name);
            part.header.channels().insert(fileName, Imf::Channel(type));
            part.channels.push_back(
                storedChannel({view.name, plane.channel}, fileName, type, plane.pixels, width, {0, 0, width, height}));
        }
    }
    Imf::addMultiView(part.header, contents->views);
    contents->display = part.header.displayWindow();
    contents->parts.push_back(std::move(part));
    return MultiViewFile(std::move(contents));
}

void MultiViewFile::add(const std::string& view, const NewView::Plane& plane, bool saved, const std::string& origin) {
    contents_->addedFrom = origin;
    if (MultiViewFile* file = fileOf(view)) return file->add(file->views().front(), plane, saved, origin);
    contents_->requireView(view);
    if (saved && hasChannel(view, plane.channel))
        return replace(view, plane.channel, {0, 0, width(), height()}, plane.pixels.data(), width());
    const auto holdsView = [&](const StoredPart& part) {
        return std::ranges::any_of(part.channels, [&](const StoredChannel& channel) { return channel.view == view; });
    };
    StoredPart& home = *std::ranges::find_if(contents_->parts, holdsView);
    const Box window = contents_->planeBox(home), display{0, 0, width(), height()};
    const bool ofSeveralViews = !home.header.hasView() && contents_->views.size() > 1;
    const std::string fileName =
        ofSeveralViews ? joinViewName(plane.channel, view, contents_->views.front()) : plane.channel;
    std::vector<float> inWindow(static_cast<std::size_t>(window.pixels()), 0.0f);
    const Box common = intersect(window, display);
    for (std::int32_t y = common.y0; y < common.y1 && !common.empty(); ++y)
        std::copy_n(plane.pixels.data() + std::int64_t{y} * width() + common.x0, common.width(),
                    inWindow.data() + std::int64_t{y - window.y0} * window.width() + (common.x0 - window.x0));
    StoredChannel stored = storedChannel({view, plane.channel}, fileName, Imf::FLOAT, inWindow, window.width(),
                                         {0, 0, window.width(), window.height()});
    if (saved) {
        ENSURE(std::ranges::all_of(home.channels, &StoredChannel::inMemory), "{} was read in part only",
               path().string());
        home.header.channels().insert(fileName, Imf::Channel(Imf::FLOAT));
        home.channels.push_back(std::move(stored));
        home.replaced = true;
        return;
    }
    StoredPart hidden;
    hidden.header = home.header;
    hidden.saved = false;
    hidden.channels.push_back(std::move(stored));
    contents_->parts.push_back(std::move(hidden));
}

const std::string& MultiViewFile::addedFrom() const {
    return contents_->addedFrom;
}

std::string MultiViewFile::text(const std::string& attribute) const {
    if (!contents_->files.empty()) return contents_->files.front()->text(attribute);
    const auto* found = contents_->parts.front().header.findTypedAttribute<Imf::StringAttribute>(attribute.c_str());
    return found ? found->value() : "";
}

void MultiViewFile::setText(const std::string& attribute, const std::string& text) {
    for (const auto& file : contents_->files)
        file->setText(attribute, text);
    if (!contents_->files.empty()) return;
    Imf::Header& header = contents_->parts.front().header;
    header.erase(attribute);  // one of another type would be in the way
    header.insert(attribute, Imf::StringAttribute(text));
}

}  // namespace ViewTint::Host
