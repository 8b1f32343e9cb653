#include "cli/Json.h"

#include <cmath>

#include <fmt/format.h>
#include <boost/locale/utf.hpp>

#include "cli/Printing.h"

namespace ViewTint::Cli {

namespace {

std::string indented(const std::string& text) {
    std::string result;
    for (char letter : text) {
        result += letter;
        if (letter == '\n') result += "  ";
    }
    return result;
}

}  // namespace

Json Json::text(std::string_view value) {
    using Utf8 = boost::locale::utf::utf_traits<char>;
    std::string quoted = "\"";
    for (auto at = value.begin(); at != value.end();) {
        const auto begin = at;
        const auto letter = Utf8::decode(at, value.end());
        if (letter == boost::locale::utf::illegal || letter == boost::locale::utf::incomplete)
            quoted += "\\ufffd";  // names of files may be any bytes
        else if (letter == '"' || letter == '\\')
            quoted += {'\\', static_cast<char>(letter)};
        else if (isControl(letter))
            quoted += fmt::format("\\u{:04x}", static_cast<unsigned>(letter));
        else
            quoted.append(begin, at);
    }
    return Json(quoted + '"');
}

Json Json::number(double value) {
    if (std::isnan(value)) return Json("null");
    if (std::isinf(value)) return text(value > 0.0 ? "inf" : "-inf");
    return Json(fmt::format("{}", value));
}

Json Json::number(float value) {
    return std::isfinite(value) ? Json(fmt::format("{}", value)) : number(double{value});
}

Json Json::integer(long long value) {
    return Json(fmt::format("{}", value));
}

Json Json::boolean(bool value) {
    return Json(value ? "true" : "false");
}

Json Json::join(char open, char close, const std::vector<std::string>& items) {
    std::string result(1, open);
    for (std::size_t i = 0; i < items.size(); ++i)
        result += (i == 0 ? "\n  " : ",\n  ") + indented(items[i]);
    if (!items.empty()) result += '\n';
    return Json(result + close);
}

std::string Json::line() const {
    std::string line;
    for (std::size_t i = 0; i < text_.size(); ++i) {  // texts hold no line breaks: theirs are \\u000a
        if (text_[i] != '\n') {
            line += text_[i];
            continue;
        }
        if (line.back() == ',') line += ' ';
        i = text_.find_first_not_of(' ', i + 1) - 1;
    }
    return line;
}

Json Json::array(const std::vector<Json>& items) {
    std::vector<std::string> texts;
    for (const Json& item : items)
        texts.push_back(item.str());
    return join('[', ']', texts);
}

Json Json::array(const std::vector<std::string>& texts) {
    std::vector<Json> items;
    for (const std::string& value : texts)
        items.push_back(text(value));
    return array(items);
}

Json Json::object(const std::vector<std::pair<std::string, Json>>& members) {
    std::vector<std::string> texts;
    for (const auto& [name, value] : members)
        texts.push_back(text(name).str() + ": " + value.str());
    return join('{', '}', texts);
}

}  // namespace ViewTint::Cli
