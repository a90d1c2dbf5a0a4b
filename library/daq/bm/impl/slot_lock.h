/// @file
/// Locks of the slot partitions as objects.
#ifndef ZRK4_IMPL_SLOT_LOCK_H
#define ZRK4_IMPL_SLOT_LOCK_H

#include <cerrno>
#include <stdexcept>
#include <utility>

#include <sys/sem.h>
#include <unistd.h>

#include "C_shm_buffer.h"
#include "partition_state.h"
#include "sem_change.h"

namespace zrk4::impl {

/// Whether slot `n` exists and can be locked. Slot 0 is the control record, not a slot.
inline bool is_slot(const C_shm_buffer* part, int n)
{
    return part != nullptr && n > 0 && n < part->getBufferCount() && part->valid() != 0;
}

/// A partition that another object of this process has removed is gone from its memory too: to whoever asks for a lock
/// of it that is what it is to a process whose semaphores somebody has removed.
inline void require_access(const C_shm_buffer& part)
{
    if (part.valid() != 0) return;
    errno = EIDRM;
    throw SysError();
}

/// Holds lock `slot` of a slot partition (0: its control record) for the life of the guard. Not recursive.
/// A signal repeats the try unless `go_on` says no (monitor).
class slot_lock {
  public:
    /// Nothing held.
    slot_lock() : slot_lock(nullptr, 0) {}
    slot_lock(const C_shm_buffer& part, int slot) : slot_lock(part, slot, [] { return true; }) {}
    template <class GoOn> slot_lock(const C_shm_buffer& part, int slot, GoOn go_on) : part_(&part), slot_(slot)
    {
        require_access(part);
        // ctrl() refuses a lock that does not exist at once and for ever: a loop on it would never end.
        if (slot < 0 || slot >= part.getBufferCount() || !has_buffer_locks(part))
            throw std::logic_error("no such slot");
        while (!part.ctrl(slot, true)) {
            if (go_on()) continue;
            part_ = nullptr;
            return;
        }
    }
    ~slot_lock()
    {
        if (part_ == nullptr) return;
        try {
            while (!part_->ctrl(slot_, false)) {}
        } catch (const SysError&) {
            // ctrl has reported it; the semaphore set is gone, nothing is left to give back.
        }
    }
    slot_lock(slot_lock&& other) noexcept : part_(std::exchange(other.part_, nullptr)), slot_(other.slot_) {}
    slot_lock& operator=(slot_lock&& other) noexcept
    {
        std::swap(part_, other.part_);
        std::swap(slot_, other.slot_);
        return *this;
    }
    slot_lock(const slot_lock&) = delete;
    slot_lock& operator=(const slot_lock&) = delete;
    /// Gives the lock back now; unlike the destructor it lets a SysError reach the caller, who must then clean up.
    void unlock()
    {
        if (const C_shm_buffer* part = std::exchange(part_, nullptr)) {
            while (!part->ctrl(slot_, false)) {}
        }
    }
    explicit operator bool() const { return part_ != nullptr; }

    /// Tries once, without waiting; the guard is empty when somebody holds the lock.
    static slot_lock try_once(const C_shm_buffer& part, int slot)
    {
        const auto number = static_cast<unsigned short>(gbl_nsems + slot);
        if (!changed(control_of(part).gbl_semid, number, -1, SEM_UNDO | IPC_NOWAIT)) return slot_lock(nullptr, slot);
        tell_taken(&part.get_bufptr()[slot]);
        return slot_lock(&part, slot);
    }

    /// Tries for some milliseconds. A client that lives keeps a slot's lock for microseconds; one that stands still must
    /// not hold up whoever has the partition's lock 0 in hand.
    static slot_lock try_for_a_while(const C_shm_buffer& part, int slot)
    {
        slot_lock lock = try_once(part, slot);
        for (int tries = 0; !lock && tries < 20; ++tries) {
            usleep(100);
            lock = try_once(part, slot);
        }
        return lock;
    }

  private:
    slot_lock(const C_shm_buffer* part, int slot) : part_(part), slot_(slot) {}

    const C_shm_buffer* part_; // null: nothing held
    int slot_;
};

} // namespace zrk4::impl

#endif
