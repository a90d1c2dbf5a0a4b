#include "host/client_slots.h"

#include <algorithm>
#include <optional>

#include "client_slot.h"
#include "host/clock.h"
#include "host/names.h"

namespace bm {
namespace {

constexpr uint64_t HEAD = sizeof(zrk4_client_slot_head);
constexpr int LOOKS = 8;

/// Head and record of a slot, whichever of the two it has.
struct BM_PACKED front {
    zrk4_client_slot_head head;
    zrk4_client_reader reader;

    // Time and counter move while a client works: they tell nothing of the slot's owner.
    bool same_owner(const front& other) const
    {
        return head.pid == other.head.pid && head.evtype == other.head.evtype && head.cltype == other.head.cltype &&
               names_said() == other.names_said();
    }
    // A writer's record lacks the port: its count stands where a reader's port does.
    int32_t names_said() const { return head.cltype == CLI_T_READER ? +reader.nsblocks : +reader.qid; }
};
static_assert(sizeof(front) == 48);

class slot_look {
  public:
    slot_look(const partition& part, const read_only_segment& mapped, depth how)
        : part_(part), mapped_(mapped), how_(how)
    {
    }

    std::optional<client> take(int slot)
    {
        const std::optional<uint64_t> at = part_.offset(slot);
        front seen{};
        if (!at || part_.length() < static_cast<int>(sizeof seen)) return {};
        client one;
        for (int look = 0; look < LOOKS; ++look) {
            if (!mapped_.copy(*at, seen)) return {};
            one = client_of(slot, *at, seen);
            front after{};
            mapped_.copy(*at, after);
            one.torn = !seen.same_owner(after);
            if (!one.torn) break;
        }
        return one;
    }

  private:
    client client_of(int slot, uint64_t at, const front& seen)
    {
        client one;
        one.slot = slot;
        one.pid = seen.head.pid;
        one.type = static_cast<int32_t>(seen.head.cltype);
        one.evtype = static_cast<int32_t>(seen.head.evtype);
        one.events = seen.head.evcnt;
        one.access = micros(seen.head.atime);
        one.ratio = micros(seen.reader.client.time_ratio);
        one.priority = seen.reader.client.pri;
        one.mask = seen.reader.client.tmask;
        one.names_said = seen.names_said();
        if (one.reads()) {
            one.port = seen.reader.qid;
            read_names<zrk4_client_reader>(one, at);
        } else if (one.writes()) {
            read_names<zrk4_client_writer>(one, at);
        }
        return one;
    }

    template <class Record> void read_names(client& one, uint64_t at)
    {
        const int fit = std::max(0, zrk4::impl::client_slot::names_that_fit<Record>(part_.length()));
        const int count = how_ == depth::whole ? std::clamp(one.names_said, 0, fit) : 0;
        one.names.reserve(static_cast<size_t>(count));
        for (int k = 0; k < count; ++k) {
            one.names.push_back(
                name_at(mapped_, at + HEAD + sizeof(Record) + static_cast<uint64_t>(k) * CLI_NAME_SIZE));
        }
    }

    const partition& part_;
    const read_only_segment& mapped_;
    depth how_;
};

} // namespace

client_slots::client_slots(const partition& part, const read_only_segment& mapped, depth how)
{
    read(part, mapped, how, [](int) { return true; });
}

client_slots::client_slots(const partition& part, const read_only_segment& mapped, const std::vector<bool>& wanted)
{
    read(part, mapped, depth::whole,
         [&](int slot) { return static_cast<size_t>(slot) < wanted.size() && wanted[static_cast<size_t>(slot)]; });
}

template <class Wanted>
void client_slots::read(const partition& part, const read_only_segment& mapped, depth how, Wanted is_wanted)
{
    if (const auto at = part.offset(0); at && part.length() >= static_cast<int>(sizeof control_))
        mapped.copy(*at, control_);
    number_.assign(static_cast<size_t>(part.buffers()), -1);
    slot_look look(part, mapped, how);
    for (int slot = 1; slot < part.buffers(); ++slot) {
        part.read_ahead(slot, mapped);
        if (!is_wanted(slot) || part.descriptor(slot).queued()) continue;
        std::optional<client> one = look.take(slot);
        if (!one) continue;
        number_[static_cast<size_t>(slot)] = static_cast<int32_t>(all_.size());
        all_.push_back(std::move(*one));
    }
}

const client* client_slots::at(int slot) const
{
    if (slot < 0 || static_cast<size_t>(slot) >= number_.size()) return nullptr;
    const int32_t number = number_[static_cast<size_t>(slot)];
    return number < 0 ? nullptr : &all_[static_cast<size_t>(number)];
}

} // namespace bm
