// What the entries of event slots list: a buffer once, and none that is free.
#include "check_run.h"

namespace zrk4::impl {
namespace {

const raw_partition* partition_of(const check_run& run, int shmid)
{
    for (const auto& part : run.partitions) {
        if (part->shmid() == shmid) return part.get();
    }
    return nullptr;
}

/// An entry of an event slot, to be looked at again and made a hole with the slot's locks in hand.
template <class Form> class living_entry {
  public:
    living_entry(const raw_partition& events, const listed_block& b) : slot_(events, b.slot), block_(b)
    {
        used_ = events.handed_out(b.slot) && event_table<Form>(events).used(b.slot);
    }
    bool stands() const
    {
        if (!used_ || !slot_ || block_.index >= slot_.filled()) return false;
        return entry().shmid == block_.shmid && entry().bnum == block_.bnum;
    }
    void make_hole() const
    {
        entry().bnum = -1;
        entry().shmid = 0;
    }
    time_stamp start() const { return slot_.identity().start; }

  private:
    zrk4_client_sblock_data& entry() const { return slot_.entries()[block_.index]; }

    event_slot<Form> slot_;
    listed_block block_;
    bool used_;
};

bool earlier(const time_stamp& a, const time_stamp& b)
{
    return a.timeup != b.timeup ? a.timeup < b.timeup : a.timelow < b.timelow;
}

// Of two events the older one loses it: the buffer must have been back once before the younger could list it.
template <class Form> second_look look_at_twins(const check_run& run, const listed_block& a, const listed_block& b)
{
    const event_locks locks(*run.events, a.slot, run.request.patience);
    if (!locks) return second_look::moved;
    const bool one_slot = a.slot == b.slot;
    std::unique_ptr<raw_lock> other;
    if (!one_slot) other = std::make_unique<raw_lock>(*run.events, lock_of_slot(b.slot), raw_lock::patience(0));
    if (other != nullptr && !*other) return second_look::moved;
    const living_entry<Form> first(*run.events, a);
    const living_entry<Form> second(*run.events, b);
    if (!first.stands() || !second.stands()) return second_look::moved;
    if (!run.request.repair) return second_look::stands;
    (!one_slot && earlier(first.start(), second.start()) ? first : second).make_hole();
    return second_look::mended;
}

template <class Form>
second_look look_at_free_one(const check_run& run, const raw_partition& part, const listed_block& b)
{
    const event_locks locks(*run.events, b.slot, run.request.patience);
    const raw_lock gate(part, gbl_gate, run.request.patience);
    const living_entry<Form> entry(*run.events, b);
    if (!locks || !gate || !entry.stands() || part.handed_out(b.bnum)) return second_look::moved;
    if (!run.request.repair) return second_look::stands;
    entry.make_hole();
    return second_look::mended;
}

// A lock that is busy now, or an entry that has gone, is movement, and no finding.
template <class Form> void check_twins(check_run& run, const listed_block& a, const listed_block& b)
{
    const second_look seen = look_at_twins<Form>(run, a, b);
    const raw_partition* part = partition_of(run, a.shmid);
    const std::string text = a.slot == b.slot
                                 ? worded("buffer %d is listed twice in event slot %d", a.bnum, a.slot)
                                 : worded("buffer %d is listed in event slots %d and %d", a.bnum, a.slot, b.slot);
    run.confirmed(seen, 5, part != nullptr ? part->name() : worded("segment %d", a.shmid), a.bnum,
                  part != nullptr && a.bnum < part->getBufferCount() ? part->owner(a.bnum) : 0, text);
}

template <class Form> void check_free_one(check_run& run, const listed_block& b)
{
    const raw_partition* part = partition_of(run, b.shmid);
    if (part == nullptr || b.bnum >= part->getBufferCount() || part->handed_out(b.bnum)) return;
    const second_look seen = look_at_free_one<Form>(run, *part, b);
    run.confirmed(seen, 4, part->name(), b.bnum, 0,
                  worded("buffer %d is in the free queue and listed in event slot %d", b.bnum, b.slot));
}

} // namespace

void check_listed(check_run& run)
{
    in_records(run.request.records_2024, [&](auto form) {
        using Form = decltype(form);
        const std::vector<listed_block>& blocks = run.listing.blocks();
        for (size_t i = 0; i < blocks.size(); ++i) {
            const bool twin = i > 0 && blocks[i].shmid == blocks[i - 1].shmid && blocks[i].bnum == blocks[i - 1].bnum;
            if (twin) check_twins<Form>(run, blocks[i - 1], blocks[i]);
            check_free_one<Form>(run, blocks[i]);
        }
    });
}

} // namespace zrk4::impl
