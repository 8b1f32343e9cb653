#include "base/Exception.h"

#include <typeinfo>
#include <utility>

#include <fmt/format.h>

namespace Cobalt::Base {

template class ExceptionInfo<std::string>;
template class ExceptionInfo<int>;

namespace {

constexpr std::string_view userMessageName = "UserMessage";
constexpr std::string_view referenceStart = "%%(";
constexpr std::string_view referenceEnd = ")%%";

/// Takes one wrapper off "prefix<inner>"; false when `name` isn't wrapped in it.
bool unwrap(std::string_view& name, std::string_view prefix) {
    if (!name.starts_with(prefix) || !name.ends_with('>')) return false;
    name.remove_prefix(prefix.size());
    name.remove_suffix(1);
    while (name.ends_with(' '))
        name.remove_suffix(1);
    return true;
}

}  // namespace

ExceptionDecoration::ExceptionDecoration(const ExceptionDecoration& other) {
    for (const auto& [name, value] : other.attributes_)
        attributes_.emplace_hint(attributes_.end(), name, value->clone());
}

ExceptionDecoration& ExceptionDecoration::operator=(ExceptionDecoration other) noexcept {
    attributes_.swap(other.attributes_);
    return *this;
}

void ExceptionDecoration::store(std::string_view name, std::unique_ptr<ExceptionInfoBase> value) {
    attributes_.insert_or_assign(std::string(name), std::move(value));
}

void ExceptionDecoration::setPlainMessage(std::string_view text) {
    set(userMessageName, "%%(Message)%%");
    set("Message", text);
}

const ExceptionInfoBase* ExceptionDecoration::find(std::string_view name) const {
    const auto found = attributes_.find(name);
    return found == attributes_.end() ? nullptr : found->second.get();
}

std::string ExceptionDecoration::valueText(std::string_view name) const {
    if (const ExceptionInfoBase* value = find(name)) return value->toString();
    return fmt::format("({} unknown)", name);
}

std::string ExceptionDecoration::attributeText(std::string_view name) const {
    const std::string text = valueText(name);
    std::string resolved;
    std::size_t copied = 0;
    for (;;) {
        const std::size_t start = text.find(referenceStart, copied);
        if (start == std::string::npos) break;
        const std::size_t nameStart = start + referenceStart.size();
        const std::size_t nameEnd = text.find(referenceEnd, nameStart);
        if (nameEnd == std::string::npos) break;
        resolved.append(text, copied, start - copied);
        resolved += valueText(std::string_view(text).substr(nameStart, nameEnd - nameStart));
        copied = nameEnd + referenceEnd.size();
    }
    return resolved.append(text, copied);
}

std::string ExceptionDecoration::attributeList() const {
    std::string list;
    for (const auto& [name, value] : attributes_)
        list += name + ": " + (name == userMessageName ? attributeText(name) : value->toString()) + "\n";
    return list;
}

std::string className(const Exception& exception) {
    if (exception.has("ExceptionClass")) return exception.attributeText("ExceptionClass");
    const std::string full = boost::core::demangle(typeid(exception).name());
    std::string_view name = full;
    while (unwrap(name, "boost::exception_detail::clone_impl<") || unwrap(name, "boost::wrapexcept<") ||
           unwrap(name, "boost::exception_detail::error_info_injector<")) {
    }
    return std::string(name);
}

std::string userMessage(const Exception& exception) {
    return exception.has(userMessageName) ? exception.attributeText(userMessageName) : className(exception);
}

}  // namespace Cobalt::Base
