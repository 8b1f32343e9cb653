#include "host/graph/ReaderOps.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "base/Exception.h"
#include "compute/StageStatistics.h"

namespace ViewTint::Host {

using Fresco::Image::Box;
using Fresco::Image::ImagePlane;

namespace {

void clear(ImagePlane& plane) {
    const auto count = static_cast<std::size_t>(plane.box().pixels()) * plane.components();
    std::fill_n(plane.writableBuffer().data(), count, 0.0f);
}

/// Puts rows without gaps into one component of a packed plane.
void scatter(const std::vector<float>& pixels, ImagePlane& plane, int component) {
    float* out = plane.at(plane.box().x0, plane.box().y0, component);
    for (const float value : pixels) {
        *out = value;
        out += plane.pixelStride();
    }
}

/// Operators that fetch report failures with attributes in their own words, and others in no words at all.
[[noreturn]] void raiseForOperators(const FileError& error) {
    Cobalt::Base::Exception failure;
    failure.setPlainMessage(error.what());
    Cobalt::Base::raise(std::move(failure));
}

}  // namespace

FileReadOp::FileReadOp(std::shared_ptr<const MultiViewFile> file, std::string view, ChannelRoles roles)
    : Iop(nullptr), file_(std::move(file)), view_(std::move(view)), roles_(std::move(roles)) {}

void FileReadOp::_validate(bool) {
    info_ = {};
    info_.box = file_->dataBox(view_);
    info_.shown = {file_->width(), file_->height()};
    if (fillsWhatIsShown()) info_.format = info_.shown;
    for (const ChannelRoles::Role& role : roles_.all()) {
        if (file_->hasChannel(view_, role.fileChannel)) info_.channels.insert(role.channel);
    }
}

/// With pixels beside what is shown, or without some of it, in either view, its ends don't meet.
bool FileReadOp::fillsWhatIsShown() const {
    const Box shown{0, 0, file_->width(), file_->height()};
    return std::ranges::all_of(file_->views(), [&](const std::string& view) { return file_->dataBox(view) == shown; });
}

void FileReadOp::fetchPlane(ImagePlane& plane) {
    const Vellum::Compute::Stage stage("read");
    clear(plane);
    try {
        readInto(plane);
    } catch (const FileError& error) {
        raiseForOperators(error);
    }
}

void FileReadOp::readInto(ImagePlane& plane) const {
    const Box& box = plane.box();
    int component = -1;
    for (const Fresco::Image::Channel channel : plane.channels()) {
        ++component;
        if (!info().channels.contains(channel)) continue;
        const std::string& name = roles_.find(channel)->fileChannel;
        if (!plane.packed()) {
            file_->read(view_, name, box, plane.at(box.x0, box.y0, component), plane.rowStride());
        } else {
            std::vector<float> pixels(static_cast<std::size_t>(box.pixels()));
            file_->read(view_, name, box, pixels.data(), box.width());
            scatter(pixels, plane, component);
        }
    }
}

void FileReadOp::append(Fresco::Image::Hash& hash) {
    hash.append(std::string_view(file_->identity()));
    hash.append(view_);
    hash.append(std::string_view(file_->addedFrom()));
    for (const ChannelRoles::Role& role : roles_.all())
        hash.append(role.fileChannel);
}

void EmptyFrameOp::fetchPlane(ImagePlane& plane) {
    clear(plane);
}

}  // namespace ViewTint::Host
