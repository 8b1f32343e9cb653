#pragma once

#include <source_location>
#include <string_view>

#include "base/Exception.h"

namespace Vellum::Compute {

/// A failure of a device or of a kernel call.
class Exception : public Cobalt::Base::Exception {
public:
    /// The message is the text for the user as it stands, names that users chose among it.
    explicit Exception(std::string_view message);
};

/// There was no room for an image.
class MemoryException : public Exception {
public:
    using Exception::Exception;
};

/// Throws Exception with the message as the text for the user.
[[noreturn]] void fail(std::string_view message, std::source_location where = std::source_location::current());

}  // namespace Vellum::Compute
