#pragma once

#include <initializer_list>
#include <string>

namespace Vellum::Compute::CUDA {

/// A library that is looked for at run time, so that the program starts without it. Stays loaded.
class SharedLibrary {
public:
    /// Takes the file that the environment variable names, or else the first of the names that can be loaded.
    SharedLibrary(const char* variable, std::initializer_list<const char*> names);

    bool loaded() const { return handle_ != nullptr; }
    /// Why it isn't loaded; empty where it is.
    const std::string& whyNot() const { return whyNot_; }

    /// False where the library has no function of that name.
    template <class Function>
    bool find(const char* name, Function*& function) const {
        function = reinterpret_cast<Function*>(address(name));
        return function != nullptr;
    }

private:
    void* address(const char* name) const;

    void* handle_ = nullptr;
    std::string whyNot_;
};

}  // namespace Vellum::Compute::CUDA
