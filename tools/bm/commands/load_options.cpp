#include "commands/load_options.h"

#include <cctype>
#include <charconv>

#include "cli/failure.h"

namespace bm {
namespace {

[[noreturn]] void refuse(const std::string& text)
{
    throw failure(exit_status::usage, "this is no number of bytes")
        .seen("\"" + text + "\"")
        .needed("a number from 1, with k, M or G behind it for 1024, 1024^2 or 1024^3 bytes");
}

int64_t unit_of(const std::string& text, char letter)
{
    switch (std::tolower(static_cast<unsigned char>(letter))) {
    case 'k':
        return 1024;
    case 'm':
        return int64_t{1024} * 1024;
    case 'g':
        return int64_t{1024} * 1024 * 1024;
    default:
        refuse(text);
    }
}

block_group group_of(const std::string& text, int64_t otherwise)
{
    const size_t times = text.find('x');
    if (times == std::string::npos) return {bytes_of(text), otherwise};
    return {bytes_of(text.substr(0, times)), bytes_of(text.substr(times + 1))};
}

} // namespace

int64_t bytes_of(const std::string& text)
{
    constexpr int64_t MOST = int64_t{1} << 40;
    int64_t value = 0;
    const char* end = text.data() + text.size();
    const auto [next, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || value < 1 || value > MOST || end - next > 1) refuse(text);
    return next == end ? value : value * unit_of(text, *next);
}

void declare_load(arguments& app, load_options& options)
{
    app.option("--preset", options.preset, "where the other numbers come from (beamline)").one_of(preset_names());
    app.option("--clients", options.clients, "processes that take part").check(between(1, 1'000'000));
    app.option("--blocks", options.blocks, "server blocks of one event").check(between(1, 1'000'000));
    app.option("--rate", options.rate, "events per second").check(between(0.001, 1e6)).type_name("HZ");
    app.option("--block-size", options.groups,
               "bytes of a block, and how many of an event's blocks have that size; may be repeated")
        .type_name("BYTES[xCOUNT]");
    app.option("--reader-time", options.reader_s, "from an event's first block until its last reader is done")
        .check(between(0.0, 1e5))
        .type_name("SECONDS");
    app.option("--stall", options.stall_s, "for how long more what a dead reader holds is not back (6)")
        .check(between(0.0, 1e5))
        .type_name("SECONDS");
}

load load_of(const load_options& given, const common_options& common)
{
    load wanted = preset(given.preset.empty() ? "beamline" : given.preset);
    if (given.clients) wanted.clients = *given.clients;
    if (given.rate) wanted.rate = *given.rate;
    if (given.reader_s) wanted.reader_s = *given.reader_s;
    if (given.stall_s) wanted.stall_s = *given.stall_s;
    wanted.form = common.form.value_or(records::of_2010);
    if (given.blocks) {
        wanted.blocks = *given.blocks;
        wanted.groups = {{wanted.groups.front().bytes, wanted.blocks}};
    }
    if (given.groups.empty()) return wanted;
    const int64_t each = given.groups.size() == 1 ? wanted.blocks : 1;
    wanted.groups.clear();
    for (const std::string& text : given.groups) wanted.groups.push_back(group_of(text, each));
    if (!given.blocks) {
        wanted.blocks = 0;
        for (const block_group& group : wanted.groups) wanted.blocks += group.per_event;
    }
    return wanted;
}

} // namespace bm
