#include "host/graph/RenderJob.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <system_error>
#include <utility>

#include "base/Exception.h"
#include "base/Failure.h"
#include "base/Text.h"
#include "compute/StageStatistics.h"
#include "host/files/AtomicFile.h"
#include "host/graph/MatchCheck.h"
#include "host/graph/ProjectViews.h"
#include "host/graph/ReaderOps.h"
#include "host/graph/SettingError.h"
#include "node/ViewTintChoices.h"

namespace ViewTint::Host {

namespace fs = std::filesystem;
using Fresco::Image::Op;
using Fresco::Image::OutputContext;

namespace {

constexpr int smallestSize = 2;  // pixels: operators compare neighbours

bool isSameFile(const fs::path& a, const fs::path& b) {
    std::error_code failed;
    if (fs::equivalent(a, b, failed) && !failed) return true;
    return fs::weakly_canonical(a, failed) == fs::weakly_canonical(b, failed);
}

void checkViewSize(const MultiViewFile& picture, const std::string& view) {
    const Box box = picture.dataBox(view);
    const int width = std::min(box.width(), picture.width());
    const int height = std::min(box.height(), picture.height());
    if (width >= smallestSize && height >= smallestSize) return;
    throw RenderError(fmt::format("'{}': the view '{}' is {} by {} pixels; at least {} by {} are needed.",
                                  picture.path().string(), view, width, height, smallestSize, smallestSize));
}

/// Unlike data windows are well where something was cut off. Pictures of unlike sizes that were put into one file show
/// in windows that both begin at the display window's upper left corner.
void checkEqualSize(const MultiViewFile& picture, const std::string& a, const std::string& b) {
    const Box boxA = picture.dataBox(a);
    const Box boxB = picture.dataBox(b);
    const auto atCorner = [&](const Box& box) { return box.x0 == 0 && box.y1 == picture.height(); };
    const bool equal = boxA.width() == boxB.width() && boxA.height() == boxB.height();
    if (equal || !atCorner(boxA) || !atCorner(boxB)) return;
    throw RenderError(fmt::format(
        "'{}': the views '{}' ({} by {} pixels) and '{}' ({} by {} pixels) differ in size; give both the same size.",
        picture.path().string(), a, boxA.width(), boxA.height(), b, boxB.width(), boxB.height()));
}

}  // namespace

/// A mask's reader, which knows what was read. The usual channels serve where it lacks those that were chosen: a choice
/// is made for the picture.
class MaskReadOp : public FileReadOp {
public:
    MaskReadOp(const std::shared_ptr<const MultiViewFile>& file, const std::string& view, const ChannelRoles& roles)
        : FileReadOp(file, view,
                     roles.fallingBack([&](const std::string& channel) { return file->hasChannel(view, channel); })) {}

    void fetchPlane(Fresco::Image::ImagePlane& plane) override {
        for (const Fresco::Image::Channel channel : plane.channels())
            read_.insert(channel);
        FileReadOp::fetchPlane(plane);
    }

    /// The roles that were read from chosen channels though there are the usual ones.
    std::vector<ChannelRoles::Role> doubtful() const {
        std::vector<ChannelRoles::Role> found;
        for (const ChannelRoles::Role& role : roles_.all())
            if (read_.contains(role.channel) && role.fileChannel != role.usualChannel &&
                file_->hasChannel(view_, role.usualChannel))
                found.push_back(role);
        return found;
    }

    /// What a mask without the channels that it needs has instead.
    std::string channelsText() const {
        std::string text =
            fmt::format("'{}' has the channels {}.", file_->path().string(), fmt::join(file_->channels(view_), ", "));
        for (const ChannelRoles::Role& role : roles_.all())
            if (role.chosen && role.channel <= Fresco::Image::alphaChannel)
                text += fmt::format(" Its {} is '{}' or '{}'.", role.name, role.fileChannel, role.usualChannel);
        return text;
    }

private:
    std::set<Fresco::Image::Channel> read_;
};

/// The operators of one frame: readers, made as they are asked for, and the node.
class RenderJob::Graph {
public:
    Graph(RenderJob& job, int frame, std::shared_ptr<MultiViewFile> picture)
        : job_(job),
          frame_(frame),
          picture_(std::move(picture)),
          views_(picture_->views()),
          services_(ofPicture(job.services_, *picture_)),
          node_(
              job.controls_.className(),
              [this](int input, const OutputContext& context) { return input == 0 ? source(context) : mask(context); },
              services_) {
        for (const ControlValues::Value& value : job.controls_.resolve(views_.names())) {
            node_.setControl(value.name, value.number);
        }
    }

