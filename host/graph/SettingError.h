#pragma once

#include <stdexcept>

namespace ViewTint::Host {

/// A control's or an option's value cannot be used: one sentence that names it and what would do.
class SettingError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace ViewTint::Host
