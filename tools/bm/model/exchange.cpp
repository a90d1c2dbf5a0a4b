#include "model/exchange.h"

#include <algorithm>
#include <bit>
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

/// Names of an event's entries, each at the first free place from its hash on.
class delivered_names {
  public:
    explicit delivered_names(const std::vector<event_entry>& entries) : places_(std::bit_ceil(2 * entries.size() + 1))
    {
        for (const event_entry& entry : entries) place_of(entry.name) = &entry.name;
    }
    bool contain(const std::string& name) { return place_of(name) != nullptr; }

  private:
    /// Where the name is, or would be.
    const std::string*& place_of(const std::string& name)
    {
        const size_t last = places_.size() - 1;
        size_t at = std::hash<std::string>()(name) & last;
        while (places_[at] != nullptr && *places_[at] != name) at = (at + 1) & last;
        return places_[at];
    }

    std::vector<const std::string*> places_;
};

} // namespace

std::vector<debt> debts_of(const event& one, const client_slots& clients)
{
    std::vector<debt> all;
    if (one.filled_said >= one.expected && !one.garbled()) return all;
    delivered_names delivered(one.entries);
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

std::string client_label(int slot, const client_slots& clients)
{
    const client* one = clients.at(slot);
    return (one == nullptr ? "?" : one->reads() ? "R" : one->writes() ? "W" : "?") + std::to_string(slot);
}

client_labels::client_labels(const client_slots& clients) : clients_(clients)
{
    for (const client& one : clients.all()) {
        known_.resize(static_cast<size_t>(one.slot) + 1);
        known_.back() = client_label(one.slot, clients);
    }
}

void client_labels::add_to(std::string& text, int slot) const
{
    const auto at = static_cast<size_t>(slot);
    if (slot >= 0 && at < known_.size() && !known_[at].empty()) {
        text += known_[at];
    } else {
        text += client_label(slot, clients_);
    }
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
