#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "host/sdk/Iop.h"

/// The smallest host that runs an operator: sources with made-up pixels, controls, and a record of what was reported.
namespace ViewTint::Tests {

using namespace Fresco::Image;

/// A value at each pixel.
using Pattern = std::function<float(int x, int y)>;

inline Pattern constant(float value) {
    return [value](int, int) { return value; };
}

/// Delivers patterns; a channel without one is 0.
class TestSource : public Iop {
public:
    explicit TestSource(const Box& box, std::string className = "Source") : Iop(nullptr), className_(className) {
        info_.box = box;
        info_.format = {box.x1, box.y1};
    }

    const char* Class() const override { return className_.c_str(); }

    /// Declares the channel and says what it holds.
    TestSource& with(Channel channel, Pattern pattern) {
        info_.channels.insert(channel);
        patterns_[channel] = std::move(pattern);
        return *this;
    }
    TestSource& withColour(float red, float green, float blue, float alpha) {
        with(redChannel, constant(red)).with(greenChannel, constant(green)).with(blueChannel, constant(blue));
        return with(alphaChannel, constant(alpha));
    }
    TestSource& withDisparity() {
        for (const Channel channel : ChannelSet::fromMask(disparityMask))
            with(channel, constant(0.0f));
        return *this;
    }
    /// A channel that is delivered and isn't declared.
    TestSource& withUndeclared(Channel channel, Pattern pattern) {
        patterns_[channel] = std::move(pattern);
        return *this;
    }

    void fetchPlane(ImagePlane& plane) override {
        fetched.push_back(plane.channels());
        if (onFetch) onFetch(plane.channels());
        plane.writableBuffer();
        int component = 0;
        for (const Channel channel : plane.channels()) {
            const auto pattern = patterns_.find(channel);
            for (int y = plane.box().y0; y < plane.box().y1; ++y)
                for (int x = plane.box().x0; x < plane.box().x1; ++x)
                    *plane.at(x, y, component) = pattern == patterns_.end() ? 0.0f : pattern->second(x, y);
            ++component;
        }
    }

    std::vector<ChannelSet> fetched;
    std::function<void(const ChannelSet&)> onFetch;

private:
    std::string className_;
    std::map<Channel, Pattern> patterns_;
};

class TestKnob : public Knob {
public:
    explicit TestKnob(std::string name, double value = 0.0) : name_(std::move(name)), value_(value) {}

    const std::string& name() const override { return name_; }
    double get_value() const override { return value_; }
    void set_value(double value) override { value_ = value; }
    void enable(bool enabled) override { enabled_ = enabled; }
    bool enabled() const override { return enabled_; }

private:
    std::string name_;
    double value_;
    bool enabled_ = true;
};

/// One operator's services. `splits[i][o]` is what input i delivers at offset o; null where nothing is.
class TestNode : public Node {
public:
    int inputs() const override {
        int count = 0;
        for (const auto& split : splits)
            count += static_cast<int>(split.size());
        return count;
    }
    int inputNumber(int input, int offset) const override {
        int first = 0;
        for (int i = 0; i < static_cast<int>(splits.size()); ++i) {
            const int size = static_cast<int>(splits[i].size());
            if (i == input) return offset >= 0 && offset < size ? first + offset : -1;
            first += size;
        }
        return -1;
    }
    Op* input(int number) const override {
        for (const auto& split : splits) {
            if (number < static_cast<int>(split.size())) return split[number];
            number -= static_cast<int>(split.size());
        }
        return nullptr;
    }
    Knob* knob(std::string_view name) const override {
        const auto found = knobs.find(std::string(name));
        return found == knobs.end() ? nullptr : found->second.get();
    }
    Hash hash() const override {
        Hash hash;
        hash.append(17);
        return hash;
    }

    bool aborted() const override { return abortWanted; }
    void error(const std::string& text) override { errors.push_back(text); }
    bool warning(const std::string& text) override {
        if (takesWarnings) warnings.push_back(text);
        return takesWarnings;
    }
    void progressMessage(const char* text) override { note(text); }
    void progressFraction(double done, int level) override { note(fmt::format("{:.3f}:{}", done, level)); }
    void progressDismiss() override { note("dismissed"); }

    /// Makes a control for each declaration that holds a value.
    void makeKnobs(Op& op) {
        Knob_Closure closure;
        op.knobs(closure);
        for (const KnobDeclaration& declaration : closure.declarations())
            if (declaration.holdsValue()) setKnob(declaration.name, declaration.defaultValue);
    }
    void setKnob(const std::string& name, double value) { knobs[name] = std::make_unique<TestKnob>(name, value); }

    std::vector<std::vector<Op*>> splits;
    std::map<std::string, std::unique_ptr<TestKnob>> knobs;
    std::atomic<bool> abortWanted{false};
    std::vector<std::string> errors;
    bool takesWarnings = false;
    std::vector<std::string> warnings;
    std::vector<std::string> progress;
    /// Called with every report.
    std::function<void(const std::string&)> onReport;
    /// The report after which the user wants the render to end; empty for none.
    std::string abortAfter;

private:
    void note(const std::string& report) {
        progress.push_back(report);
        if (onReport) onReport(report);
        if (report == abortAfter) abortWanted = true;
    }
};

/// A project with these views, for a scope.
class TestProject : public Project {
public:
    explicit TestProject(std::vector<std::string> views) : views_(std::move(views)), previous_(setCurrent(this)) {}
    ~TestProject() override { setCurrent(previous_); }

    int viewcount() const override { return static_cast<int>(views_.size()) + 1; }
    int lookup_view(std::string_view name) const override {
        for (std::size_t i = 0; i < views_.size(); ++i)
            if (views_[i] == name) return static_cast<int>(i) + 1;
        return -1;
    }
    std::string view_name(int view) const override {
        return view >= 1 && view < viewcount() ? views_[static_cast<std::size_t>(view) - 1] : std::string();
    }

private:
    std::vector<std::string> views_;
    Project* previous_;
};

/// Component `index` of pixel (x, y) of a float image on the host, by the image's own geometry.
template <class ImageType>
float pixel(const ImageType& image, int x, int y, int index = 0) {
    const auto& layout = image.tile().layout;
    return image.data()[(x - layout.box.x0) * layout.x.elements + (y - layout.box.y0) * layout.y.elements +
                        index * layout.component.elements];
}

}  // namespace ViewTint::Tests
