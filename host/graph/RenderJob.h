#pragma once

#include <exception>
#include <filesystem>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>

#include "host/graph/ChannelRoles.h"
#include "host/graph/ControlValues.h"
#include "host/graph/FrameSource.h"
#include "host/graph/OperatorNode.h"
#include "host/graph/RenderRecord.h"

namespace ViewTint::Host {

/// The class name of the colour matching node.
inline constexpr const char* viewTintClass = "Q_ViewTint2_1";

/// A render has failed: the operator's own sentence, or one about the picture.
class RenderError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The user has ended the render. Nothing was written.
class RenderInterrupted : public std::exception {
public:
    const char* what() const noexcept override { return "the render was interrupted"; }
};

/// Runs one operator on frames of a shot and puts the channels that it changes into the picture.
///
/// Views are numbered from 1, the view named "left" first, the one named "right" second, others in the file's order.
/// The list of views belongs to the process, so one frame at a time may be rendered in it.
class RenderJob {
public:
    /// `frames` must outlive the job.
    RenderJob(FrameSource& frames, ControlValues controls, ChannelRoles roles, RenderServices services = {});

    /// Connects a picture to the operator's second input: of its views the one asked for or else the first.
    void setMask(std::shared_ptr<const MultiViewFile> mask) { mask_ = std::move(mask); }

    /// Other options that the pixels depend on, for the files' record.
    void setOptionsText(std::string text) { record_.options = std::move(text); }
    /// What the files of these renders tell of themselves.
    const RenderRecord& record() const { return record_; }

    /// Renders a frame. Returns its picture with red, green, blue and, where it has one, alpha of the corrected view
    /// replaced. Throws RenderError, RenderInterrupted, SettingError, FileError.
    std::shared_ptr<MultiViewFile> render(int frame);

    /// Renders a frame into a new file. That it can be written, and isn't the picture that is read, is tested before
    /// the work; a failure leaves nothing behind.
    /// Where each view has a file of its own, `savedView` is written.
    void render(int frame, const std::filesystem::path& output, const std::string& savedView = "");

private:
    class Graph;

    void throwIfAborted() const;

    FrameSource& frames_;
    ControlValues controls_;
    ChannelRoles roles_;
    RenderServices services_;
    std::shared_ptr<const MultiViewFile> mask_;
    RenderRecord record_;
    std::set<Fresco::Image::Channel> warnedOf_;  ///< of the mask's
};

}  // namespace ViewTint::Host
