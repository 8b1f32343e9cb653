#include "host/graph/MatchCheck.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <list>
#include <vector>

#include "Common/Common.h"
#include "ToneAligner/ToneAligner.h"
#include "host/graph/OperatorNode.h"
#include "node/ViewTintPlugin.h"

namespace ViewTint::Host {

namespace {

using Fresco::Image::Box;
using Fresco::Image::Channel;
using Fresco::Image::ChannelSet;
using Fresco::Image::ImagePlane;
using Fresco::Image::Iop;

using Vellum::Common::largestValue;

constexpr double leastShare = 0.01;
/// So few rows at a time that a usual picture has shown its one per cent after one or two turns.
constexpr int rowsAtATime = 16;
/// The splits of the node's input: the base context, both views, and then the neighbouring frames.
constexpr int firstView = 1, firstNeighbour = 3;

/// Some channels of a few rows.
class Rows {
public:
    Rows(Iop& source, const Box& box, ChannelSet channels) : plane_(box, false, std::move(channels)) {
        source.fetchPlane(plane_);
    }
    const Box& box() const { return plane_.box(); }
    float at(int x, int y, int component) const { return *plane_.at(x, y, component); }

private:
    ImagePlane plane_;
};

struct Counts {
    std::int64_t pixels = 0, visible = 0, hidden = 0, hiddenByNeighbours = 0, outside = 0;
};

/// The artist's mask.
class Selection {
public:
    explicit Selection(const Vellum::Image::Image& mask) : mask_(mask) {}
    bool selects(int x, int y) const { return at(x, y) > 0 && at(x, y) <= largestValue; }
    /// Only such pixels are measured.
    bool selectsFully(int x, int y) const { return selects(x, y) && 1 - at(x, y) <= Vellum::Tone::countedTolerance; }

private:
    float at(int x, int y) const {
        const auto& layout = mask_.tile().layout;
        return mask_.data()[(x - mask_.box().x0) * layout.x.elements + (y - mask_.box().y0) * layout.y.elements];
    }

    Vellum::Image::Image mask_;
};

/// What the node reads to see which pixels have a match.
class Inputs {
public:
    Inputs(const OperatorNode& node, int corrected)
        : occlusion_(Fresco::Image::getChannel("mask_occlusion.alpha", true)),
          view_(at(node, firstView + corrected)),
          other_(at(node, firstView + 1 - corrected)) {
        const Channel first = Fresco::Image::firstDisparityChannel + (corrected == 0 ? 2 : 0);
        vectors_ = {first, first + 1};
        for (int offset = firstNeighbour; offset < node.op().split_input(0); ++offset)
            frames_.push_back(at(node, offset));
    }

    bool complete() const {
        const auto has = [](const Iop* source, std::uint32_t mask) {
            return source && source->info().channels.contains(ChannelSet::fromMask(mask));
        };
        return has(view_, Fresco::Image::rgbMask | Fresco::Image::disparityMask) &&
               has(other_, Fresco::Image::rgbMask) &&
               std::ranges::all_of(frames_, [](const Iop* frame) { return frame != nullptr; });
    }
    const Box& box() const { return view_->info().box; }

