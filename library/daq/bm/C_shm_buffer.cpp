// Taking and returning of buffers.
#include "C_shm_buffer.h"

#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <utility>

#include <sys/sem.h>

#include "free_queue.h"
#include "own_pid.h"
#include "sem_change.h"
#include "text_later.h"
#include "unlocked.h"

using namespace zrk4::impl;

namespace {

constexpr int NONE = -1;

bool just_no_buffer(int error) { return error == EAGAIN || error == EIDRM || error == EINTR; }

// "SysErrot" and the number in front are searched for in logs: they stay.
[[noreturn]] void throw_semaphore_failed(int number_in_text, int error)
{
    text_later::write_now();
    std::printf("%d_C_shm_buffer::get_buffer() errno:%d before SysErrot()\n", number_in_text, error);
    std::fflush(nullptr);
    errno = error;
    throw SysError();
}

} // namespace

C_shm_buffer::~C_shm_buffer()
{
    if (ibuf >= 0) return_buffer();
}

char* C_shm_buffer::get_buffer(int flags, bool multi)
{
    if (ibuf >= 0 && !multi) return current_addr();
    if (!accessed) throw std::logic_error("Partition not attached");
    const short wait = (flags & BM_NO_WAIT) != 0 ? IPC_NOWAIT : 0;
    if ((word_unlocked(&global()->status) & SHM_SYNCH) != 0 && !pass_synch(wait)) return nullptr;
    int taken = NONE;
    while (taken == NONE) {
        // Counted first, taken later, without undo: a process that dies in between makes one buffer unreachable, but
        // never is a buffer handed out twice.
        const int error = change_without_undo(global()->gbl_semid, gbl_empty, -1, wait);
        if (error != 0) {
            if (!just_no_buffer(error)) throw_semaphore_failed(139, error);
            if (!multi) ibuf = NONE;
            return nullptr;
        }
        if (word_unlocked(&global()->free.head) >= 0) {
            taken = pop_free();
        } else if (testFlag(SHM_SCAVAGE)) {
            bool interrupted = false;
            taken = pop_reusable(interrupted);
            if (interrupted) return nullptr;
            if (taken != NONE) change_without_undo(global()->gbl_semid, gbl_full, -1, IPC_NOWAIT);
        }
    }
    bufptr[taken].status = 0;
    bufptr[taken].owner_pid = own_pid();
    if (!multi) ibuf = taken;
    return static_cast<char*>(pointer) + bufptr[taken].boff;
}

// It stays the handle's own while the segment is attached, access or not.
char* C_shm_buffer::current_addr() const
{
    if (accessed) return buffer_addr(ibuf);
    if (!attached || ibuf >= global()->nbuf) return nullptr;
    const auto* descriptors = reinterpret_cast<const C_shm_buf*>(global() + 1);
    return static_cast<char*>(pointer) + descriptors[ibuf].boff;
}

// Synch mode never hands out a buffer: it eats counts until one is lacking. Deliberate.
bool C_shm_buffer::pass_synch(short wait)
{
    while (true) {
        if (!gate(true)) return false;
        while (!gate(false)) {}
        const int error = change_without_undo(global()->gbl_semid, gbl_synch, -1, wait);
        if (error == 0) continue;
        if (!just_no_buffer(error)) throw_semaphore_failed(120, error);
        return false;
    }
}

// Owner and state are written before the buffer leaves the queue: whoever finds it handed out, also after a death in
// the middle, finds the name of the process that took it.
int C_shm_buffer::pop_free()
{
    int taken = NONE;
    try {
        while (!gate(true)) {}
        C_shm_BufferQ& queue = global()->free;
        const int first = queue.head;
        if (first >= 0 && first < NBuff) {
            bufptr[first].owner_pid = own_pid();
            bufptr[first].status &= ~BUF_QUEUED;
        }
        taken = queue.remove(bufptr);
        while (!gate(false)) {}
    } catch (const SysError&) {
        put_back(taken);
        throw;
    }
    return taken;
}

// A gate that failed once, and not because the set is gone: nobody else knows of what was counted, or taken, for this
// call.
void C_shm_buffer::put_back(int taken)
{
    const int semid = global()->gbl_semid;
    if (semctl(semid, gbl_empty, GETVAL) < 0) return;
    if (taken != NONE) push_free(taken);
    change_without_undo(semid, gbl_empty, 1, 0);
}

int C_shm_buffer::pop_reusable(bool& interrupted)
{
    interrupted = !gate(true);
    if (interrupted) return NONE;
    C_shm_BufferQ& queue = global()->full;
    int taken = NONE;
    int steps = 0;
    for (int i = queue.head; i >= 0 && i < NBuff && steps++ < NBuff; i = bufptr[i].link) {
        if (bufptr[i].inUse() || !testFlag(SHM_RELEASE)) continue;
        queue.remove(bufptr, i);
        taken = i;
        break;
    }
    while (!gate(false)) {}
    return taken;
}

bool C_shm_buffer::return_buffer()
{
    if (ibuf < 0 || !accessed) return true;
    return return_buffer(std::exchange(ibuf, NONE));
}

bool C_shm_buffer::return_buffer(char* addr)
{
    const int i = buffer_id(addr);
    if (i < 0) return true;
    return_buffer(i);
    return false; // whatever became of it: deliberate
}

// The number is never carried through `ibuf`: several threads return buffers through one handle at once.
bool C_shm_buffer::return_buffer(int i)
{
    if (!accessed || i < 0 || i >= NBuff || i >= global()->nbuf) return true;
    if (ibuf != NONE) ibuf = NONE; // several threads come here at once, and then none of them has a current buffer
    if ((word_unlocked(&bufptr[i].status) & BUF_QUEUED) != 0 || !push_free(i)) return true;
    // Whether it counts is nothing to the caller. Tried again, because a buffer that is not counted cannot be had.
    for (int tries = 0; tries < 2 && change_without_undo(global()->gbl_semid, gbl_empty, 1, 0) != 0;) ++tries;
    return false;
}

// Tested again under the gate: two processes that return the same buffer at the same moment both pass the first test,
// and the second append would link the buffer to itself.
bool C_shm_buffer::push_free(int i)
{
    while (!gate(true)) {}
    const bool was_out = !bufptr[i].queued();
    if (was_out) append_free(*global(), bufptr, i);
    try {
        while (!gate(false)) {}
    } catch (const SysError&) {
        if (was_out) change_without_undo(global()->gbl_semid, gbl_empty, 1, 0); // it is in the queue, and so it counts
        throw;
    }
    return was_out;
}

void C_shm_buffer::SetID(int id)
{
    if (!accessed) return;
    if (ibuf < 0 || ibuf >= NBuff || bufptr[ibuf].queued()) {
        ibuf = NONE;
    } else {
        bufptr[ibuf].data_ID = id;
    }
}
