#include "compute/Exception.h"

namespace Vellum::Compute {

Exception::Exception(std::string_view message) {
    setPlainMessage(message);
}

void fail(std::string_view message, std::source_location where) {
    Cobalt::Base::raise(Exception(message), where);
}

}  // namespace Vellum::Compute
