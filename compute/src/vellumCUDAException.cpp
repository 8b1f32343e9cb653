#include "compute/CUDA/Exception.h"

namespace Vellum::Compute::CUDA {

Exception::Exception(int code, std::string name, const std::string& device, const std::string& doing)
    : Exception(code, std::move(name), "%%(Device)%% failed while it %%(Doing)%%: %%(Error)%% (%%(Code)%%).") {
    set("Device", device);
    set("Doing", doing);
}

Exception::Exception(int code, std::string name, std::string_view message)
    : Vellum::Compute::Exception(message), code_(code), name_(std::move(name)) {
    set("UserMessage", message);
    set("Error", name_);
    set("Code", code_);
}

}  // namespace Vellum::Compute::CUDA
