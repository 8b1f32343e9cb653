#include "host/graph/OperatorNode.h"

#include <utility>

#include "base/Ensure.h"
#include "compute/Catalogue.h"
#include "compute/Device.h"
#include "host/graph/BuildIdentity.h"

namespace ViewTint::Host {

using Fresco::Image::Op;
using Fresco::Image::OutputContext;
using Fresco::Image::PlanarIop;

/// A control of a host without a panel: its value goes straight to the operator's member.
class OperatorNode::StoredKnob : public Fresco::Image::Knob {
public:
    explicit StoredKnob(Fresco::Image::KnobDeclaration declaration) : declaration_(std::move(declaration)) {}

    const std::string& name() const override { return declaration_.name; }
    double get_value() const override { return Fresco::Image::storedValue(declaration_.storage); }
    void set_value(double value) override { Fresco::Image::storeValue(declaration_.storage, value); }
    void enable(bool enabled) override { enabled_ = enabled; }
    bool enabled() const override { return enabled_; }

private:
    Fresco::Image::KnobDeclaration declaration_;
    bool enabled_ = true;
};

namespace {

std::unique_ptr<PlanarIop> makeOperator(const std::string& className, Fresco::Image::Node* node) {
    const auto* description = Op::Description::find(className);
    ENSURE(description, "no operator class {} is linked", className);
    std::unique_ptr<Op> made = description->make(node);
    auto* planar = dynamic_cast<PlanarIop*>(made.get());
    ENSURE(planar, "{} delivers no planes", className);
    made.release();
    return std::unique_ptr<PlanarIop>(planar);
}

std::string computingDevice() {
    if (const auto gpu = VellumLibrary::GetCurrentGPUContext(Cobalt::Device::APIEnum::CUDA))
        return gpu->device().name();
    return Vellum::CodeGen::toString(Vellum::CodeGen::instructionSet());
}

}  // namespace

OperatorNode::OperatorNode(const std::string& className, Connect connect, const RenderServices& services)
    : connect_(std::move(connect)), services_(services), op_(makeOperator(className, this)) {
    Fresco::Image::Knob_Closure closure;
    op_->knobs(closure);
    for (const auto& declaration : closure.declarations()) {
        if (!declaration.name.empty()) knobs_.push_back(std::make_unique<StoredKnob>(declaration));
    }
    if (services_.operatorMade) services_.operatorMade(*op_);
}

OperatorNode::~OperatorNode() = default;

void OperatorNode::setControl(std::string_view name, double value) {
    Fresco::Image::Knob* control = knob(name);
    ENSURE(control, "{} has no control {}", op_->Class(), name);
    control->set_value(value);
    op_->knob_changed(control);
    op_->invalidate();
}

bool OperatorNode::enter(const OutputContext& context) {
    op_->setOutputContext(context);
    op_->invalidate();
    connectInputs();
    if (op_->doPreValidate(nullptr, nullptr) != 0) return false;
    op_->validate(true);
    return errors().empty();
}

void OperatorNode::connectInputs() {
    inputs_.assign(static_cast<std::size_t>(op_->maximum_inputs()), {});
    for (int input = 0; input < op_->maximum_inputs(); ++input) {
        for (int offset = 0; offset < op_->split_input(input); ++offset) {
            OutputContext context;
            inputs_[static_cast<std::size_t>(input)].push_back(
                connect_(input, op_->inputContext(input, offset, context)));
        }
    }
}

std::vector<std::string> OperatorNode::errors() const {
    const std::lock_guard holding(mutex_);
    return errors_;
}

int OperatorNode::inputs() const {
    std::size_t count = 0;
    for (const auto& splits : inputs_)
        count += splits.size();
    return static_cast<int>(count);
}

int OperatorNode::inputNumber(int input, int offset) const {
    if (input < 0 || offset < 0 || static_cast<std::size_t>(input) >= inputs_.size()) return -1;
    int number = offset;
    for (int before = 0; before < input; ++before)
        number += static_cast<int>(inputs_[before].size());
    return static_cast<std::size_t>(offset) < inputs_[input].size() ? number : -1;
}

Op* OperatorNode::input(int number) const {
    auto left = static_cast<std::size_t>(number);
    if (number < 0) return nullptr;
    for (const auto& splits : inputs_) {
        if (left < splits.size()) return splits[left];
        left -= splits.size();
    }
    return nullptr;
}

Fresco::Image::Knob* OperatorNode::knob(std::string_view name) const {
    for (const auto& knob : knobs_) {
        if (knob->name() == name) return knob.get();
    }
    return nullptr;
}

/// The key of a result is made of everything that its pixels come from, and of nothing else:
///  - the build of the program, and the device that computes: the GPU's name, or the CPU's instruction set. A render
///    that had to leave the GPU for the CPU is kept as the GPU's;
///  - the operator's class and the values of all its controls, the numbers of the chosen views among them; the frame
///    and the view; what the operator adds of its own (the stereo pair, the number of views);
///  - each input, neighbouring frames and the mask included, by its class and what it adds: FileReadOp the identity of
///    the files that were read (path, device, inode, size, time, decoding: host/files/FileIdentity.h), those of all
///    views, the view's name, the file that disparity was taken from or the estimator's name, and the channel of each
///    role. A held frame is the file that is held; one beyond the shot is of a class of its own.
/// Estimated disparity is kept by the same rule: its operator has no controls, and its build tells the estimator.
Fresco::Image::Hash OperatorNode::hash() const {
    Fresco::Image::Hash hash;
    hash.append(buildIdentity());
    hash.append(std::string_view(computingDevice()));
    hash.append(std::string_view(op_->Class()));
    for (const auto& knob : knobs_)
        hash.append(knob->get_value());
    hash.append(op_->outputContext().frame);
    hash.append(op_->outputContext().view);
    for (const auto& splits : inputs_) {
        for (Op* source : splits) {
            hash.append(source ? std::string_view(source->Class()) : std::string_view());
            if (source) source->append(hash);
        }
    }
    op_->append(hash);
    return hash;
}

void OperatorNode::error(const std::string& text) {
    const std::lock_guard holding(mutex_);
    errors_.push_back(text);
}

bool OperatorNode::warning(const std::string& text) {
    if (services_.warn) services_.warn(text);
    return static_cast<bool>(services_.warn);
}

void OperatorNode::progressMessage(const char* text) {
    const std::lock_guard holding(mutex_);
    message_ = text;
}

void OperatorNode::progressFraction(double done, int level) {
    if (level != 0 || !services_.progress) return;
    std::string message;
    {
        const std::lock_guard holding(mutex_);
        message = message_;
    }
    services_.progress(done, message);
}

}  // namespace ViewTint::Host
