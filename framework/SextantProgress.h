#pragma once

#include "base/Exception.h"
#include "base/Progress.h"
#include "host/sdk/Op.h"

namespace Cobalt::Sextant {

/// Shows progress on an operator's node. Never dismisses the display.
class SextantProgress : public Cobalt::Base::Progress {
public:
    /// Without an operator it behaves as a plain Progress.
    explicit SextantProgress(const Fresco::Image::Op* op, Progress* parent = nullptr, float offset = 0.0f,
                             float scale = 1.0f)
        : Progress(parent, offset, scale), op_(op) {}

    void fraction(float done) override;
    void message(const char* text) override;

private:
    const Fresco::Image::Op* op_;
};

/// Throws InterruptedException once the user wants the render to end. For the time between two stages.
void abortCheck(const Fresco::Image::Op& op);

}  // namespace Cobalt::Sextant
