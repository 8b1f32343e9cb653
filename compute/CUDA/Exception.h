#pragma once

#include <source_location>
#include <string>
#include <string_view>

#include "compute/Exception.h"

namespace Vellum::Compute::CUDA {

/// A failed call of the CUDA driver. Attributes beside the message: "Error" (toString()), "Code" and "Device".
class Exception : public Vellum::Compute::Exception {
public:
    /// `doing` completes "The GPU failed while it ...", for instance "took in 4096 bytes".
    Exception(int code, std::string name, const std::string& device, const std::string& doing);

    /// The driver's number.
    int errorCode() const { return code_; }
    /// The symbolic name of the number, such as "CUDA_ERROR_LAUNCH_FAILED".
    virtual std::string toString() const { return name_; }

protected:
    /// For failures of other libraries, which have messages of their own, with references.
    Exception(int code, std::string name, std::string_view message);

private:
    int code_;
    std::string name_;
};

}  // namespace Vellum::Compute::CUDA
