#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "host/graph/ChannelRoles.h"
#include "host/graph/FrameSource.h"
#include "host/graph/NeighbourRequests.h"
#include "host/graph/OperatorNode.h"

namespace ViewTint::Host {

/// Where the disparity of a picture is taken from.
enum class DisparityFrom {
    fileOrEstimate,  ///< estimated where neither view has any
    estimate,
    file,
    otherFile
};

struct ParallaxSettings {
    DisparityFrom from = DisparityFrom::fileOrEstimate;
    /// For otherFile: the multi-view picture of a frame that has the channels.
    std::function<std::filesystem::path(int frame)> otherFile = nullptr;
    std::pair<std::string, std::string> views{"left", "right"};
    bool save = false;  ///< the channels are written with the picture

    /// Takes `from` and `otherFile` from "estimate", "file", the name of a file or of a sequence, or "", which stands
    /// for fileOrEstimate. Throws std::invalid_argument where there is no such file.
    void parse(const std::string& text);
};

/// What was found for one frame.
struct ParallaxReport {
    int frame = 0;
    double leftMatched = 0, rightMatched = 0;  ///< shares of pixels that the other view shows
};

/// Frames with disparity and occlusion, estimated by `Q_ParallaxField` or taken from another file, as far as they have
/// none.
class ParallaxSource : public FrameSource {
public:
    /// `frames` and `services` must outlive this.
    ParallaxSource(FrameSource& frames, ChannelRoles roles, ParallaxSettings settings, const RenderServices& services);

    /// Called for each frame that was estimated.
    std::function<void(const ParallaxReport& report)> report;

    /// A picture that lacks a view or its colours comes as it is: the render says so. Throws FileError, RenderError,
    /// RenderInterrupted.
    std::shared_ptr<MultiViewFile> frame(int number) override;

    /// Adds the colours of neighbours to what is read of them where frames like this one are to be estimated: then so
    /// must the occlusion be that a render looks at.
    void addTo(NeighbourRequests& neighbours, int frame);

private:
    bool estimatesFor(int number);
    bool lacksDisparity(const MultiViewFile& picture) const;
    void estimate(int number, const std::shared_ptr<MultiViewFile>& picture) const;
    void takeFrom(const std::filesystem::path& path, MultiViewFile& picture) const;

    FrameSource& frames_;
    ChannelRoles roles_;
    ParallaxSettings settings_;
    const RenderServices& services_;
};

}  // namespace ViewTint::Host
