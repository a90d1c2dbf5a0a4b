// Lists the sub-blocks of a server block.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <limits>

#include "event.h"
#include "evutl.h"
#include "impl/block_form.h"

namespace {

using namespace zrk4::impl;

constexpr int MAX_LINES = 64;
constexpr int MAX_INDENT = 32;

struct printable_name {
    char text[sizeof(zrk4_serv_block_subhead_2010::chname) + 1];
};

// Dumped are blocks that look wrong: the name may be any bytes, and a newline in it would break the line.
printable_name printable(const zrk4_serv_block_subhead_2010& sub)
{
    printable_name name{};
    const size_t length = strnlen(sub.chname, sizeof sub.chname);
    std::transform(sub.chname, sub.chname + length, name.text,
                   [](char c) { return std::isprint(static_cast<unsigned char>(c)) != 0 ? c : '.'; });
    return name;
}

void print_line(int indent, int number, const char* sub_block)
{
    zrk4_serv_block_subhead_2010 sub;
    std::memcpy(&sub, sub_block, sizeof sub);
    std::printf("%*s#%d name: %s  type: %d  error: %d  ldata: %d\n", indent, "", number, printable(sub).text, sub.dtype,
                sub.error, sub.ldata);
}

template <class Form> void dump(int level, char* block)
{
    if (block == nullptr) return;
    const int indent = std::clamp(level, 0, MAX_INDENT);
    int number = 0;
    for_each_sub_block(block, view_block_as<Form>(block), std::numeric_limits<int64_t>::max(),
                       [&](const char* sub_block, int32_t, int64_t) {
                           print_line(indent, number, sub_block);
                           return ++number < MAX_LINES;
                       });
}

} // namespace

void dump_event_subheader_2010(int level, char* block) { dump<block_2010>(level, block); }
void dump_event_subheader_2024(int level, char* block) { dump<block_2024>(level, block); }
