#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ViewTint::Cli {

/// A JSON value as text, put together from the inside out.
class Json {
public:
    static Json text(std::string_view value);
    /// In the shortest form that reads back the same. JSON has no infinity and no NaN: the one becomes the text "inf"
    /// or "-inf", the other null.
    static Json number(double value);
    static Json number(float value);
    static Json integer(long long value);
    static Json boolean(bool value);
    static Json array(const std::vector<Json>& items);
    static Json array(const std::vector<std::string>& texts);
    /// Members in the given order.
    static Json object(const std::vector<std::pair<std::string, Json>>& members);

    static Json null() { return Json("null"); }

    /// The document on one line.
    std::string line() const;
    /// The document, indented, without a line break at the end.
    const std::string& str() const { return text_; }

private:
    explicit Json(std::string written) : text_(std::move(written)) {}
    static Json join(char open, char close, const std::vector<std::string>& items);
    std::string text_;
};

}  // namespace ViewTint::Cli
