#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "host/sdk/Iop.h"
#include "host/sdk/Op.h"

namespace ViewTint::Host {

/// What the user hears and says while an operator works. Members may be empty; the callback must not throw.
struct RenderServices {
    std::function<void(double done, const std::string& message)> progress;  ///< `done` is 0 to 1
    const std::atomic<bool>* abort = nullptr;                               ///< true once the render is to end
    std::function<void(Fresco::Image::Op&)> operatorMade;                   ///< shown each operator before it is used
    std::function<void(const std::string& sentence)> warn;  ///< told what the picture's maker should know of a frame

    bool aborted() const { return abort && abort->load(std::memory_order_relaxed); }
};

/// One operator copy with its controls, its connections and the host's services for it.
class OperatorNode : public Fresco::Image::Node {
public:
    /// The operator that delivers a context to an input. Null leaves an optional input without a connection.
    using Connect = std::function<Fresco::Image::Op*(int input, const Fresco::Image::OutputContext& context)>;

    /// The project must be set: operators look at its views when they are made. Operators that `connect` returns must
    /// outlive this.
    OperatorNode(const std::string& className, Connect connect, const RenderServices& services);
    ~OperatorNode() override;

    Fresco::Image::PlanarIop& op() const { return *op_; }
    /// Stores a value as an artist would. The control exists.
    void setControl(std::string_view name, double value);
    /// Connects the inputs for an output context and validates the operator. False, with errors, where it refuses.
    bool enter(const Fresco::Image::OutputContext& context);
    /// What the operator reported, in order.
    std::vector<std::string> errors() const;

    // ---- services for the operator

    int inputs() const override;
    int inputNumber(int input, int offset) const override;
    Fresco::Image::Op* input(int number) const override;
    Fresco::Image::Knob* knob(std::string_view name) const override;
    Fresco::Image::Hash hash() const override;
    bool aborted() const override { return services_.aborted(); }
    void error(const std::string& text) override;
    bool warning(const std::string& text) override;
    void progressMessage(const char* text) override;
    void progressFraction(double done, int level) override;
    void progressDismiss() override {}

private:
    class StoredKnob;

    void connectInputs();

    Connect connect_;
    const RenderServices& services_;
    std::unique_ptr<Fresco::Image::PlanarIop> op_;
    std::vector<std::unique_ptr<StoredKnob>> knobs_;
    std::vector<std::vector<Fresco::Image::Op*>> inputs_;  ///< by input, then by split
    mutable std::mutex mutex_;                             ///< operators report from any thread
    std::vector<std::string> errors_;
    std::string message_;
};

}  // namespace ViewTint::Host
