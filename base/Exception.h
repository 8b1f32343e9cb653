#pragma once

#include <map>
#include <memory>
#include <source_location>
#include <string>
#include <string_view>
#include <type_traits>

#include <boost/core/demangle.hpp>
#include <boost/exception/exception.hpp>

namespace Cobalt::Base {

/// A value of any type that an exception carries under a name.
class ExceptionInfoBase {
public:
    virtual ~ExceptionInfoBase() = default;
    virtual std::unique_ptr<ExceptionInfoBase> clone() const = 0;
    /// Text as it stands, numbers in decimal.
    virtual std::string toString() const = 0;
};

/// A named value of type T: a text or a number.
template <class T>
class ExceptionInfo final : public ExceptionInfoBase {
    static_assert(std::is_arithmetic_v<T> || std::is_same_v<T, std::string>, "attributes are texts or numbers");

public:
    explicit ExceptionInfo(T value) : value_(std::move(value)) {}
    const T& value() const { return value_; }
    std::unique_ptr<ExceptionInfoBase> clone() const override { return std::make_unique<ExceptionInfo>(*this); }
    std::string toString() const override {
        if constexpr (std::is_same_v<T, std::string>)
            return value_;
        else
            return std::to_string(value_);
    }

private:
    T value_;
};

/// Keeps its own copy of the text: an exception outlives the buffers of the function that threw it.
template <>
class ExceptionInfo<const char*> final : public ExceptionInfoBase {
public:
    /// A null pointer counts as an empty text.
    explicit ExceptionInfo(const char* value) : text_(value ? value : "") {}
    const char* value() const { return text_.c_str(); }
    std::unique_ptr<ExceptionInfoBase> clone() const override { return std::make_unique<ExceptionInfo>(*this); }
    std::string toString() const override { return text_; }

private:
    std::string text_;
};

/// The named values of an exception. Copying clones each value.
class ExceptionDecoration {
public:
    ExceptionDecoration() = default;
    ExceptionDecoration(const ExceptionDecoration& other);
    ExceptionDecoration(ExceptionDecoration&&) noexcept = default;
    ExceptionDecoration& operator=(ExceptionDecoration other) noexcept;
    ~ExceptionDecoration() = default;

    /// Stores a copy of a text or a number under `name`, replacing any value there.
    template <class T>
    void set(std::string_view name, const T& value);

    /// Makes a text "UserMessage" as it stands: nothing in it is a reference. For texts with names that users chose.
    void setPlainMessage(std::string_view text);

    bool has(std::string_view name) const { return find(name) != nullptr; }
    /// The value stored under `name`, or null.
    const ExceptionInfoBase* find(std::string_view name) const;

    /// The text of the named value with its references resolved: each "%%(Name)%%" is replaced by the value stored
    /// under Name, or by "(Name unknown)". Inserted values are not scanned again, so a value may name itself. A
    /// reference without its end stays as it stands. An attribute that doesn't exist reads "(name unknown)".
    std::string attributeText(std::string_view name) const;

    /// Every attribute as a line "name: text", in order of the names, "UserMessage" resolved and others as they stand;
    /// for logs and tests.
    std::string attributeList() const;

private:
    using Attributes = std::map<std::string, std::unique_ptr<ExceptionInfoBase>, std::less<>>;

    void store(std::string_view name, std::unique_ptr<ExceptionInfoBase> value);
    std::string valueText(std::string_view name) const;

    Attributes attributes_;
};

/// The base of every failure that carries named values. Attributes in use: "UserMessage" (the sentence for the
/// artist, with references), "Message" (one without), "ThrowFile", "ThrowLine", "ThrowFunction", "ExceptionClass" (set
/// by raise), and what a throw site adds for its message, for instance "Error" or "Device".
class Exception : public ExceptionDecoration {
public:
    Exception() = default;
    explicit Exception(std::string_view message) { set("UserMessage", message); }
    Exception(const Exception&) = default;
    Exception(Exception&&) noexcept = default;
    Exception& operator=(const Exception&) = default;
    Exception& operator=(Exception&&) noexcept = default;
    virtual ~Exception() = default;
};

/// Something the program was asked for and doesn't do.
class NotImplemented : public Exception {
public:
    using Exception::Exception;
};

/// The base of events that end a call without being failures. Not an Exception.
class MessageException {
public:
    MessageException() = default;
    MessageException(const MessageException&) = default;
    MessageException& operator=(const MessageException&) = default;
    virtual ~MessageException() = default;
};

/// The render was aborted. Carries nothing; never reported.
class InterruptedException : public MessageException {};

/// The sentence for the artist: the resolved "UserMessage", or the class name of an exception without one.
std::string userMessage(const Exception& exception);

/// The class that was raised, without the wrappers that a throw puts round it.
std::string className(const Exception& exception);

/// Where an exception says that it was thrown.
struct ThrowPlace {
    std::string file;
    int line = 0;
    std::string function;
};

/// Throws `exception` so that `catch (E&)` works and boost::current_exception can copy it to another thread. An
/// exception with attributes gets "ThrowFile", "ThrowLine", "ThrowFunction" and "ExceptionClass".
template <class E>
[[noreturn]] void raise(E exception, const ThrowPlace& where) {
    if constexpr (std::is_base_of_v<ExceptionDecoration, E>) {
        exception.set("ThrowFile", where.file);
        exception.set("ThrowLine", where.line);
        exception.set("ThrowFunction", where.function);
        exception.set("ExceptionClass", boost::core::demangle(typeid(E).name()));
    }
    using Injector = boost::exception_detail::error_info_injector<E>;
    throw boost::exception_detail::clone_impl<Injector>(Injector(exception));
}
template <class E>
[[noreturn]] void raise(E exception, std::source_location where = std::source_location::current()) {
    raise(std::move(exception), ThrowPlace{where.file_name(), static_cast<int>(where.line()), where.function_name()});
}

template <class T>
void ExceptionDecoration::set(std::string_view name, const T& value) {
    using Stored = std::decay_t<const T>;
    if constexpr (std::is_arithmetic_v<Stored>)
        store(name, std::make_unique<ExceptionInfo<Stored>>(value));
    else if constexpr (std::is_same_v<Stored, const char*> || std::is_same_v<Stored, char*>)
        store(name, std::make_unique<ExceptionInfo<const char*>>(value));
    else
        store(name, std::make_unique<ExceptionInfo<std::string>>(std::string(value)));
}

extern template class ExceptionInfo<std::string>;
extern template class ExceptionInfo<int>;

}  // namespace Cobalt::Base
