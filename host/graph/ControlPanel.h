#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/graph/ControlValues.h"

namespace ViewTint::Host {

class OperatorNode;

/// An operator's controls as an artist would see them in a panel: with the values that were given, and enabled or not
/// as the operator decides from them.
class ControlPanel {
public:
    /// `views` are the project's views, the first is number 1. Throws SettingError for a view that doesn't exist.
    ControlPanel(const ControlValues& values, std::span<const std::string> views);
    ~ControlPanel();
    ControlPanel(ControlPanel&&) noexcept;

    /// In the order of the panel, spacers and dividers among them; storage is not to be touched.
    std::span<const Fresco::Image::KnobDeclaration> declarations() const { return declarations_; }
    bool enabled(std::string_view name) const;
    /// The name of the view that the node corrects.
    std::string correctedView() const;
    /// The names of the left and of the right view.
    std::pair<std::string, std::string> stereoViews() const;
    /// The operator's own help.
    std::string help() const;
    /// Of a control that exists and holds a value.
    double value(std::string_view name) const;
    /// The controls that were given a value which has no effect together with the others: the disabled ones, but for
    /// those that still choose which frames are read.
    const std::vector<std::string>& givenInVain() const { return givenInVain_; }

private:
    bool choosesInputs(const Fresco::Image::KnobDeclaration& knob) const;

    std::vector<Fresco::Image::KnobDeclaration> declarations_;
    std::unique_ptr<OperatorNode> node_;
    std::vector<std::string> givenInVain_;
    std::vector<std::string> views_;
};

}  // namespace ViewTint::Host
