#include "model/exchange.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <functional>

#include <fmt/format.h>

#include "evutl.h"
#include "host/clock.h"

namespace bm {

exchange look_at_clients(const common_options& options)
{
    exchange seen;
    named_partition part = find_partition(options.clients);
    seen.clients = client_slots(part.seen, *part.mapped);
    seen.clients_part = std::move(part.seen);
    seen.now = micros_now();
    return seen;
}

namespace {

std::vector<bool> mentioned(const event_slots& events, int slots)
{
    std::vector<bool> all(static_cast<size_t>(slots));
    for (const event& one : events.all()) {
        for (const zrk4_client_block& block : one.clients) {
            if (block.snum >= 0 && block.snum < slots) all[static_cast<size_t>(+block.snum)] = true;
        }
    }
    return all;
}

} // namespace

exchange look_at_exchange(const common_options& options)
{
    // Events first: a client that comes later is in none of them, one that goes is missed by its number alone.
    exchange seen;
    named_partition events = find_partition(options.events);
    seen.events = event_slots(events.seen, *events.mapped, options.form);
    seen.events_part = std::move(events.seen);
    named_partition clients = find_partition(options.clients);
    seen.clients = client_slots(clients.seen, *clients.mapped, mentioned(seen.events, clients.seen.buffers()));
    seen.clients_part = std::move(clients.seen);
    seen.now = micros_now();
    return seen;
}

namespace {

/// Names of an event's entries. Sorted by a hash, which costs a fraction of sorting them by their letters.
class delivered_names {
  public:
    explicit delivered_names(const std::vector<event_entry>& entries)
    {
        names_.reserve(entries.size());
        for (const event_entry& entry : entries) names_.push_back({hash(entry.name), &entry.name});
        std::sort(names_.begin(), names_.end(), [](const hashed& a, const hashed& b) { return a.hash < b.hash; });
    }
    bool contain(const std::string& name) const
    {
        const size_t wanted = hash(name);
        auto at = std::lower_bound(names_.begin(), names_.end(), wanted,
                                   [](const hashed& one, size_t other) { return one.hash < other; });
        while (at != names_.end() && at->hash == wanted && *at->name != name) ++at;
        return at != names_.end() && at->hash == wanted;
    }

  private:
    struct hashed {
        size_t hash;
        const std::string* name;
    };
    static size_t hash(const std::string& name) { return std::hash<std::string>()(name); }

    std::vector<hashed> names_;
};

} // namespace

std::vector<debt> debts_of(const event& one, const client_slots& clients)
{
    std::vector<debt> all;
    if (one.filled_said >= one.expected && !one.garbled()) return all;
    const delivered_names delivered(one.entries);
    for (const zrk4_client_block& block : one.clients) {
        const client* writer = clients.at(block.snum);
        if (writer == nullptr || !writer->writes() || writer->evtype != one.type) continue;
        debt owed{writer, {}};
        for (const std::string& name : writer->names) {
            if (!delivered.contain(name)) owed.names.push_back(name);
        }
        if (!owed.names.empty()) all.push_back(std::move(owed));
    }
    return all;
}

int unaccounted(const event& one, const std::vector<debt>& debts)
{
    int64_t left = int64_t{one.expected} - one.filled_said;
    for (const debt& each : debts) left -= static_cast<int64_t>(each.names.size());
    return static_cast<int>(std::clamp<int64_t>(left, 0, std::max(0, one.expected)));
}

void add_client_label(std::string& text, int slot, const client_slots& clients)
{
    const client* one = clients.at(slot);
    std::array<char, 12> number{};
    const auto [end, error] = std::to_chars(number.data(), number.data() + number.size(), slot);
    text += one == nullptr ? '?' : one->reads() ? 'R' : one->writes() ? 'W' : '?';
    text.append(number.data(), end);
}

std::string client_label(int slot, const client_slots& clients)
{
    std::string text;
    add_client_label(text, slot, clients);
    return text;
}

const char* progress_word(int32_t status)
{
    switch (status) {
    case CLI_S_WAIT:
        return "waiting";
    case CLI_S_NTF:
        return "notified";
    case CLI_S_PROC:
        return "working";
    case CLI_S_DONE:
        return "done";
    default:
        return "invalid";
    }
}

std::string type_text(int32_t type)
{
    return type >= 0 && type < ZRK4_EV_EVMAX ? std::string(event_name_itoa(type)) : fmt::format("{}", type);
}

std::string flaw_of(const event& one)
{
    if (one.torn) return "";
    if (!one.handed_out) return "marked used, but its buffer is free";
    if (one.control_status == EVT_C_FREE) return "taken, but not marked used";
    if (one.control_status != EVT_C_USED) return fmt::format("its control entry says {}", one.control_status);
    if (!one.sound) return "its head is none of this generation";
    if (one.clients_said != static_cast<int32_t>(one.clients.size())) {
        return fmt::format("its head says {} clients, there is room for {}", one.clients_said, one.clients.size());
    }
    if (one.filled_said != static_cast<int32_t>(one.entries.size())) {
        return fmt::format("its head says {} entries, there is room for {}", one.filled_said, one.entries.size());
    }
    return "";
}

} // namespace bm
