#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/sdk/Op.h"

namespace ViewTint::Host {

/// A control's value as it is typed: a number, on or off, or a label in quotes; of a view its number.
std::string valueText(const Fresco::Image::KnobDeclaration& knob, double value);

/// The controls of an operator class as the class itself declares them, and the values that a user gave to some.
class ControlValues {
public:
    /// `className` must be known to Op::Description.
    explicit ControlValues(std::string className);

    const std::string& className() const { return className_; }
    /// In the order of the panel, spacers and dividers among them. Valid as long as this.
    std::span<const Fresco::Image::KnobDeclaration> declarations() const { return knobs_.declarations(); }

    /// Takes a value in text form: numbers; on/off, yes/no, true/false or 1/0; an enumeration's label, in any case, or
    /// its number; a view's name or number. Throws SettingError: no such control (with the nearest names), not a
    /// value of its kind, out of range.
    void set(std::string_view name, const std::string& text);

    /// Every control with its value, as options: `--blockSize 5 --matchingMode "Local Matching"`. Views are told as
    /// they were given, if they were: without that they are the file's.
    std::string text() const;

    struct Value {
        std::string name;
        double number;
    };
    /// The values given, in the order of giving. `views` are the project's views, the first is number 1. Throws
    /// SettingError for a view that doesn't exist.
    std::vector<Value> resolve(std::span<const std::string> views) const;

private:
    struct Given {
        const Fresco::Image::KnobDeclaration* knob;
        double number;
        std::string view;  ///< for a view's control: to be looked up when the views are known
    };

    const Fresco::Image::KnobDeclaration& knobOf(std::string_view name) const;

    std::string className_;
    std::unique_ptr<Fresco::Image::Op> sample_;  ///< the declarations refer to its members
    Fresco::Image::Knob_Closure knobs_;
    std::vector<Given> given_;
};

}  // namespace ViewTint::Host
