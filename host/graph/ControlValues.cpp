#include "host/graph/ControlValues.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <utility>

#include "base/Ensure.h"
#include "base/NearestNames.h"
#include "host/graph/SettingError.h"

namespace ViewTint::Host {

using Cobalt::Base::lowered;
using Fresco::Image::KnobDeclaration;
using Fresco::Image::KnobKind;

namespace {

/// The three controls with names most like `wanted`.
std::vector<std::string> nearestControls(std::span<const KnobDeclaration> knobs, std::string_view wanted) {
    std::vector<std::string> names;
    for (const KnobDeclaration& knob : knobs)
        if (knob.holdsValue()) names.push_back(knob.name);
    return Cobalt::Base::nearestNames(names, wanted);
}

/// The number that makes up the whole text, or nothing. Locale-free.
template <class Number>
std::optional<double> parseNumber(std::string_view text) {
    Number number{};
    if (text.starts_with('+')) text.remove_prefix(1);
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(static_cast<double>(number)))
        return {};
    return static_cast<double>(number);
}

std::optional<double> parseSwitch(const std::string& text) {
    const std::string word = lowered(text);
    for (const char* on : {"on", "yes", "true", "1"}) {
        if (word == on) return 1.0;
    }
    for (const char* off : {"off", "no", "false", "0"}) {
        if (word == off) return 0.0;
    }
    return {};
}

std::optional<double> parseChoice(const KnobDeclaration& knob, const std::string& text) {
    for (std::size_t i = 0; i < knob.choices.size(); ++i) {
        if (lowered(knob.choices[i]) == lowered(text)) return static_cast<double>(i);
    }
    const auto number = parseNumber<int>(text);
    const auto count = static_cast<double>(knob.choices.size());
    return number && *number >= 0 && *number < count ? number : std::nullopt;
}

std::string describeChoices(const KnobDeclaration& knob) {
    std::string text;
    for (std::size_t i = 0; i < knob.choices.size(); ++i) {
        text += fmt::format("{}\"{}\" ({})", i == 0 ? "" : ", ", knob.choices[i], i);
    }
    return text;
}

[[noreturn]] void refuse(const KnobDeclaration& knob, const std::string& text, const std::string& wanted) {
    throw SettingError(fmt::format("'{}' is no value for the control {}: {}.", text, knob.name, wanted));
}

double parseValue(const KnobDeclaration& knob, const std::string& text) {
    switch (knob.kind) {
        case KnobKind::boolean:
            if (const auto value = parseSwitch(text)) return *value;
            refuse(knob, text, "it is switched on or off");
        case KnobKind::enumeration:
            if (const auto value = parseChoice(knob, text)) return *value;
            refuse(knob, text, "choose " + describeChoices(knob));
        case KnobKind::integer:
            if (const auto value = parseNumber<int>(text)) return *value;
            refuse(knob, text, "it needs a whole number");
        default:
            if (const auto value = parseNumber<float>(text)) return *value;
            refuse(knob, text, "it needs a number");
    }
}

}  // namespace

std::string valueText(const KnobDeclaration& knob, double value) {
    const auto number = static_cast<std::size_t>(value);
    if (knob.kind == KnobKind::boolean) return value != 0 ? "on" : "off";
    if (number < knob.choices.size()) return "\"" + knob.choices[number] + "\"";
    return fmt::format("{}", static_cast<float>(value));
}

ControlValues::ControlValues(std::string className) : className_(std::move(className)) {
    const auto* description = Fresco::Image::Op::Description::find(className_);
    ENSURE(description, "no operator class {} is linked", className_);
    sample_ = description->make(nullptr);
    sample_->knobs(knobs_);
}

const KnobDeclaration& ControlValues::knobOf(std::string_view name) const {
    const KnobDeclaration* knob = name.empty() ? nullptr : knobs_.find(name);
    if (knob == nullptr) {
        throw SettingError(fmt::format("There is no control '{}'; the nearest are {}.", name,
                                       fmt::join(nearestControls(declarations(), name), ", ")));
    }
    if (!knob->holdsValue())
        throw SettingError(fmt::format("The control {} only shows something; leave it out.", name));
    return *knob;
}

void ControlValues::set(std::string_view name, const std::string& text) {
    const KnobDeclaration& knob = knobOf(name);
    if (knob.kind == KnobKind::view) {
        given_.push_back({&knob, 0.0, text});
        return;
    }
    const double value = parseValue(knob, text) + 0.0;  // no negative zero
    if (knob.hasRange && (value < knob.minimum || (value > knob.maximum && !knob.actsAboveMaximum())))
        throw SettingError(fmt::format("{} is out of range for the control {}: it goes from {:g} to {:g}{}.", text,
                                       name, knob.minimum, knob.maximum, knob.actsAboveMaximum() ? " and above" : ""));
    given_.push_back({&knob, value, ""});
}

std::string ControlValues::text() const {
    std::string text;
    for (const KnobDeclaration& knob : declarations()) {
        if (!knob.holdsValue()) continue;
        std::string value = knob.kind == KnobKind::view ? "" : valueText(knob, knob.defaultValue);
        for (const Given& given : given_)
            if (given.knob == &knob) value = given.view.empty() ? valueText(knob, given.number) : given.view;
        if (!value.empty()) text += fmt::format("{}--{} {}", text.empty() ? "" : " ", knob.name, value);
    }
    return text;
}

std::vector<ControlValues::Value> ControlValues::resolve(std::span<const std::string> views) const {
    std::vector<Value> values;
    for (const Given& given : given_) {
        double number = given.number;
        if (given.knob->kind == KnobKind::view) {
            const auto named = std::ranges::find(views, given.view);
            const auto parsed = parseNumber<int>(given.view);
            if (named != views.end()) {
                number = static_cast<double>(named - views.begin()) + 1;
            } else if (parsed && *parsed >= 1 && *parsed <= static_cast<double>(views.size())) {
                number = *parsed;
            } else {
                refuse(*given.knob, given.view, fmt::format("the views are {}", fmt::join(views, ", ")));
            }
        }
        values.push_back({given.knob->name, number});
    }
    return values;
}

}  // namespace ViewTint::Host
