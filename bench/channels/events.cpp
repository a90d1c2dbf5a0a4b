#include "events.h"

#include <cstring>

#include "exchange.h"

namespace bench {
namespace {

constexpr int SLOT = 1;

template <class Head> void put_head(char* slot, ZRK4_EVTYPE type, int blocks)
{
    Head head{};
    if constexpr (sizeof(Head) == sizeof(zrk4_event_slot_head_2024)) head.pattern = EV_SLOT_PATTERN_2024;
    head.time = {1700000000, 1};
    head.evtype = type;
    head.nsblocks = head.sbfilled = blocks;
    std::memcpy(slot, &head, sizeof head);
}

} // namespace

reader_host::reader_host()
{
    limits small;
    small.clients = small.blocks = small.client_slots = small.event_slots = 2;
    configure(*this, small);
    require(!set_master(true) && !init(), "no slot partitions could be made");
    stop_monitor(); // nobody made the events here: it would clear them away
}

event::event(reader_host& host, generation form, ZRK4_EVTYPE type, const std::string& partition, size_t bytes,
             const std::function<void(zrk4::sb_write&)>& fill)
    : host_(host),
      form_(form),
      type_(type),
      slot_(host.ev_buf.load()->buffer_addr(SLOT)),
      id_(host.add(partition.c_str(), 1, static_cast<int>(bytes), /*sems=*/false))
{
    require(id_ > 0, "no data partition could be made");
    block_ = host.get_buffer_address(0, id_);
    const auto block_form = form == generation::of_2010 ? zrk4::sb_form::of_2010 : zrk4::sb_form::of_2024;
    zrk4::sb_write block(block_, bytes, block_form, {"BENCH", {1700000000, 1}, 1});
    fill(block);
    block.finish();
    require(block.complete(), "the block has no room for what it is to hold");
}

void event::show(int blocks) const
{
    form_ == generation::of_2010 ? put_head<zrk4_event_slot_head>(slot_, type_, blocks)
                                 : put_head<zrk4_event_slot_head_2024>(slot_, type_, blocks);
    zrk4_client_sblock_data entry{};
    std::strcpy(entry.name, "BENCH");
    entry.shmid = id_;
    entry.bnum = 0;
    std::memcpy(entries(), &entry, sizeof entry);
}

zrk4_client_sblock_data* event::entries() const
{
    const size_t head = form_ == generation::of_2010 ? sizeof(zrk4_event_slot_head) : sizeof(zrk4_event_slot_head_2024);
    return reinterpret_cast<zrk4_client_sblock_data*>(slot_ + head);
}

char* event::first_sub_block() const
{
    return block_ +
           (form_ == generation::of_2010 ? sizeof(zrk4_serv_block_head_2010) : sizeof(zrk4_serv_block_head_2024));
}

} // namespace bench
