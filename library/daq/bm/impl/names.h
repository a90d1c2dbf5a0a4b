/// @file
/// Names of 256 bytes, as slots and blocks hold them.
#ifndef ZRK4_IMPL_NAMES_H
#define ZRK4_IMPL_NAMES_H

#include <cstddef>
#include <cstring>
#include <string_view>
#include <unordered_set>

namespace zrk4::impl {

inline constexpr size_t NAME_SIZE = 256;

/// Equal over 256 characters; what stands behind a closing NUL does not count.
inline bool same_name(const char* a, const char* b) { return std::strncmp(a, b, NAME_SIZE) == 0; }

inline std::string_view name_view(const char* name) { return {name, strnlen(name, NAME_SIZE)}; }

/// Zeroes the 256 bytes at `to` and copies at most 255 characters into them.
inline void store_name(char* to, std::string_view name)
{
    std::memset(to, 0, NAME_SIZE);
    name.copy(to, NAME_SIZE - 1); // which takes a view of nothing, too
}

/// `count` names, one every 256 bytes.
struct name_list {
    const char* first = nullptr;
    int count = 0;

    const char* at(int k) const { return first + static_cast<size_t>(k) * NAME_SIZE; }
    bool contains(const char* name) const
    {
        for (int k = 0; k < count; ++k) {
            if (same_name(at(k), name)) return true;
        }
        return false;
    }
    void add_to(std::unordered_set<std::string_view>& set) const
    {
        for (int k = 0; k < count; ++k) set.insert(name_view(at(k)));
    }
};

} // namespace zrk4::impl

#endif
