#include "compute/CUDA/Exception.h"

namespace Vellum::Compute::CUDA {

Exception::Exception(int code, std::string name, const std::string& device, const std::string& doing)
    : Vellum::Compute::Exception("%%(Device)%% failed while it " + doing + ": %%(Error)%% (%%(Code)%%)."),
      code_(code),
      name_(std::move(name)) {
    set("Device", device);
    set("Error", name_);
    set("Code", code_);
}

Exception::Exception(int code, std::string name, std::string message)
    : Vellum::Compute::Exception(std::move(message)), code_(code), name_(std::move(name)) {
    set("Error", name_);
    set("Code", code_);
}

}  // namespace Vellum::Compute::CUDA
