#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/graph/ControlValues.h"
#include "host/sdk/Knobs.h"

namespace CLI {
class App;
}

/// The node's controls on the command line, as the node declares them.
namespace ViewTint::Cli {

/// A control's help without a panel's markup and line breaks.
std::string plainText(const std::string& help);
/// "2..100", "0..1 and above", "on|off" or the labels of an enumeration.
std::string rangeOf(const Fresco::Image::KnobDeclaration& knob);

/// What the command line gives for controls.
class ControlOptions {
public:
    ControlOptions();

    /// Adds every control under its own name. This must outlive the parsing.
    void addTo(CLI::App& command);
    /// Whether the command line names this control.
    bool gives(const std::string& name) const;
    /// The values, checked by the controls themselves. Throws CallError.
    Host::ControlValues& checked();
    /// An option that nobody knows may be a control's name misspelt: throws CallError with the nearest names.
    void explainUnknown(const std::string& word);

private:
    Host::ControlValues controls_;
    std::vector<std::pair<std::string, std::string>> given_;  ///< control and text, in the order of the command line
};

}  // namespace ViewTint::Cli
