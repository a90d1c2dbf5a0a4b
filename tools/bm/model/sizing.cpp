#include "model/sizing.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include <fmt/format.h>

#include "BM_int.h"
#include "cli/output.h"
#include "geometry.h"

namespace bm {
namespace {

using zrk4::impl::buffer_offset;
using zrk4::impl::offsets_fit;

constexpr int64_t SEMS_OF_STOCK_KERNEL = 32'000;
constexpr int64_t MOST_BUFFERS_WITH_LOCKS = SEMS_OF_STOCK_KERNEL - gbl_nsems;
constexpr int64_t MOST_BUFFERS = 32'767; // a semaphore counts no further
constexpr int64_t SLOTS_PER_CLIENT = 64; // a reader's and a writer's slot for each of 32 event types
constexpr int64_t SLOTS_PER_RATE = 32;
constexpr int64_t KEYS = SHM_KEY_LAST - SHM_KEY_FIRST + 1;
constexpr int64_t ONE_DATAGRAM = 768; // as the kernel counts it, its own records included
constexpr int64_t GRANTED_BUFFER = 8 << 20;

int64_t client_length(const load& wanted) { return 256 * wanted.blocks + 48; }

int64_t event_length(const load& wanted, int64_t slots)
{
    const int64_t entries = 33 * wanted.blocks;
    return wanted.form == records::of_2024
               ? std::max(8 * (entries + wanted.clients + 10),
                          int64_t{sizeof(zrk4_event_ctrl_block_2024)} * (slots + 1))
               : std::max(8 * (entries + wanted.clients) + 60, int64_t{sizeof(zrk4_event_ctrl_block)} * (slots + 1));
}

bool slots_fit(int64_t slots, int64_t length)
{
    return slots + 1 <= MOST_BUFFERS_WITH_LOCKS && offsets_fit(slots + 1, length);
}

/// The largest number from `least` to `most` for which `fits` holds; it holds for all smaller ones too.
template <class Fits> std::optional<int64_t> largest(int64_t least, int64_t most, Fits fits)
{
    if (!fits(least)) return {};
    while (least < most) {
        const int64_t middle = least + (most - least + 1) / 2;
        if (fits(middle)) {
            least = middle;
        } else {
            most = middle - 1;
        }
    }
    return least;
}

int64_t in_flight(const load& wanted)
{
    return std::max<int64_t>(1, static_cast<int64_t>(std::ceil(wanted.rate * (wanted.reader_s + wanted.stall_s))));
}

void size_clients(sizing& plan)
{
    const load& wanted = plan.wanted;
    const int64_t length = client_length(wanted);
    const int64_t least = 2 * wanted.clients; // each reads and writes one type
    const auto slots =
        largest(least, SLOTS_PER_CLIENT * wanted.clients, [&](int64_t n) { return slots_fit(n, length); });
    plan.clients.buffers = slots.value_or(least) + 1;
    plan.clients.length = length;
    if (!slots) {
        const auto possible = largest(0, least, [&](int64_t n) { return slots_fit(n, length); });
        plan.impossible.push_back(
            {"client slots: they pass the semaphores of one set or 2 GiB",
             fmt::format("{} slots of {} bytes", least, length),
             fmt::format("at most {} slots and {} bytes", MOST_BUFFERS_WITH_LOCKS - 1, INT32_MAX),
             fmt::format("at most {} clients with {} blocks", possible.value_or(0) / 2, wanted.blocks)});
    } else if (*slots < SLOTS_PER_CLIENT * wanted.clients) {
        plan.set_client_slots = *slots;
        plan.remarks.push_back(fmt::format("{} client slots, not {}: {:.1f} subscriptions per client", *slots,
                                           SLOTS_PER_CLIENT * wanted.clients,
                                           static_cast<double>(*slots) / static_cast<double>(wanted.clients)));
    }
}

// The table of slots is as long as the rate has it, so more slots than that would write behind its end.
void size_events(sizing& plan)
{
    const load& wanted = plan.wanted;
    const auto fits = [&](int64_t rate) {
        return slots_fit(SLOTS_PER_RATE * rate, event_length(wanted, SLOTS_PER_RATE * rate));
    };
    const int64_t least = (in_flight(wanted) + SLOTS_PER_RATE - 1) / SLOTS_PER_RATE;
    const auto as_asked = static_cast<int64_t>(std::ceil(wanted.rate));
    const auto rate = largest(least, std::max(least, as_asked), fits);
    plan.set_rate = rate.value_or(least);
    const int64_t slots = SLOTS_PER_RATE * plan.set_rate;
    plan.events.buffers = slots + 1;
    plan.events.length = event_length(wanted, slots);
    plan.event_span_s = static_cast<double>(slots) / wanted.rate;
    if (!rate) {
        const int64_t possible = SLOTS_PER_RATE * largest(0, least, fits).value_or(0);
        plan.impossible.push_back(
            {"event slots: they pass the semaphores of one set or 2 GiB",
             fmt::format("{} slots of {} bytes", slots, plan.events.length),
             fmt::format("at most {} slots and {} bytes", MOST_BUFFERS_WITH_LOCKS - 1, INT32_MAX),
             fmt::format("{} slots at most: at {:g} events/s readers and stalls together may last {:.1f} s", possible,
                         wanted.rate, static_cast<double>(possible) / wanted.rate)});
    } else if (*rate != as_asked) {
        plan.remarks.push_back(fmt::format("set_rate({}), not {}: slots for {} of open events", *rate, as_asked,
                                           span_text(plan.event_span_s)));
    }
}

/// How many partitions hold `buffers` buffers; each as large as the next.
int64_t partitions_for(int64_t buffers, int64_t length)
{
    const auto most = largest(1, MOST_BUFFERS, [&](int64_t n) { return offsets_fit(n, length); });
    return most ? (buffers + *most - 1) / *most : 0;
}

void size_group(sizing& plan, const block_group& group, const std::string& name)
{
    // One more per block: the one that its writer fills.
    const int64_t buffers = (in_flight(plan.wanted) + 1) * group.per_event;
    if (group.bytes > INT32_MAX) {
        plan.impossible.push_back({"a block is longer than a buffer can be", fmt::format("{} bytes", group.bytes),
                                   fmt::format("at most {} bytes", INT32_MAX), "the block cut into several"});
        return;
    }
    const int64_t count = partitions_for(buffers, group.bytes);
    const int64_t each = (buffers + count - 1) / count;
    for (int64_t i = 0; i < count; ++i)
        plan.data.push_back({count == 1 ? name : fmt::format("{}_{}", name, i + 1), each, group.bytes, false});
    if (count > 1) {
        plan.remarks.push_back(fmt::format("{}: {} buffers of {} take {} partitions: one ends at 2 GiB or {} buffers",
                                           name, buffers, size_text(static_cast<uint64_t>(group.bytes)), count,
                                           MOST_BUFFERS));
    }
}

void size_data(sizing& plan)
{
    std::vector<block_group> groups = plan.wanted.groups;
    if (groups.empty()) groups.push_back({65536, plan.wanted.blocks});
    int64_t counted = 0;
    for (size_t i = 0; i < groups.size(); ++i) {
        size_group(plan, groups[i], fmt::format("DATA_{}", i + 1));
        counted += groups[i].per_event;
    }
    if (counted > plan.wanted.blocks) {
        plan.impossible.push_back({"more blocks are sized than an event has room for",
                                   fmt::format("{} blocks", counted), fmt::format("at most {}", plan.wanted.blocks),
                                   fmt::format("--blocks {}", counted)});
    }
}

void need(sizing& plan)
{
    kernel_needs& needs = plan.needs;
    for (const planned_partition& part : plan.all()) {
        needs.semaphores_per_set = std::max(needs.semaphores_per_set, part.semaphores());
        needs.semaphores += part.semaphores();
        needs.largest_segment = std::max(needs.largest_segment, part.bytes());
        needs.bytes += part.bytes();
        ++needs.sets;
        ++needs.segments;
    }
    needs.receive_buffer = std::min(GRANTED_BUFFER, ONE_DATAGRAM * in_flight(plan.wanted));
    if (needs.segments > KEYS) {
        plan.impossible.push_back({"more partitions than there are keys for them",
                                   fmt::format("{} partitions", needs.segments), fmt::format("at most {}", KEYS),
                                   "fewer or shorter blocks, or a shorter reader time"});
    }
}

} // namespace

int64_t planned_partition::bytes() const { return buffer_offset(buffers, length, buffers); }

int64_t planned_partition::semaphores() const { return gbl_nsems + (locks ? buffers : 0); }

std::vector<planned_partition> sizing::all() const
{
    std::vector<planned_partition> parts{clients, events};
    parts.insert(parts.end(), data.begin(), data.end());
    return parts;
}

sizing sized(const load& wanted, const std::string& client_slots, const std::string& event_slots)
{
    sizing plan;
    plan.wanted = wanted;
    plan.clients.name = client_slots;
    plan.events.name = event_slots;
    plan.clients.locks = plan.events.locks = true;
    size_clients(plan);
    size_events(plan);
    size_data(plan);
    need(plan);
    return plan;
}

std::vector<std::string> preset_names() { return {"bench", "beamline", "hall", "large"}; }

load preset(const std::string& name)
{
    load wanted;
    if (name == "bench") return {8, 8, 10, 0.5, 6, wanted.form, {{4096, 8}}};
    if (name == "hall") return {256, 100, 50, 1, 6, wanted.form, {{65536, 90}, {1048576, 10}}};
    if (name == "large") return {499, 200, 100, 1, 6, wanted.form, {{65536, 180}, {1048576, 20}}};
    return {64, 32, 20, 1, 6, wanted.form, {{65536, 32}}};
}

} // namespace bm
