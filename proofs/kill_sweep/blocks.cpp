#include "blocks.h"

#include <cstring>
#include <functional>

namespace sweep {
namespace {

template <class Head> void fill_head(Head& head, uint32_t first, const stamp& s)
{
    head.time = {first + static_cast<uint32_t>(s.event), static_cast<uint32_t>(100 + s.writer)};
    head.ltotal = BLOCK_LENGTH;
    head.mpulse = s.event + 1;
    std::strcpy(head.server, name_of_block(s.writer, s.block).c_str());
    head.tmask = 1;
}

std::string bytes_of(const setting& in, uint32_t first, const stamp& s)
{
    std::string bytes(BLOCK_LENGTH, static_cast<char>(17 * s.event + 5 * s.writer + s.block + 1));
    if (in.wide) {
        zrk4_serv_block_head_2024 head{};
        head.pattern = SB_PATTERN_2024;
        fill_head(head, first, s);
        std::memcpy(bytes.data(), &head, sizeof head);
    } else {
        zrk4_serv_block_head_2010 head{};
        fill_head(head, first, s);
        std::memcpy(bytes.data(), &head, sizeof head);
    }
    return bytes;
}

} // namespace

std::string name_of_block(int writer, int block) { return "W" + std::to_string(writer) + "_B" + std::to_string(block); }

uint32_t first_second(const point& p)
{
    constexpr uint32_t EARLIEST = 100'000'000;
    constexpr uint32_t ROOM = 1000;
    return EARLIEST + static_cast<uint32_t>(std::hash<std::string>{}(name_of(p)) % 1'000'000) * ROOM;
}

void write_block(char* at, const setting& in, uint32_t first, const stamp& s)
{
    const std::string bytes = bytes_of(in, first, s);
    std::memcpy(at, bytes.data(), bytes.size());
}

bool holds_block(const char* at, const setting& in, uint32_t first, const stamp& s)
{
    return at != nullptr && std::memcmp(at, bytes_of(in, first, s).data(), BLOCK_LENGTH) == 0;
}

bool holds_block(const char* at, const setting& in, uint32_t first, int event, const std::string& name)
{
    for (int writer = 0; writer < WRITERS_MAX; ++writer) {
        for (int block = 0; block < 2; ++block) {
            if (name == name_of_block(writer, block)) return holds_block(at, in, first, {event, writer, block});
        }
    }
    return false;
}

} // namespace sweep
