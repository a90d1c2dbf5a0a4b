/// @file
/// A client slot as its owner, and everybody who walks the slots, sees it.
#ifndef ZRK4_IMPL_CLIENT_SLOT_H
#define ZRK4_IMPL_CLIENT_SLOT_H

#include <algorithm>

#include "BM_int.h"
#include "C_shm_buffer.h"
#include "names.h"
#include "partition_state.h"
#include "slot_lock.h"
#include "unlocked.h"

namespace zrk4::impl {

/// Client slot `n`: head, a reader's or a writer's record, names. Another process may leave any count in the record:
/// it is cut to what the slot can hold.
class client_slot {
  public:
    /// Bytes without which a buffer is no client slot.
    static constexpr int RECORDS = sizeof(zrk4_client_slot_head) + sizeof(zrk4_client_reader);

    template <class Part> client_slot(const Part& part, int n) : at_(address_of(part, n)), room_(part.getBufferLength())
    {
        if (room_ < RECORDS) at_ = nullptr;
    }
    explicit operator bool() const { return at_ != nullptr; }

    zrk4_client_slot_head& head() const { return *reinterpret_cast<zrk4_client_slot_head*>(at_); }
    zrk4_client_reader& reader() const { return *static_cast<zrk4_client_reader*>(record()); }
    zrk4_client_writer& writer() const { return *static_cast<zrk4_client_writer*>(record()); }
    /// The head as it stands, without the slot's lock.
    zrk4_client_slot_head head_now() const { return read_unlocked(&head()); }

    /// Time and counter of the head move under different locks: of the slot, of an event's slot, of the event table.
    void renew(const time_stamp& now) const { write_unlocked(&head().atime, now); }
    void count_event() const { count_up(&head().evcnt); }

    /// Names of a reader's or a writer's server blocks.
    name_list reader_names() const { return names(sizeof(zrk4_client_reader), word_unlocked(&reader().nsblocks)); }
    name_list writer_names() const { return names(sizeof(zrk4_client_writer), word_unlocked(&writer().nsblocks)); }

    /// How many names a slot of `room` bytes holds behind a record of `Record`; -1 when it is none.
    template <class Record> static int names_that_fit(int room)
    {
        if (room < RECORDS) return -1;
        return (room - static_cast<int>(sizeof(zrk4_client_slot_head) + sizeof(Record))) / static_cast<int>(NAME_SIZE);
    }

  private:
    void* record() const { return at_ + sizeof(zrk4_client_slot_head); }
    name_list names(size_t record_size, int count) const
    {
        const size_t offset = sizeof(zrk4_client_slot_head) + record_size;
        const int fit = (room_ - static_cast<int>(offset)) / static_cast<int>(NAME_SIZE);
        return {at_ + offset, std::clamp(count, 0, std::max(fit, 0))};
    }

    char* at_;
    int room_;
};

/// Whether client slot `n` exists. Told by the handle alone: nothing of the slot is touched.
inline bool is_client_slot(const C_shm_buffer* part, int n)
{
    return is_slot(part, n) && part->getBufferLength() >= client_slot::RECORDS;
}

} // namespace zrk4::impl

#endif
