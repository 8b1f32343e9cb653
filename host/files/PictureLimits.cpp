#include "host/files/PictureLimits.h"

#include <charconv>
#include <stdexcept>
#include <string_view>

namespace ViewTint::Host {

PictureLimits& PictureLimits::current() {
    static PictureLimits limits;
    return limits;
}

std::string PictureLimits::text() const {
    std::string text;
    for (const Limit& limit : all)
        text += fmt::format("{}{}={}", text.empty() ? "" : ",", limit.name, this->*limit.value);
    return text;
}

void PictureLimits::parse(const std::string& text) {
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find(',', begin), text.size());
        const std::string_view assignment = std::string_view(text).substr(begin, end - begin);
        begin = end + 1;
        const std::string_view name = assignment.substr(0, assignment.find('='));
        const std::string_view digits = assignment.substr(std::min(name.size() + 1, assignment.size()));
        bool taken = false;
        for (const Limit& limit : all) {
            if (limit.name != name) continue;
            std::uint64_t value = 0;
            const auto [rest, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
            taken = failure == std::errc() && rest == digits.data() + digits.size() && value > 0;
            this->*limit.value = value;
        }
        if (!taken)
            throw std::invalid_argument(
                fmt::format("'{}' sets no limit; write for example side=131072,channels=4000. The defaults are: {}",
                            assignment, PictureLimits().text()));
    }
}

}  // namespace ViewTint::Host
