#pragma once

#include <compare>
#include <cstdint>
#include <deque>
#include <functional>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <unordered_map>

namespace Cobalt::Base {

/// Names and their numbers; each name is kept once and for ever. Every operation may be called from any thread.
class NameTable {
public:
    /// Number 0 is the empty name.
    NameTable();
    std::uint32_t intern(std::string_view name);
    /// The number of a name that was interned, else 0.
    std::uint32_t find(std::string_view name) const;
    /// Valid for the life of the program. `handle` comes from intern.
    const std::string& name(std::uint32_t handle) const;

private:
    mutable std::shared_mutex lock_;
    std::deque<std::string> names_;
    std::unordered_map<std::string_view, std::uint32_t> handles_;
};

/// A name that is interned once in the process and compared by its number. Each Tag has names of its own.
template <class Tag>
class NameAtom {
public:
    /// The empty name.
    constexpr NameAtom() = default;
    explicit NameAtom(std::string_view name) : handle_(table().intern(name)) {}

    const std::string& name() const { return table().name(handle_); }
    constexpr std::uint32_t handle() const { return handle_; }

    friend constexpr auto operator<=>(const NameAtom&, const NameAtom&) = default;

private:
    /// Never destroyed: atoms in static objects may be read at the end of the program.
    static NameTable& table() {
        static NameTable& names = *new NameTable;
        return names;
    }

    std::uint32_t handle_ = 0;
};

}  // namespace Cobalt::Base

template <class Tag>
struct std::hash<Cobalt::Base::NameAtom<Tag>> {
    std::size_t operator()(const Cobalt::Base::NameAtom<Tag>& atom) const noexcept { return atom.handle(); }
};
