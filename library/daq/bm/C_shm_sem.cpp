// Locks and modes of a partition.
#include <cerrno>
#include <cstdio>
#include <stdexcept>

#include <sys/shm.h>
#include <unistd.h>

#include "C_shm.h"
#include "sem_change.h"
#include "text_later.h"

using namespace zrk4::impl;

namespace {

// Printing may change errno, and the exception speaks of the semaphore's.
[[noreturn]] void throw_sys_error(int error)
{
    errno = error;
    throw SysError();
}

// A hold that its give was refused for would stop this process at its own next turn, and all others until it ends. The
// refusal is reported as it is.
void drop_hold(int semid, unsigned short number)
{
    const int error = errno;
    int32_t busy = 0;
    change_with_undo(semid, number, 1, busy);
    errno = error;
}

// What gate and ctrl say when there is no more to be done than to say it stands apart: every step of an event takes them.
[[noreturn]] void gate_failed(const C_shm_global& g, sem_outcome outcome, bool lock)
{
    if (!lock) drop_hold(g.gbl_semid, gbl_gate);
    const int error = errno;
    text_later::write_now();
    // UP, DOWN, "rrno" and "shmid:" before the set's id stand so whatever the direction: people search logs for them.
    if (outcome == sem_outcome::failed_at_once) {
        std::printf("throw C_shm::gate UP sem: %d errno: %d semid: %d\n", gbl_gate, error, g.gbl_semid);
        std::printf("throw C_shm::gate DOWN sem: %d  rrno: %d shmid: %d Partition name:%.255s  buffers:%d  size:%d "
                    "status:%d version:%d count:%d semid:%d sems:%d\n",
                    gbl_gate, error, g.gbl_semid, g.name, g.nbuf, g.lbuf, g.status, g.version, g.gbl_count, g.gbl_semid,
                    g.sems);
    } else {
        std::printf("throw C_shm::gate DOWN sem: %d  rrno: %d semid: %d Partition name:%.255s  buffers:%d  size:%d "
                    "status:%d version:%d count:%d semid:%d sems:%d\n",
                    gbl_gate, error, g.gbl_semid, g.name, g.nbuf, g.lbuf, g.status, g.version, g.gbl_count, g.gbl_semid,
                    g.sems);
    }
    throw_sys_error(error);
}

[[noreturn]] void ctrl_failed(int semid, int number, bool lock)
{
    if (!lock) drop_hold(semid, static_cast<unsigned short>(number));
    const int error = errno;
    text_later::write_now();
    std::printf("throw C_shm::ctrl UP sem: %d   errno: %d  semid: %d\n", number, error, semid);
    throw_sys_error(error);
}

} // namespace

bool C_shm::gate(bool lock) const
{
    if (!attached) throw std::logic_error("Partition not attached");
    const C_shm_global* g = global();
    if (!lock) tell_giving(pointer);
    const sem_outcome outcome = change_with_undo(g->gbl_semid, gbl_gate, lock ? -1 : 1, mLockCount);
    if (outcome == sem_outcome::done) {
        if (lock) tell_taken(pointer);
        return true;
    }
    if (outcome == sem_outcome::interrupted) return false;
    gate_failed(*g, outcome, lock);
}

bool C_shm::ctrl(int slot, bool lock) const
{
    if (slot < 0 || slot >= NBuff || !attached) {
        text_later::write_now();
        std::printf("ctrl(): Wrong slot id: %d\n", slot);
        return false;
    }
    if (!more_sems) {
        text_later::write_now();
        std::printf("ctrl(): No additional semaphores available \n");
        return false;
    }
    const int semid = global()->gbl_semid;
    const int number = gbl_nsems + slot;
    if (!lock) tell_giving(&bufptr[slot]);
    const sem_outcome outcome = change_with_undo(semid, static_cast<unsigned short>(number), lock ? -1 : 1, mLockCount);
    if (outcome == sem_outcome::done) {
        if (lock) tell_taken(&bufptr[slot]);
        return true;
    }
    if (outcome == sem_outcome::interrupted) return false;
    ctrl_failed(semid, number, lock);
}

void C_shm::lock(bool on)
{
    if (!attached) {
        shm_error = NotAttached;
        return;
    }
    if (geteuid() != 0 || shmctl(ident, on ? SHM_LOCK : SHM_UNLOCK, nullptr) != 0) shm_error = NoPriviledge;
}

void C_shm::bufmode(int mode)
{
    constexpr int32_t MODE_BITS = SHM_RELEASE | SHM_SCAVAGE | SHM_EXPOSE;
    constexpr int32_t bits_of[] = {SHM_RELEASE, 0, SHM_SCAVAGE, SHM_RELEASE | SHM_EXPOSE};
    if (mode < 0 || mode > 3) {
        text_later::write_now();
        std::printf("C_shm::bufmode: Invalid mode %d request\n", mode);
        return;
    }
    if (attached) global()->status = (global()->status & ~MODE_BITS) | bits_of[mode];
}

void C_shm::rqsynch(bool on)
{
    if (!attached) return;
    global()->status = on ? global()->status | SHM_SYNCH : global()->status & ~SHM_SYNCH;
}

void C_shm::keep(bool on) { kpflg = on; }

bool C_shm::testFlag(int mask) const { return pointer != nullptr && (global()->status & mask) != 0; }
