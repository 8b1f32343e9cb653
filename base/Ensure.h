#pragma once

#include <source_location>
#include <string>
#include <type_traits>
#include <utility>

#include <fmt/format.h>

#include "base/Exception.h"

/// Contracts between parts of the program: what a caller promises and what a function may rely on. A broken contract
/// is a fault in the program, not in the artist's input. It stops a debug run on the spot and throws
/// Cobalt::Base::ContractViolation in a release, so that the artist's session survives.
///
///     ENSURE(components >= 1 && components <= 4);
///     ENSURE(!name.empty(), "kernel number {} has no name", index);
///     ENSURE_COMPARE(output.box(), ==, input.box(), "{} writes where it reads", kernelName);
///
/// The comparing form prints both values. Conditions are evaluated once; the text is built on failure only.
#define ENSURE(condition, ...)                                                                     \
    do {                                                                                           \
        if (!(condition)) [[unlikely]]                                                             \
            ::Cobalt::Base::contractBroken(#condition, ::Cobalt::Base::contractText(__VA_ARGS__)); \
    } while (false)

#define ENSURE_COMPARE(left, comparison, right, ...)                                                                 \
    do {                                                                                                             \
        const auto& ensureLeft = (left);                                                                             \
        const auto& ensureRight = (right);                                                                           \
        if (!(ensureLeft comparison ensureRight)) [[unlikely]]                                                       \
            ::Cobalt::Base::contractBroken(#left " " #comparison " " #right,                                         \
                                           ::Cobalt::Base::comparedText(#left, ensureLeft, #right, ensureRight,      \
                                                                        ::Cobalt::Base::contractText(__VA_ARGS__))); \
    } while (false)

namespace Cobalt::Base {

/// A promise between two parts of the program was broken. Attributes: "Condition", "Details".
class ContractViolation : public Exception {
public:
    using Exception::Exception;
};

enum class OnBrokenContract {
    stop,   ///< print to standard error and abort: the default of builds without NDEBUG
    raise,  ///< throw ContractViolation: the default of builds with NDEBUG
};

/// Chooses for the whole process; returns the previous choice. May be called from any thread.
OnBrokenContract setOnBrokenContract(OnBrokenContract choice);

/// Ends a check that failed, as setOnBrokenContract says.
[[noreturn]] void contractBroken(const char* condition, const std::string& details,
                                 std::source_location where = std::source_location::current());

inline std::string contractText() {
    return {};
}

template <class... Values>
std::string contractText(fmt::format_string<Values...> text, Values&&... values) {
    return fmt::format(text, std::forward<Values>(values)...);
}

/// A value as text: by fmt, else by toString(value) from its own namespace, else "(unprintable)".
template <class T>
std::string valueText(const T& value) {
    if constexpr (fmt::is_formattable<T>::value)
        return fmt::format("{}", value);
    else if constexpr (std::is_pointer_v<T>)
        return fmt::format("{}", fmt::ptr(value));
    else if constexpr (std::is_enum_v<T>)
        return fmt::format("{}", static_cast<long long>(value));
    else if constexpr (requires { std::string(toString(value)); })
        return std::string(toString(value));
    else
        return "(unprintable)";
}

template <class Left, class Right>
std::string comparedText(const char* leftName, const Left& left, const char* rightName, const Right& right,
                         const std::string& details) {
    return fmt::format("{} is {}, {} is {}{}{}", leftName, valueText(left), rightName, valueText(right),
                       details.empty() ? "" : "; ", details);
}

}  // namespace Cobalt::Base