    int viewCount() const { return views_.viewcount() - 1; }

    /// Renders a view if the node changes it, into the picture. False where that can't be matched.
    bool render(int view) {
        usedViews_.clear();
        const bool accepted = node_.enter({static_cast<double>(frame_), view});
        const bool changes = accepted && !node_.op().outChannels().empty();
        if (accepted && !changes) return true;
        checkViews();
        if (!accepted) fail(view);
        checkChosenChannels();
        if (const auto shared = tooLittleShared(node_)) {
            const std::string& name = *views_.name(view);
            const auto* occlusion = job_.roles_.find(Fresco::Image::getChannel("mask_occlusion.alpha", true));
            if (job_.services_.warn)
                job_.services_.warn(fmt::format("'{}': {}", picture_->pathOf(name).string(),
                                                shared->complaint(name, occlusion->fileChannel)));
            return false;
        }
        Fresco::Image::ImagePlane plane(node_.op().info().box, false, node_.op().outChannels());
        node_.op().fetchPlane(plane);
        job_.throwIfAborted();
        if (!node_.errors().empty() || !plane.buffer()) fail(view);
        warnOfDoubtfulMask();
        store(plane, *views_.name(view));
        return true;
    }

private:
    /// What the operator warns of is told with the picture's name.
    static RenderServices ofPicture(RenderServices services, const MultiViewFile& picture) {
        if (services.warn)
            services.warn = [warn = services.warn, path = picture.path().string()](const std::string& sentence) {
                warn(fmt::format("'{}': {}", path, sentence));
            };
        return services;
    }

    Op* source(const OutputContext& context) {
        const int frame = static_cast<int>(std::lround(context.frame));
        const std::string* view = views_.name(context.view);
        if (view == nullptr) return &black_;
        if (frame == frame_) usedViews_.insert(*view);
        auto& reader = readers_[{frame, *view}];
        if (!reader) reader = makeReader(frame, *view);
        return reader.get();
    }

    std::unique_ptr<Fresco::Image::Iop> makeReader(int frame, const std::string& view) {
        const auto file = frame == frame_ ? picture_ : neighbour(frame);
        if (!file) {
            FileReadOp like(picture_, view, job_.roles_);
            like.validate(true);
            return std::make_unique<EmptyFrameOp>(like.info());
        }
        return std::make_unique<FileReadOp>(file, view, job_.roles_);
    }

    std::shared_ptr<const MultiViewFile> neighbour(int frame) const {
        try {
            return job_.frames_.frame(frame);
        } catch (const FileError& error) {
            throw FileError(
                fmt::format("frame {} is needed, because the occlusion of frame {} is stabilised with its neighbours': "
                            "{}; --stabiliseOcclusions off does without it.",
                            frame, frame_, Cobalt::Base::withoutFullStop(error.what())));
        }
    }

    Op* mask(const OutputContext& context) {
        if (!job_.mask_) return nullptr;
        const std::vector<std::string>& views = job_.mask_->views();
        const std::string* wanted = views_.name(context.view);
        const bool has = wanted != nullptr && std::ranges::find(views, *wanted) != views.end();
        maskReader_ = std::make_unique<MaskReadOp>(job_.mask_, has ? *wanted : views.front(), job_.roles_);
        return maskReader_.get();
    }

    void checkViews() const {
        for (const std::string& view : usedViews_) {
            checkViewSize(*picture_, view);
            checkEqualSize(*picture_, *usedViews_.begin(), view);
        }
    }

    /// A role that falls back to its usual channel may be absent; one that the user chose may not.
    void checkChosenChannels() const {
        for (const ChannelRoles::Role& role : job_.roles_.all()) {
            const bool exists = std::ranges::any_of(
                usedViews_, [&](const std::string& view) { return picture_->hasChannel(view, role.fileChannel); });
            if (role.chosen && !exists) {
                throw RenderError(
                    fmt::format("'{}' has no channel '{}', which was chosen for {}; its channels are: {}.",
                                picture_->path().string(), role.fileChannel, role.name,
                                fmt::join(picture_->channels(*usedViews_.begin()), ", ")));
            }
        }
    }

