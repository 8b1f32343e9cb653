#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace Fresco::Image {

/// The kinds of control, by their numbers.
enum class KnobKind : int { hidden = 0, integer = 3, enumeration = 4, boolean = 6, real = 8, text = 26, view = 44 };

/// Bits that shape a control in a panel. This host knows those below and carries the rest.
using KnobFlags = std::uint64_t;
/// The slider's scale is logarithmic.
inline constexpr KnobFlags logarithmicSlider = 4;
/// Values outside the range are refused; without it the maximum is only the end of the slider.
inline constexpr KnobFlags keepInRange = 16;
/// The control begins a line of the panel, which controls do unless this is cleared.
inline constexpr KnobFlags startsLine = 4096;

/// The operator's member that a control's value is stored in.
using KnobStorage = std::variant<std::monostate, int*, float*, bool*>;

inline double storedValue(const KnobStorage& storage) {
    return std::visit(
        [](auto member) -> double {
            if constexpr (std::is_same_v<decltype(member), std::monostate>)
                return 0.0;
            else
                return static_cast<double>(*member);
        },
        storage);
}

inline void storeValue(const KnobStorage& storage, double value) {
    std::visit(
        [value](auto member) {
            if constexpr (std::is_same_v<decltype(member), bool*>)
                *member = value != 0.0;
            else if constexpr (!std::is_same_v<decltype(member), std::monostate>)
                *member = static_cast<std::remove_pointer_t<decltype(member)>>(value);
        },
        storage);
}

/// A control as its operator declares it, in `knobs`.
struct KnobDeclaration {
    KnobKind kind = KnobKind::hidden;
    std::string name{};  ///< empty for spacers and dividers
    std::string label{};
    std::string text{};  ///< what a text control shows
    std::string tooltip{};
    KnobStorage storage{};
    double defaultValue = 0.0;           ///< what the member held when the control was declared
    std::vector<std::string> choices{};  ///< labels of an enumeration, by value
    bool hasRange = false;
    double minimum = 0.0;
    double maximum = 0.0;
    KnobFlags flags = startsLine;

    bool holdsValue() const { return storage.index() != 0; }
    /// Values above the maximum are taken, and act.
    bool actsAboveMaximum() const { return hasRange && (flags & keepInRange) == 0; }
};

/// Collects the controls of an operator in their order.
class Knob_Closure {
public:
    void add(KnobDeclaration declaration) {
        declaration.defaultValue = storedValue(declaration.storage);
        declarations_.push_back(std::move(declaration));
    }
    /// The control declared last. There is one.
    KnobDeclaration& last() { return declarations_.back(); }
    const std::vector<KnobDeclaration>& declarations() const { return declarations_; }
    /// The control of that name, or null.
    const KnobDeclaration* find(std::string_view name) const {
        for (const KnobDeclaration& declaration : declarations_)
            if (declaration.name == name) return &declaration;
        return nullptr;
    }

private:
    std::vector<KnobDeclaration> declarations_;
};

using Knob_Callback = Knob_Closure&;

// Each declares one control. `storage` is the member that receives the value; what it holds now is the default.

inline void Int_knob(Knob_Callback closure, int* storage, std::string name, std::string label) {
    closure.add({.kind = KnobKind::integer, .name = std::move(name), .label = std::move(label), .storage = storage});
}
inline void Float_knob(Knob_Callback closure, float* storage, std::string name, std::string label) {
    closure.add({.kind = KnobKind::real, .name = std::move(name), .label = std::move(label), .storage = storage});
}
inline void Bool_knob(Knob_Callback closure, bool* storage, std::string name, std::string label) {
    closure.add({.kind = KnobKind::boolean, .name = std::move(name), .label = std::move(label), .storage = storage});
}
inline void Enumeration_knob(Knob_Callback closure, int* storage, std::span<const char* const> choices,
                             std::string name, std::string label) {
    closure.add({.kind = KnobKind::enumeration,
                 .name = std::move(name),
                 .label = std::move(label),
                 .storage = storage,
                 .choices = {choices.begin(), choices.end()}});
}
inline void View_knob(Knob_Callback closure, int* storage, std::string name, std::string label) {
    closure.add({.kind = KnobKind::view, .name = std::move(name), .label = std::move(label), .storage = storage});
}
inline void Text_knob(Knob_Callback closure, std::string name, std::string label, std::string text) {
    closure.add({.kind = KnobKind::text, .name = std::move(name), .label = std::move(label), .text = std::move(text)});
}
/// Room between two controls.
inline void Spacer(Knob_Callback closure) {
    Text_knob(closure, "", " ", "");
}
/// A line across the panel, with a heading unless `label` is empty.
inline void Divider(Knob_Callback closure, std::string label) {
    Text_knob(closure, "", std::move(label), "");
}
/// A name that is reserved and stores nothing.
inline void Hidden_knob(Knob_Callback closure, std::string name) {
    closure.add({.kind = KnobKind::hidden, .name = std::move(name)});
}

// Each changes the control declared last.

inline void SetRange(Knob_Callback closure, double minimum, double maximum) {
    KnobDeclaration& knob = closure.last();
    knob.hasRange = true;
    knob.minimum = minimum;
    knob.maximum = maximum;
}
inline void SetFlags(Knob_Callback closure, KnobFlags flags) {
    closure.last().flags |= flags;
}
inline void ClearFlags(Knob_Callback closure, KnobFlags flags) {
    closure.last().flags &= ~flags;
}
inline void Tooltip(Knob_Callback closure, std::string text) {
    closure.last().tooltip = std::move(text);
}

/// A control of a node that exists: the value that is set, which reaches the operator's member before `_validate`.
class Knob {
public:
    virtual ~Knob() = default;
    virtual const std::string& name() const = 0;
    virtual double get_value() const = 0;
    /// Sets the value for all views.
    virtual void set_value(double value) = 0;
    /// Whether an artist may change it.
    virtual void enable(bool enabled) = 0;
    virtual bool enabled() const = 0;
};

}  // namespace Fresco::Image
