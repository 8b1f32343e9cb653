#include "host/graph/ControlPanel.h"

#include <algorithm>

#include "host/graph/OperatorNode.h"
#include "host/graph/ProjectViews.h"

namespace ViewTint::Host {

namespace {

/// Stands for the panel itself when it is opened.
class ShowPanel : public Fresco::Image::Knob {
public:
    const std::string& name() const override { return name_; }
    double get_value() const override { return 1; }
    void set_value(double) override {}
    void enable(bool) override {}
    bool enabled() const override { return true; }

private:
    std::string name_ = "showPanel";
};

const RenderServices& noServices() {
    static const RenderServices services;
    return services;
}

}  // namespace

ControlPanel::ControlPanel(const ControlValues& values, std::span<const std::string> views) {
    const ProjectViews project({views.begin(), views.end()});
    views_ = project.names();
    const auto unconnected = [](int, const Fresco::Image::OutputContext&) -> Fresco::Image::Op* { return nullptr; };
    node_ = std::make_unique<OperatorNode>(values.className(), unconnected, noServices());
    Fresco::Image::Knob_Closure closure;
    node_->op().knobs(closure);
    declarations_ = closure.declarations();
    const auto given = values.resolve(project.names());
    for (const ControlValues::Value& value : given)
        node_->setControl(value.name, value.number);
    ShowPanel opened;
    node_->op().knob_changed(&opened);
    for (const Fresco::Image::KnobDeclaration& knob : declarations_)
        if (std::ranges::find(given, knob.name, &ControlValues::Value::name) != given.end() && !enabled(knob.name) &&
            !choosesInputs(knob))
            givenInVain_.push_back(knob.name);
}

/// Whether some value of the control has the operator ask for more or for fewer frames than another.
bool ControlPanel::choosesInputs(const Fresco::Image::KnobDeclaration& knob) const {
    const double value = this->value(knob.name);
    std::vector<double> others{knob.minimum, knob.maximum};
    if (knob.kind == Fresco::Image::KnobKind::boolean) others = {0, 1};
    for (std::size_t choice = 0; choice < knob.choices.size(); ++choice)
        others.push_back(static_cast<double>(choice));
    const auto asked = [&](double number) {
        node_->setControl(knob.name, number);
        return node_->op().split_input(0);
    };
    const int now = asked(value);
    const bool chooses = std::ranges::any_of(others, [&](double other) { return asked(other) != now; });
    node_->setControl(knob.name, value);
    return chooses;
}

ControlPanel::~ControlPanel() = default;
ControlPanel::ControlPanel(ControlPanel&&) noexcept = default;

std::string ControlPanel::help() const {
    return node_->op().node_help();
}

std::pair<std::string, std::string> ControlPanel::stereoViews() const {
    const auto viewOf = [&](const char* name) { return views_.at(static_cast<std::size_t>(value(name)) - 1); };
    return {viewOf("leftView"), viewOf("rightView")};
}

std::string ControlPanel::correctedView() const {
    const auto [left, right] = stereoViews();
    return value("matchWhat") == 0 ? left : right;
}

bool ControlPanel::enabled(std::string_view name) const {
    const auto* knob = node_->knob(name);
    return !knob || knob->enabled();
}

double ControlPanel::value(std::string_view name) const {
    return node_->knob(name)->get_value();
}

}  // namespace ViewTint::Host