    /// Once for all frames.
    void warnOfDoubtfulMask() const {
        if (!maskReader_ || !job_.services_.warn) return;
        for (const ChannelRoles::Role& role : maskReader_->doubtful())
            if (job_.warnedOf_.insert(role.channel).second)
                job_.services_.warn(
                    fmt::format("the mask's {} is read from '{}', which was chosen for the picture, and not from its "
                                "'{}': '{}' has both.",
                                role.name, role.fileChannel, role.usualChannel, job_.mask_->path().string()));
    }

    /// Of several errors the first tells the cause.
    [[noreturn]] void fail(int view) const {
        const std::vector<std::string> errors = node_.errors();
        if (!errors.empty()) {
            const bool ofMask = maskReader_ && errors.front() == Cobalt::Research::missingChannelMessage("Mask");
            throw RenderError(errors.front() + (ofMask ? " " + maskReader_->channelsText() : ""));
        }
        throw RenderError(fmt::format("'{}': {} delivered no pixels for the view '{}'.", picture_->path().string(),
                                      node_.op().displayName(), *views_.name(view)));
    }

    void store(const Fresco::Image::ImagePlane& plane, const std::string& view) {
        const Box& box = plane.box();
        int component = 0;
        for (const Fresco::Image::Channel channel : plane.channels()) {
            const ChannelRoles::Role* role = job_.roles_.find(channel);
            if (role && picture_->hasChannel(view, role->fileChannel)) {
                picture_->replace(view, role->fileChannel, box, plane.at(box.x0, box.y0, component), plane.rowStride());
            }
            ++component;
        }
    }

    RenderJob& job_;
    int frame_;
    std::shared_ptr<MultiViewFile> picture_;
    ProjectViews views_;
    BlackOp black_;
    std::map<std::pair<int, std::string>, std::unique_ptr<Fresco::Image::Iop>> readers_;
    std::unique_ptr<MaskReadOp> maskReader_;
    std::set<std::string> usedViews_;  ///< those that the node asks for at the frame itself
    RenderServices services_;
    OperatorNode node_;
};

RenderJob::RenderJob(FrameSource& frames, ControlValues controls, ChannelRoles roles, RenderServices services)
    : frames_(frames),
      controls_(std::move(controls)),
      roles_(std::move(roles)),
      services_(std::move(services)),
      record_(RenderRecord::of(controls_)) {}

void RenderJob::throwIfAborted() const {
    if (services_.aborted()) throw RenderInterrupted();
}

RenderedFrame RenderJob::render(int frame) {
    throwIfAborted();
    auto picture = frames_.frame(frame);
    if (!picture) throw RenderError(fmt::format("There is no picture for frame {}.", frame));
    if (picture->views().size() < 2) {
        throw RenderError(fmt::format("'{}' has only one view, '{}'; a left and a right view are needed.",
                                      picture->path().string(), picture->views().front()));
    }
    bool matched = true;
    try {
        Graph graph(*this, frame, picture);
        for (int view = 1; view <= graph.viewCount(); ++view)
            if (!graph.render(view)) matched = false;
    } catch (const Cobalt::Base::InterruptedException&) {
        throw RenderInterrupted();
    } catch (const Cobalt::Base::ExceptionDecoration&) {
        throw RenderError(Cobalt::Base::currentFailure());
    }
    record_.writeTo(*picture, matched);
    return {picture, matched};
}

bool RenderJob::render(int frame, const fs::path& output, const std::string& savedView) {
    const auto picture = frames_.frame(frame);
    if (picture && isSameFile(savedView.empty() ? picture->path() : picture->pathOf(savedView), output)) {
        throw FileError(
            fmt::format("Cannot write '{}': it is the picture that is read; give another name.", output.string()));
    }
    checkWritable(output);
    const auto corrected = render(frame);
    throwIfAborted();
    const Vellum::Compute::Stage stage("write");
    savedView.empty() ? corrected.picture->save(output) : corrected.picture->saveView(savedView, output);
    return corrected.matched;
}

}  // namespace ViewTint::Host
