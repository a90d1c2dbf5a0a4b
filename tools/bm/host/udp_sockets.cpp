#include "host/udp_sockets.h"

#include <algorithm>
#include <charconv>
#include <string>
#include <vector>

#include "host/host_files.h"

namespace bm {
namespace {

std::vector<std::string_view> fields_of(std::string_view line)
{
    std::vector<std::string_view> all;
    while (!line.empty()) {
        const size_t begin = line.find_first_not_of(' ');
        if (begin == std::string_view::npos) break;
        const size_t end = std::min(line.find(' ', begin), line.size());
        all.push_back(line.substr(begin, end - begin));
        line.remove_prefix(end);
    }
    return all;
}

template <class Number> bool read_number(std::string_view text, Number& into, int base)
{
    const auto [next, error] = std::from_chars(text.data(), text.data() + text.size(), into, base);
    return error == std::errc() && next == text.data() + text.size();
}

std::string_view behind_colon(std::string_view text)
{
    const size_t colon = text.find(':');
    return colon == std::string_view::npos ? std::string_view() : text.substr(colon + 1);
}

// sl local_address rem_address st tx_queue:rx_queue tr:tm->when retrnsmt uid timeout inode ref pointer drops
void add_line(udp_sockets& all, std::string_view line)
{
    constexpr size_t LOCAL = 1, QUEUES = 4, DROPS = 12;
    const std::vector<std::string_view> fields = fields_of(line);
    if (fields.size() <= DROPS) return;
    int port = 0;
    udp_socket one;
    if (!read_number(behind_colon(fields[LOCAL]), port, 16) ||
        !read_number(behind_colon(fields[QUEUES]), one.queued, 16) || !read_number(fields[DROPS], one.drops, 10)) {
        return;
    }
    udp_socket& entry = all[port];
    entry.queued += one.queued;
    entry.drops += one.drops;
}

} // namespace

udp_sockets parse_udp_sockets(std::string_view text)
{
    udp_sockets all;
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        add_line(all, text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return all;
}

std::optional<udp_sockets> udp_sockets_now()
{
    const std::optional<std::string> text = host_file("/proc/net/udp");
    if (!text) return {};
    return parse_udp_sockets(*text);
}

} // namespace bm
