#pragma once

#include <stdexcept>

namespace ViewTint::Host {

/// The farm refuses, or something that was submitted isn't as it should be: one sentence for the person at the
/// keyboard.
class FarmError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace ViewTint::Host
