#include "framework/SextantProgress.h"

namespace Cobalt::Sextant {

void SextantProgress::fraction(float done) {
    if (op_)
        op_->progressFraction(mapped(done), 0);
    else
        Progress::fraction(done);
}

void SextantProgress::message(const char* text) {
    if (op_)
        op_->progressMessage(text);
    else
        Progress::message(text);
}

void abortCheck(const Fresco::Image::Op& op) {
    if (op.aborted()) Cobalt::Base::raise(Cobalt::Base::InterruptedException());
}

}  // namespace Cobalt::Sextant
