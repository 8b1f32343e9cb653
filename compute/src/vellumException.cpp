#include "compute/Exception.h"

namespace Vellum::Compute {

Exception::Exception(std::string message) {
    set("UserMessage", message);
}

void fail(std::string message, std::source_location where) {
    Cobalt::Base::raise(Exception(std::move(message)), where);
}

}  // namespace Vellum::Compute