    /// Adds what some rows show, of the whole view and of what a mask selects.
    void count(const Box& rows, const Selection* mask, Counts& whole, Counts& selected) const {
        std::list<Rows> occlusions;
        occlusions.emplace_back(*view_, rows, ChannelSet{occlusion_});
        for (Iop* frame : frames_)
            if (const Box common = intersect(rows, frame->info().box); !common.empty())
                occlusions.emplace_back(*frame, common, ChannelSet{occlusion_});
        const Rows vectors(*view_, rows, vectors_);
        for (int y = rows.y0; y < rows.y1; ++y)
            for (int x = rows.x0; x < rows.x1; ++x) {
                const auto hides = [&](const Rows& frame) {
                    return contains(frame.box(), x, y) && isHidden(frame.at(x, y, 0));
                };
                const bool hidden = std::ranges::any_of(occlusions, hides);
                const bool inside = isInside(x, y, vectors.at(x, y, 0), vectors.at(x, y, 1), other_->info().box);
                const auto kind = hidden   ? (hides(occlusions.front()) ? &Counts::hidden : &Counts::hiddenByNeighbours)
                                  : inside ? &Counts::visible
                                           : &Counts::outside;
                ++whole.pixels;
                ++(whole.*kind);
                if (!mask || !mask->selects(x, y)) continue;
                ++selected.pixels;
                if (kind != &Counts::visible || mask->selectsFully(x, y)) ++(selected.*kind);
            }
    }

private:
    static Iop* at(const OperatorNode& node, int offset) {
        return dynamic_cast<Iop*>(node.input(node.inputNumber(0, offset)));
    }
    static bool contains(const Box& box, int x, int y) {
        return x >= box.x0 && x < box.x1 && y >= box.y0 && y < box.y1;
    }
    static bool isHidden(float occlusion) {
        return !(occlusion <= Vellum::Tone::countedTolerance && occlusion >= -largestValue);
    }
    /// False for vectors that are no numbers.
    static bool isInside(int x, int y, float dx, float dy, const Box& box) {
        const float u = static_cast<float>(x) + dx + 0.5f, v = static_cast<float>(y) + dy + 0.5f;
        return u >= static_cast<float>(box.x0) && u < static_cast<float>(box.x1) && v >= static_cast<float>(box.y0) &&
               v < static_cast<float>(box.y1);
    }

    Channel occlusion_;
    Iop* view_;
    Iop* other_;
    ChannelSet vectors_;
    std::vector<Iop*> frames_;
};

}  // namespace

std::string SharedPicture::complaint(const std::string& view, const std::string& occlusion) const {
    const std::string share = masked ? fmt::format("nothing that the mask fully selects in the view '{}'", view)
                                     : fmt::format("only {:.2f}% of the view '{}'", 100 * visible, view);
    const std::string neighbours =
        hiddenByNeighbours > 0
            ? fmt::format(", its neighbours in time hide {:.1f}% more (--stabiliseOcclusions off does without them)",
                          100 * hiddenByNeighbours)
            : "";
    return fmt::format(
        "the frame keeps its own colours: {} is visible in both views, too little to match ('{}' hides {:.1f}%{}, the "
        "disparity points outside the other view in {:.1f}%). Check {}that the occlusion is 1 only where a pixel is "
        "hidden, that the disparity is in pixels, and that both views show one scene.",
        share, occlusion, 100 * hidden, neighbours, 100 * outside,
        masked ? "that the mask reaches 1 in the right place, " : "");
}

std::optional<SharedPicture> tooLittleShared(const OperatorNode& node) {
    auto* op = dynamic_cast<Cobalt::Research::ViewTintPlugin*>(&node.op());
    if (!op) return std::nullopt;
    const Inputs inputs(node, op->matchWhat == 0 ? 0 : 1);
    if (!inputs.complete()) return std::nullopt;
    const Box& box = inputs.box();
    std::optional<Selection> mask;
    if (const auto selected = op->selection(box)) mask.emplace(*selected);
    if (!node.errors().empty()) return std::nullopt;
    Counts whole, selected;
    const auto wholeIsEnough = [&] {
        return static_cast<double>(whole.visible) >= leastShare * static_cast<double>(box.pixels());
    };
    for (int y = box.y0; y < box.y1; y += rowsAtATime) {
        inputs.count({box.x0, y, box.x1, std::min(y + rowsAtATime, box.y1)}, mask ? &*mask : nullptr, whole, selected);
        // Masks are often small or soft: a few pixels measure well enough, none at all would turn out black.
        if (wholeIsEnough() && (!mask || selected.visible > 0)) return std::nullopt;
    }
    const bool masked = wholeIsEnough();
    const Counts& counts = masked ? selected : whole;
    if (counts.pixels == 0) return std::nullopt;  // the mask selects nothing
    const auto share = [&](std::int64_t count) {
        return static_cast<double>(count) / static_cast<double>(counts.pixels);
    };
    return SharedPicture{share(counts.visible), share(counts.hidden), share(counts.hiddenByNeighbours),
                         share(counts.outside), masked};
}

}  // namespace ViewTint::Host
