#include "input.h"

#include <climits>
#include <iterator>
#include <string_view>

namespace fuzz {
namespace {

constexpr size_t FIELD = 256;

} // namespace

int32_t input::number()
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

int64_t input::wide_number()
{
    const uint8_t kind = byte();
    if (kind < 0xF0) return number();
    return kind < 0xF8 ? take<int64_t>() : (kind & 1) != 0 ? INT64_MAX - byte() : INT64_MIN + byte();
}

void input::name(char* field)
{
    const uint8_t kind = byte();
    std::memset(field, (kind & 0x80) != 0 ? '~' : 0, FIELD);
    const size_t length = short_name(kind, field);
    if (length < FIELD) field[length] = '\0';
}

std::string input::name()
{
    char field[FIELD];
    const size_t length = short_name(byte(), field);
    return {field, length};
}

// Without a heap: there are several names in every input.
size_t input::short_name(uint8_t kind, char* to)
{
    static constexpr std::string_view NAMES[] = {"A", "B", "A.LONGER.NAME", "A.LONGER.NAMF", ""};
    kind &= 7;
    if (kind < std::size(NAMES)) {
        std::memcpy(to, NAMES[kind].data(), NAMES[kind].size());
        return NAMES[kind].size();
    }
    if (kind == 7) return some_characters(to);
    const size_t length = kind == 5 ? FIELD : FIELD - 1;
    std::memset(to, 'x', length);
    return length;
}

size_t input::some_characters(char* to)
{
    const size_t count = byte() & 15;
    char all[16] = {};
    for (size_t i = 0; i < count; ++i) all[i] = static_cast<char>(byte());
    const size_t length = strnlen(all, count);
    std::memcpy(to, all, length);
    return length;
}

} // namespace fuzz
