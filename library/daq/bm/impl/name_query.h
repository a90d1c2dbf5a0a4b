/// @file
/// Looks for one name among many fields of 256 characters.
#ifndef ZRK4_IMPL_NAME_QUERY_H
#define ZRK4_IMPL_NAME_QUERY_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace zrk4::impl {

/// The names of one system differ in the same place, mostly: one word of each field is looked at, first the last one of the
/// name, then the one by which the last field that passed was told apart. Nearly all fields cost a single load.
/// Equal means what strncmp over 256 characters means. Keeps the pointer: the name must outlive the query.
class name_query {
  public:
    static constexpr size_t FIELD = 256;

    /// @param name  NUL-terminated, or at least 256 characters of which only those count; not null
    explicit name_query(const char* name)
        : name_(name), bytes_(std::min(strnlen(name, FIELD) + 1, FIELD)) // with the closing NUL, if there is one
    {
        if (bytes_ < WORD) {
            std::memcpy(&word_, name, bytes_);
            mask_ = (uint64_t{1} << (8 * bytes_)) - 1;
        } else {
            look_at(bytes_ - WORD);
        }
    }
    /// REQUIRES: 256 readable bytes at `field`.
    bool matches(const char* field) { return (word_at(field + at_) & mask_) == word_ && all_match(field); }

  private:
    static constexpr size_t WORD = sizeof(uint64_t);

    static uint64_t word_at(const char* from)
    {
        uint64_t word = 0;
        std::memcpy(&word, from, sizeof word);
        return word;
    }
    void look_at(size_t at)
    {
        at_ = at;
        word_ = word_at(name_ + at);
    }
    bool all_match(const char* field)
    {
        if (bytes_ < WORD) return true;
        for (size_t i = 0; i < bytes_; i += WORD) {
            const size_t at = std::min(i, bytes_ - WORD);
            if (word_at(field + at) == word_at(name_ + at)) continue;
            look_at(at);
            return false;
        }
        return true;
    }

    const char* name_;
    size_t bytes_;                 ///< that are compared
    size_t at_ = 0;                ///< of the word that is looked at
    uint64_t word_ = 0;            ///< the name's
    uint64_t mask_ = ~uint64_t{0}; ///< a name shorter than a word
};

} // namespace zrk4::impl

#endif
