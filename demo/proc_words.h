/// @file
/// Texts of /proc and /sys, taken apart.
#ifndef ZRK4_DEMO_PROC_WORDS_H
#define ZRK4_DEMO_PROC_WORDS_H

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace demo {

/// Takes a text apart from its front.
class words {
  public:
    explicit words(std::string_view text) : rest_(text) {}

    /// @return the next word, empty at the end.
    std::string_view next()
    {
        const size_t from = std::min(rest_.find_first_not_of(" \t"), rest_.size());
        const size_t to = std::min(rest_.find_first_of(" \t", from), rest_.size());
        const std::string_view word = rest_.substr(from, to - from);
        rest_.remove_prefix(to);
        return word;
    }
    /// @return the next word as a number, 0 when it is none.
    double number() { return value_of<uint64_t>(next()); }
    /// The same with a sign and a point.
    double decimal() { return value_of<double>(next()); }
    void skip(int count)
    {
        for (int i = 0; i < count; ++i) next();
    }

  private:
    template <class Value> static double value_of(std::string_view word)
    {
        Value value = 0;
        std::from_chars(word.data(), word.data() + word.size(), value);
        return static_cast<double>(value);
    }

    std::string_view rest_;
};

template <class Visit> void for_each_line(std::string_view text, Visit visit)
{
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        visit(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

} // namespace demo

#endif
