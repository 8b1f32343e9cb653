#pragma once

#include "host/sdk/Op.h"

namespace Cobalt::Research {

/// Which of the host's views are an operator's left and right, however the choice is stored.
class StereoKnobI {
public:
    /// Views 1 and 2 where the project has two, else view 1 twice. `op` may be null and must outlive this.
    explicit StereoKnobI(Fresco::Image::Op* op);
    StereoKnobI(const StereoKnobI&) = delete;
    StereoKnobI& operator=(const StereoKnobI&) = delete;
    virtual ~StereoKnobI() = default;

    virtual void addKnobs(Fresco::Image::Knob_Callback closure) = 0;
    /// Selects the views named "left" and "right" unless two views are selected already. False where a name is missing.
    virtual bool findDefaultViews();
    virtual void append(Fresco::Image::Hash& hash) const;

    /// The selected view's number, or -1 where the operator has no such control.
    virtual int getLeftView() const = 0;
    virtual int getRightView() const = 0;
    /// A negative number changes nothing.
    virtual void setLeftView(int view) = 0;
    virtual void setRightView(int view) = 0;

protected:
    Fresco::Image::Op* op_;
    int leftView = 1;
    int rightView = 1;
};

/// Two view controls on the operator.
class StereoKnobDropDown : public StereoKnobI {
public:
    using StereoKnobI::StereoKnobI;

    void addKnobs(Fresco::Image::Knob_Callback closure) override;
    int getLeftView() const override;
    int getRightView() const override;
    void setLeftView(int view) override;
    void setRightView(int view) override;
};

}  // namespace Cobalt::Research
