/// @file
/// Looks for one name among many fields of 256 characters.
#ifndef ZRK4_IMPL_NAME_QUERY_H
#define ZRK4_IMPL_NAME_QUERY_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace zrk4::impl {

/// The names of one system begin alike, so the last word is compared first: one load tells nearly all of them apart.
/// Equal means what strncmp over 256 characters means. Keeps the pointer: the name must outlive the query.
class name_query {
  public:
    static constexpr size_t FIELD = 256;

    /// @param name  NUL-terminated, or at least 256 characters of which only those count; not null
    explicit name_query(const char* name) : name_(name)
    {
        const size_t length = std::min(strnlen(name, FIELD) + 1, FIELD); // with the closing NUL, if there is one
        const size_t word = std::min(length, sizeof last_);
        before_ = length - word;
        std::memcpy(&last_, name + before_, word);
        if (word < sizeof mask_) mask_ = (uint64_t{1} << (8 * word)) - 1;
    }
    /// An empty name names nothing: ask before `matches`.
    bool empty() const { return name_[0] == '\0'; }
    /// REQUIRES: 256 readable bytes at `field`.
    bool matches(const char* field) const
    {
        uint64_t word = 0;
        std::memcpy(&word, field + before_, sizeof word);
        return (word & mask_) == last_ && std::memcmp(field, name_, before_) == 0;
    }

  private:
    const char* name_;
    size_t before_ = 0; ///< characters in front of the last word
    uint64_t last_ = 0;
    uint64_t mask_ = ~uint64_t{0}; ///< a name shorter than a word
};

} // namespace zrk4::impl

#endif
