#pragma once

#include <string>

namespace Cobalt::Base {

/// What to do about a shortage of that error number, a clause; null where nothing is known.
const char* remedy(int error);

/// Why the system refused, by its error number: a clause without its full stop. Shortages say what to do.
std::string systemText(int error);

/// What went wrong, for the user: to be called where an exception is handled, of whatever class. Those of this program
/// that aren't std::exception tell their user message.
std::string currentFailure();

}  // namespace Cobalt::Base
