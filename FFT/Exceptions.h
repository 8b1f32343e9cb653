#pragma once

#include "base/Exception.h"

namespace Vellum::FFT::Host {

/// The library that transforms on the CPU has reported a failure; "Error" is its own sentence.
class FFTException : public Cobalt::Base::MessageException, public Cobalt::Base::ExceptionDecoration {};

}  // namespace Vellum::FFT::Host
