#include "model/sampler.h"

#include <algorithm>
#include <utility>

#include "host/clock.h"

namespace bm {
namespace {

int slot_of(const moving_client& one) { return one.what.slot; }
int slot_of(const event& one) { return one.slot; }

/// The one in `slot`, of a list by slot; null when it is not there.
template <class Item> const Item* in_slot(const std::vector<Item>& all, int slot)
{
    const auto at = std::lower_bound(all.begin(), all.end(), slot,
                                     [](const Item& one, int wanted) { return slot_of(one) < wanted; });
    return at != all.end() && slot_of(*at) == slot ? &*at : nullptr;
}

bool a_reader_works_on(const event& one, const moment& seen)
{
    return std::any_of(one.clients.begin(), one.clients.end(), [&](const zrk4_client_block& block) {
        if (static_cast<int32_t>(block.status) != CLI_S_PROC) return false;
        const moving_client* client = in_slot(seen.clients, block.snum);
        return client != nullptr && client->what.reads() && !client->who.gone();
    });
}

bool same_event(const event& a, const event& b)
{
    return a.start == b.start && a.pid == b.pid && a.key.timeup == b.key.timeup && a.key.timelow == b.key.timelow;
}

/// The client of the look before, while it was the same one; null otherwise.
const moving_client* same_client(const std::optional<moment>& before, const client& now)
{
    const moving_client* then = before ? in_slot(before->clients, now.slot) : nullptr;
    const bool same =
        then != nullptr && then->what.pid == now.pid && then->what.evtype == now.evtype && then->what.type == now.type;
    return same ? then : nullptr;
}

} // namespace

// A master that starts again may have made the partitions anew: ours are then removed ones.
void sampler::find()
{
    if (clients_ && events_ && !clients_->mapped->removed() && !events_->mapped->removed()) {
        clients_->seen = look_at(clients_->seen.where, *clients_->mapped);
        events_->seen = look_at(events_->seen.where, *events_->mapped);
        if (clients_->seen.state == partition_state::sound && events_->seen.state == partition_state::sound) return;
    }
    clients_.reset();
    events_.reset();
    before_.reset();
    events_ = find_partition(options_.events);
    clients_ = find_partition(options_.clients);
}

const moment& sampler::look()
{
    if (now_.now != 0) before_ = std::exchange(now_, {});
    find();
    const depth how = how_ == detail::rows ? depth::rows : depth::heads;
    event_slots events(events_->seen, *events_->mapped, options_.form, how);
    const client_slots clients(clients_->seen, *clients_->mapped, how);
    now_.now = micros_now();
    now_.span_s = before_ ? seconds_between(before_->now, now_.now) : 0;
    count_clients(now_, clients);
    count_events(now_, std::move(events));
    count_reclaims(now_, clients);
    count_buffers(now_);
    return now_;
}

// An event counts once for each of its clients: a type's events are those of its busiest client.
void sampler::count_clients(moment& into, const client_slots& slots)
{
    const std::optional<udp_sockets> sockets = udp_sockets_now();
    processes known(clients_->seen.where.uid);
    // What the monitor takes back is told by the monitor's own question.
    const auto who_is = [&](const client& one) -> process {
        return how_ == detail::rows ? known.owner_of(one.pid, one.access) : known.asked(one.pid);
    };
    into.clients.reserve(slots.all().size());
    for (const client& one : slots.all()) {
        moving_client moving{one, who_is(one), 0, {}, 0};
        const moving_client* then = same_client(before_, one);
        if (then != nullptr && into.span_s > 0) {
            moving.rate = (static_cast<uint32_t>(one.events) - static_cast<uint32_t>(then->what.events)) / into.span_s;
            double& of_type = into.rate_of_type[one.evtype];
            of_type = std::max(of_type, moving.rate);
        }
        if (one.reads() && sockets) {
            if (const auto at = sockets->find(one.port & 0xffff); at != sockets->end()) moving.socket = at->second;
        }
        if (moving.socket && then != nullptr && then->socket && moving.socket->drops >= then->socket->drops)
            moving.new_drops = moving.socket->drops - then->socket->drops;
        into.drops += moving.new_drops;
        into.clients.push_back(std::move(moving));
    }
}

// Slots keep the heads of events that are over until somebody takes them again: their sizes are known, and where the
// counters of clients tell less, they do.
void sampler::count_events(moment& into, event_slots slots) const
{
    struct begun {
        int count = 0;
        double bytes = 0;
    };
    std::map<int32_t, begun> since;
    const int64_t from = before_ ? before_->now : into.now;
    const auto add = [&](const event& one, bool over) {
        if (one.start <= from || one.start > into.now) return;
        begun& type = since[one.type];
        if (!over && one.filled_said < one.expected) return;
        ++type.count;
        type.bytes += static_cast<double>(std::max<int64_t>(one.bytes, 0));
    };
    for (const event& one : slots.past()) add(one, true);
    for (const event& one : slots.all()) {
        add(one, false);
        into.oldest_s = std::max(into.oldest_s, seconds_between(one.start, into.now));
    }
    into.slots = slots.slots();
    into.events = std::move(slots).take();
    into.open = static_cast<int>(into.events.size());
    for (const auto& [type, seen] : since) {
        double& rate = into.rate_of_type[type];
        if (into.span_s > 0) rate = std::max(rate, seen.count / into.span_s);
        if (seen.count > 0) into.bytes_per_s += rate * seen.bytes / seen.count;
    }
    for (const auto& [type, rate] : into.rate_of_type) into.events_per_s += rate;
}

void sampler::count_reclaims(moment& into, const client_slots& clients) const
{
    if (!before_) return;
    for (const event& then : before_->events) {
        if (idle_seconds(then, before_->now) < STILL_S || a_reader_works_on(then, *before_)) continue;
        const event* now = in_slot(into.events, then.slot);
        if (now == nullptr || !same_event(*now, then)) ++into.reclaims;
    }
    for (const moving_client& then : before_->clients) {
        if (!then.who.gone()) continue;
        const client* now = clients.at(then.what.slot);
        if (now == nullptr || now->pid != then.what.pid) ++into.reclaims;
    }
}

void sampler::count_buffers(moment& into) const
{
    for (const segment& each : segments_of_partitions()) {
        if (each.id == clients_->seen.where.id || each.id == events_->seen.where.id) continue;
        partition part = look_at(each);
        if (part.state != partition_state::sound) continue;
        into.out += part.out();
        into.buffers += part.buffers();
        into.data.push_back(std::move(part));
    }
}

} // namespace bm
