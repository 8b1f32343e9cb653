#pragma once

#include <string>
#include <vector>

#include "host/graph/ControlValues.h"

namespace ViewTint::Host {

class MultiViewFile;

/// How a picture was corrected. Its file tells so in text attributes, so that whoever finds it can render it again, and
/// whoever collects the frames of a shot can see whether they belong together.
///
/// | attribute | |
/// |---|---|
/// | `viewtintVersion` | programVersion() |
/// | `viewtintControls` | every control as an option of the command, those left at their defaults included |
/// | `viewtintOptions` | other options that the pixels depend on, as far as they were given |
/// | `viewtintStatus` | "corrected", or "unmatched" where the view stayed as it was |
struct RenderRecord {
    std::string version, controls, options;

    /// Of renders by this program.
    static RenderRecord of(const ControlValues& controls, std::string options = "");
    /// What a file tells; empty texts where it tells nothing.
    static RenderRecord of(const MultiViewFile& picture);
    void writeTo(MultiViewFile& picture, bool matched) const;
    /// Whether a file tells that its view stayed as it was.
    static bool tellsUnmatched(const MultiViewFile& picture);

    /// `--name value` for each that has a value. Of files the name without its folder is told: the frames of a shot
    /// are alike wherever they were rendered.
    struct Option {
        std::string name, value;
        bool isFile = false;
    };
    static std::string optionsText(const std::vector<Option>& given);

    friend bool operator==(const RenderRecord&, const RenderRecord&) = default;
};

}  // namespace ViewTint::Host
