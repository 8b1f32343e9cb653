#include <Iex.h>
#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfOutputFile.h>
#include <ImfStandardAttributes.h>
#include <fmt/format.h>

#include <algorithm>
#include <deque>

#include "host/files/AtomicFile.h"
#include "host/files/ChannelNames.h"
#include "host/files/ExrStream.h"
#include "host/files/HalfFloat.h"
#include "host/files/MultiViewFile.h"

namespace ViewTint::Host {

namespace {

/// The file's picture while it is put together: a header and a buffer that refers to the planes, turned over.
struct Draft {
    Imf::Header header;
    Imf::FrameBuffer buffer;
    std::deque<std::vector<half>> halves;  // a deque: the buffer points into it
};

/// Disparity counts pixels: half precision would round it to a quarter of a pixel from 512 on.
bool isDisparity(const std::string& channel) {
    return channel.starts_with("disparity");
}

std::vector<half> toHalves(const std::vector<float>& values) {
    std::vector<half> halves(values.size());
    std::ranges::transform(values, halves.begin(), toHalf);
    return halves;
}

/// A slice whose first row is the last of `pixels`: files count rows from the top.
template <class Stored>
Imf::Slice turnedSlice(Imf::PixelType type, const std::vector<Stored>& pixels, std::size_t width) {
    const auto* topRow = reinterpret_cast<const char*>(pixels.data() + pixels.size() - width);
    const std::size_t rowBytes = width * sizeof(Stored);
    return Imf::Slice(type, const_cast<char*>(topRow), sizeof(Stored), std::size_t{0} - rowBytes);
}

void addPlane(Draft& draft, const std::string& fileName, const NewView::Plane& plane, int width, PixelStorage storage) {
    const bool single = storage == PixelStorage::single || isDisparity(plane.channel);
    const Imf::PixelType type = single ? Imf::FLOAT : Imf::HALF;
    draft.header.channels().insert(fileName, Imf::Channel(type));
    const auto rowPixels = static_cast<std::size_t>(width);
    if (single) {
        draft.buffer.insert(fileName, turnedSlice(type, plane.pixels, rowPixels));
    } else {
        draft.halves.push_back(toHalves(plane.pixels));
        draft.buffer.insert(fileName, turnedSlice(type, draft.halves.back(), rowPixels));
    }
}

void checkPlane(const std::filesystem::path& path, const Draft& draft, const std::string& fileName, const NewView& view,
                const NewView::Plane& plane, int width, int height) {
    const auto expected = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    if (plane.pixels.size() != expected) {
        throw FileError(fmt::format("Cannot write '{}': channel '{}' of view '{}' is not {} by {} pixels.",
                                    path.string(), plane.channel, view.name, width, height));
    }
    if (draft.header.channels().findChannel(fileName) != nullptr) {
        throw FileError(fmt::format("Cannot write '{}': view '{}' has channel '{}' twice.", path.string(), view.name,
                                    plane.channel));
    }
}

}  // namespace

void writeMultiView(const std::filesystem::path& path, int width, int height, std::span<const NewView> views,
                    PixelStorage storage) {
    if (width < 1 || height < 1 || views.empty()) {
        throw FileError(fmt::format("Cannot write '{}': there are no pixels to write.", path.string()));
    }
    AtomicFile target(path);
    ExrStream stream(target.temporaryPath(), path);
    try {
        Draft draft{Imf::Header(width, height), {}, {}};
        Imf::StringVector names;
        for (const NewView& view : views) {
            names.push_back(view.name);
            for (const NewView::Plane& plane : view.planes) {
                const std::string fileName = joinViewName(plane.channel, view.name, views.front().name);
                checkPlane(path, draft, fileName, view, plane, width, height);
                addPlane(draft, fileName, plane, width, storage);
            }
        }
        Imf::addMultiView(draft.header, names);
        Imf::OutputFile output(stream, draft.header);
        output.setFrameBuffer(draft.buffer);
        output.writePixels(height);
    } catch (const Iex::BaseExc& error) {
        throw FileError(fmt::format("Cannot write '{}': {}.", path.string(), error.what()));
    }
    stream.finish();
    target.commit();
}

}  // namespace ViewTint::Host
