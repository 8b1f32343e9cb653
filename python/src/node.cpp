#include <fmt/format.h>
#include <nanobind/stl/optional.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/tuple.h>
#include <nanobind/stl/vector.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/graph/ControlPanel.h"
#include "host/graph/NodeRender.h"
#include "host/graph/RenderJob.h"
#include "host/graph/SettingError.h"
#include "operations.h"
#include "requirements.h"

namespace ViewTint::Python {

namespace {

using Fresco::Image::KnobDeclaration;
using Fresco::Image::KnobKind;

/// The compiled half of viewtint.Node.
class Node {
public:
    /// Values in text form; viewtint.Node gives them names and types.
    void set(const std::string& name, const std::string& text) {
        try {
            values_.set(name, text);
        } catch (const Host::SettingError& error) {
            raiseValue(error.what());
        }
    }
    nb::list controls() const {
        const Host::ControlPanel panel = unlocked([&] { return this->panel(); });  // may wait for a render
        nb::list list;
        for (const KnobDeclaration& knob : panel.declarations()) {
            if (!knob.holdsValue()) continue;
            nb::dict control;
            control["name"] = knob.name;
            control["label"] = knob.label;
            control["default"] = typed(knob, knob.defaultValue);
            control["value"] = typed(knob, panel.value(knob.name));
            control["enabled"] = panel.enabled(knob.name);
            control["minimum"] = knob.hasRange ? nb::cast(knob.minimum) : nb::none();
            control["maximum"] = knob.hasRange ? nb::cast(knob.maximum) : nb::none();
            control["acts_above_maximum"] = knob.actsAboveMaximum();
            control["choices"] = knob.choices;
            control["tooltip"] = knob.tooltip;
            list.append(control);
        }
        return list;
    }
    std::string help() const {
        return unlocked([&] { return panel().help(); });
    }

    /// The picture, the node's messages, warnings, and whether the views were matched.
    std::tuple<std::optional<Image>, std::vector<std::string>, std::vector<std::string>, bool> render(
        const Image& left, const Image& right, const Image& disparity, const std::vector<Image>& occlusions,
        const std::optional<Image>& mask) const {
        requireComponents("left", left, 4);
        requireComponents("right", right, 4);
        requireComponents("disparity", disparity, 4);
        requireSameBox("right", right, "left", left);
        requireSameBox("disparity", disparity, "left", left);
        for (const Image& occlusion : occlusions) {
            requireComponents("occlusions", occlusion, 1);
            requireSameBox("occlusions", occlusion, "left", left);
        }
        return unlocked([&] {
            std::vector<std::string> warnings;
            Host::RenderServices services;
            services.warn = [&](const std::string& sentence) { warnings.push_back(sentence); };
            auto result = Host::NodeRender::render(values_, {left, right, disparity, occlusions, mask}, services);
            return std::make_tuple(std::move(result.picture), std::move(result.messages), std::move(warnings),
                                   result.matched);
        });
    }

private:
    Host::ControlPanel panel() const {
        const std::vector<std::string> views{"left", "right"};
        return Host::ControlPanel(values_, views);
    }
    static nb::object typed(const KnobDeclaration& knob, double value) {
        if (knob.kind == KnobKind::boolean) return nb::cast(value != 0);
        // 0.1 in single precision is read as 0.1.
        if (knob.kind == KnobKind::real) return nb::cast(std::stod(fmt::format("{}", static_cast<float>(value))));
        return nb::cast(static_cast<int>(value));
    }

    Host::ControlValues values_{Host::viewTintClass};
};

}  // namespace

void bindNode(nb::module_& module) {
    nb::class_<Node>(module, "_Node", "The compiled half of viewtint.Node.")
        .def(nb::init<>())
        .def("set", &Node::set, "name"_a, "text"_a)
        .def("controls", &Node::controls)
        .def("help", &Node::help)
        .def("render", &Node::render, "left"_a, "right"_a, "disparity"_a, "occlusions"_a, "mask"_a.none());
}

}  // namespace ViewTint::Python
