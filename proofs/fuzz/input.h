/// @file
/// What a fuzzer gives, taken as numbers and names. It never runs dry: behind its end all is zero.
#ifndef ZRK4_FUZZ_INPUT_H
#define ZRK4_FUZZ_INPUT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace fuzz {

class input {
  public:
    input(const uint8_t* at, size_t bytes) : at_(at), left_(bytes) {}

    bool empty() const { return left_ == 0; }
    template <class Value> Value take()
    {
        Value value{};
        const size_t bytes = std::min(left_, sizeof value);
        if (bytes != 0) std::memcpy(&value, at_, bytes);
        at_ += bytes;
        left_ -= bytes;
        return value;
    }
    uint8_t byte()
    {
        if (left_ == 0) return 0;
        --left_;
        return *at_++;
    }
    /// One of 0 to `count` - 1.
    int one_of(int count) { return byte() % count; }
    bool flag() { return (byte() & 1) != 0; }

    /// Mostly small, often at a limit, sometimes anything: most faults stand near the borders, and few random words do.
    int32_t number();
    int64_t wide_number();
    /// Into a field of 256 characters: with what an older name left behind it, or without any NUL.
    void name(char* field);
    /// The same names for a caller: NUL-terminated.
    std::string name();

  private:
    size_t short_name(uint8_t kind, char* to);
    size_t some_characters(char* to);

    const uint8_t* at_;
    size_t left_;
};

} // namespace fuzz

#endif
