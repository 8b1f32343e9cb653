#pragma once

#include <source_location>
#include <string>

#include "base/Exception.h"

namespace Vellum::Compute {

/// A failure of a device or of a kernel call.
class Exception : public Cobalt::Base::Exception {
public:
    explicit Exception(std::string message);
};

/// There was no room for an image.
class MemoryException : public Exception {
public:
    using Exception::Exception;
};

/// Throws Exception with the message as the text for the user.
[[noreturn]] void fail(std::string message, std::source_location where = std::source_location::current());

}  // namespace Vellum::Compute
