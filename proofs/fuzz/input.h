/// @file
/// What a fuzzer gives, taken as numbers and names. It never runs dry: behind its end all is zero.
#ifndef ZRK4_FUZZ_INPUT_H
#define ZRK4_FUZZ_INPUT_H

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>

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
        std::memset(field, (kind & 0x80) != 0 ? '~' : 0, FIELD);
        const size_t length = short_name(kind, field);
        if (length < FIELD) field[length] = '\0';
    }
    /// The same names for a caller: NUL-terminated.
    std::string name()
    {
        char field[FIELD];
        const size_t length = short_name(byte(), field);
        return {field, length};
    }

  private:
    static constexpr size_t FIELD = 256;

    // Without a heap: there are several names in every input.
    size_t short_name(uint8_t kind, char* to)
    {
        static constexpr std::string_view NAMES[] = {"A", "B", "A.LONGER.NAME", "A.LONGER.NAMF", ""};
        kind &= 7;
        if (kind < std::size(NAMES)) return NAMES[kind].copy(to, FIELD);
        if (kind == 7) return some_characters(to);
        const size_t length = kind == 5 ? FIELD : FIELD - 1;
        std::memset(to, 'x', length);
        return length;
    }
    size_t some_characters(char* to)
    {
        const size_t count = byte() & 15;
        char all[16] = {};
        for (size_t i = 0; i < count; ++i) all[i] = static_cast<char>(byte());
        const size_t length = strnlen(all, count);
        std::memcpy(to, all, length);
        return length;
    }

    const uint8_t* at_;
    size_t left_;
};

} // namespace fuzz

#endif
