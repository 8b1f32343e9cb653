#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "host/sdk/Hash.h"
#include "host/sdk/Knobs.h"
#include "host/sdk/OutputContext.h"

namespace Fresco::Image {

/// Goes into the build stamp of operators.
inline constexpr const char* hostVersion = "ViewTint host 1";

class Op;

/// What the host does for one operator copy. Inputs are numbered through: input 0 takes as many numbers as its splits,
/// then comes input 1.
class Node {
public:
    virtual ~Node() = default;

    /// How many numbers there are.
    virtual int inputs() const = 0;
    /// The number of a split of an input, or -1.
    virtual int inputNumber(int input, int offset) const = 0;
    /// The operator at a number. Null for a wrong number and for an optional input without a connection; a necessary
    /// input without one is an operator of class "Black".
    virtual Op* input(int number) const = 0;
    /// The control of that name, or null.
    virtual Knob* knob(std::string_view name) const = 0;
    /// A hash over the operator's class, control values, frame, view, inputs' hashes and what Op::append adds.
    virtual Hash hash() const = 0;

    /// True once the user wants the render to end. Any thread.
    virtual bool aborted() const = 0;
    /// Ends the render as failed with a sentence for the artist.
    virtual void error(const std::string& text) = 0;
    /// A sentence for the artist on what went well in the end. False where the host has no place for it.
    virtual bool warning(const std::string& /*text*/) { return false; }
    virtual void progressMessage(const char* text) = 0;
    /// `done` is 0 to 1; `level` is 0 for the operator itself.
    virtual void progressFraction(double done, int level) = 0;
    virtual void progressDismiss() = 0;
};

/// Belong to the host; operators hand them on.
struct ViewerContext;
struct PreValidateContext;

/// The base of all operators. One copy delivers one output context.
class Op {
public:
    class Description;

    /// `node` may be null: such an operator has no inputs and can only tell what it is.
    explicit Op(Node* node) : node_(node) {}
    Op(const Op&) = delete;
    Op& operator=(const Op&) = delete;
    virtual ~Op() = default;

    // ---- what an operator tells about itself

    /// The name that scripts use.
    virtual const char* Class() const = 0;
    virtual const char* displayName() const { return Class(); }
    virtual const char* node_help() const { return ""; }
    virtual int minimum_inputs() const { return 1; }
    virtual int maximum_inputs() const { return minimum_inputs(); }
    /// A label for an input. `buffer` has room for a short text that isn't constant.
    virtual const char* input_label(int /*input*/, char* /*buffer*/) const { return ""; }
    /// Declares the controls.
    virtual void knobs(Knob_Callback /*closure*/) {}
    /// A control was changed; "showPanel" stands for the opened panel. Returns 1 when the operator wants to hear of
    /// further changes of it.
    virtual int knob_changed(Knob* /*knob*/) { return 0; }

    // ---- inputs and validation

    /// In how many contexts an input is asked for.
    virtual int split_input(int /*input*/) const { return 1; }
    /// The context in which split `offset` of an input is asked for. Fills and returns `context`.
    virtual const OutputContext& inputContext(int /*input*/, int /*offset*/, OutputContext& context) const {
        return context = outputContext();
    }
    /// 0 where a render may start. Otherwise an error is set.
    virtual int doPreValidate(ViewerContext* /*viewer*/, PreValidateContext* /*context*/) { return 0; }
    /// Adds to the hash what the host doesn't know to matter.
    virtual void append(Hash& /*hash*/) {}
    /// Brings the description of the output up to date, once until `invalidate`.
    void validate(bool forReal) {
        if (valid_) return;
        _validate(forReal);
        valid_ = true;
    }
    /// Controls or inputs have changed.
    void invalidate() { valid_ = false; }

    const OutputContext& outputContext() const { return context_; }
    void setOutputContext(const OutputContext& context) { context_ = context; }

    // ---- services

    Node* node() const { return node_; }
    int inputs() const { return node_ ? node_->inputs() : 0; }
    int inputNumber(int input, int offset) const { return node_ ? node_->inputNumber(input, offset) : -1; }
    Op* input(int number) const { return node_ && number >= 0 ? node_->input(number) : nullptr; }
    Op* input(int input, int offset) const { return this->input(inputNumber(input, offset)); }
    Knob* knob(std::string_view name) const { return node_ ? node_->knob(name) : nullptr; }
    Hash ownHash() const { return node_ ? node_->hash() : Hash(); }

    bool aborted() const { return node_ && node_->aborted(); }
    void error(const std::string& text) const {
        if (node_) node_->error(text);
    }
    bool warning(const std::string& text) const { return node_ && node_->warning(text); }
    void progressMessage(const char* text) const {
        if (node_) node_->progressMessage(text);
    }
    void progressFraction(double done, int level) const {
        if (node_) node_->progressFraction(done, level);
    }
    void progressDismiss() const {
        if (node_) node_->progressDismiss();
    }

protected:
    virtual void _validate(bool /*forReal*/) {}

private:
    Node* node_;
    OutputContext context_;
    bool valid_ = false;
};

/// How the host makes operators of a class. Descriptions live as long as the process.
class Op::Description {
public:
    using Factory = Op* (*)(Node*);
    using Callback = void (*)(Description&);

    Factory factory = nullptr;
    std::string className;
    std::string buildStamp;

    /// Fills the description and hands it to the callback.
    void ctor2(Factory make, std::string name, std::string stamp, Callback callback) {
        factory = make;
        className = std::move(name);
        buildStamp = std::move(stamp);
        callback(*this);
    }

    /// Makes the description known. Of several with one class name the first is found.
    static void add(Description& description) {
        Registry& registry = Registry::instance();
        const std::lock_guard holding(registry.mutex);
        registry.descriptions.push_back(&description);
    }
    /// The description of a class, or null.
    static const Description* find(std::string_view className) {
        Registry& registry = Registry::instance();
        const std::lock_guard holding(registry.mutex);
        for (const Description* description : registry.descriptions)
            if (description->className == className) return description;
        return nullptr;
    }

    std::unique_ptr<Op> make(Node* node) const { return std::unique_ptr<Op>(factory(node)); }

private:
    struct Registry {
        std::mutex mutex;
        std::vector<const Description*> descriptions;
        static Registry& instance() {
            static Registry registry;
            return registry;
        }
    };
};

}  // namespace Fresco::Image
