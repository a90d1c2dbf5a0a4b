/// @file
/// What a fuzzer gives, taken as numbers and names. It never runs dry: behind its end all is zero.
#ifndef ZRK4_FUZZ_INPUT_H
#define ZRK4_FUZZ_INPUT_H

#include <algorithm>
#include <climits>
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
    uint8_t byte() { return take<uint8_t>(); }
    /// One of 0 to `count` - 1.
    int one_of(int count) { return byte() % count; }
    bool flag() { return (byte() & 1) != 0; }

    /// Mostly small, often at a limit, sometimes anything: most faults stand near the borders, and few random words do.
    int32_t number()
    {
        const uint8_t kind = byte();
        if (kind < 0x80) return kind;
        switch (kind & 7) {
        case 0:
            return take<int32_t>();
        case 1:
            return -static_cast<int32_t>(byte());
        case 2:
            return INT_MAX - byte();
        case 3:
            return INT_MIN + byte();
        case 4:
            return 268 + take<int8_t>();
        case 5:
            return 304 + take<int8_t>();
        case 6:
            return take<int16_t>();
        default:
            return 0xFF;
        }
    }
    int64_t wide_number()
    {
        const uint8_t kind = byte();
        if (kind < 0xF0) return number();
        return kind < 0xF8 ? take<int64_t>() : (kind & 1) != 0 ? INT64_MAX - byte() : INT64_MIN + byte();
    }

    /// Into a field of 256 characters: with what an older name left behind it, or without any NUL.
    void name(char* field)
    {
        const uint8_t kind = byte();
        std::memset(field, (kind & 0x80) != 0 ? '~' : 0, 256);
        const std::string text = short_name(kind);
        std::memcpy(field, text.data(), text.size());
        if (text.size() < 256) field[text.size()] = '\0';
    }
    /// The same names for a caller: NUL-terminated.
    std::string name() { return short_name(byte()); }

  private:
    std::string short_name(uint8_t kind)
    {
        switch (kind & 7) {
        case 0:
            return "A";
        case 1:
            return "B";
        case 2:
            return "A.LONGER.NAME";
        case 3:
            return "A.LONGER.NAMF";
        case 4:
            return "";
        case 5:
            return std::string(256, 'x');
        case 6:
            return std::string(255, 'x');
        default:
            return some_characters();
        }
    }
    std::string some_characters()
    {
        std::string text(byte() & 15, '\0');
        for (char& c : text) c = static_cast<char>(byte());
        return text.substr(0, strnlen(text.data(), text.size()));
    }

    const uint8_t* at_;
    size_t left_;
};

} // namespace fuzz

#endif
