/// @file
/// A partition as an allocator of buffers.
#ifndef ZRK4_C_SHM_BUFFER_H
#define ZRK4_C_SHM_BUFFER_H

#include "C_shm.h"

/// Flag of get_buffer: do not wait for a semaphore.
inline constexpr int BM_NO_WAIT = 4;

/// A partition whose buffers are handed out to, and taken back from, the processes of the host.
///
/// Results: the `return_buffer` forms are TRUE ON FAILURE; pointers are null on failure.
///
/// A buffer must be returned exactly once. A second return while the buffer is still free is refused; once it was
/// handed out again, the second return takes it from its new owner.
class BM_API C_shm_buffer : public C_shm {
  public:
    C_shm_buffer() = default;
    explicit C_shm_buffer(const char* name) : C_shm(name) {}
    explicit C_shm_buffer(int shmid) : C_shm(shmid) {}
    C_shm_buffer(const char* name, int nbuf, int lbuf, bool sems) : C_shm(name, nbuf, lbuf, sems) {}
    C_shm_buffer(const C_shm_buffer&) = delete;
    C_shm_buffer& operator=(const C_shm_buffer&) = delete;
    /// Returns the current buffer, if there is one; a SysError from that ends the process.
    ~C_shm_buffer();

    /// Takes a free buffer.
    /// @param flags  bit BM_NO_WAIT: give null instead of waiting; no other bit is used
    /// @param multi  false: the buffer becomes this handle's current one, and a further call answers with it again;
    ///               true: the caller keeps it by address or number and returns it so
    /// @return its address; null: none free (no-wait), interrupted by a signal, semaphores removed, or synch mode.
    /// @throws std::logic_error without access; SysError for any other failure of a semaphore.
    /// Threads: with `multi` any number of threads and processes at once. Lock: the gate, for the queue alone.
    char* get_buffer(int flags, bool multi);
    /// Returns the current buffer. @return false on success; TRUE MEANS FAILURE: none, no access, or free already.
    bool return_buffer();
    /// Returns the buffer at `addr`. @return true when no buffer begins there, else false WHATEVER became of it.
    bool return_buffer(char* addr);
    /// Returns buffer `i`. @return false on success; TRUE MEANS FAILURE: no such buffer, no access, or free already.
    /// Threads: any number of threads and processes at once. Lock: the gate.
    bool return_buffer(int i);
    /// Writes `id` into the current buffer's descriptor.
    void SetID(int id);

    /// @return true when the handle has no access.
    bool operator!() const { return !accessed; }
    int get_buffer_id(char* addr) const { return buffer_id(addr); }
    char* get_buffer_addr(int i) const { return buffer_addr(i); }
    using C_shm::release;
    /// Returns buffer `i`; the other two arguments are kept for old callers and not used.
    bool release(int i, int /*unused*/, int /*unused*/) { return return_buffer(i); }
    C_shm_buf* get_bufptr() const { return bufptr; }
    bool bgate(bool lock) const { return gate(lock); }
    bool bctrl(int slot, bool lock) const { return ctrl(slot, lock); }

  protected:
    int32_t ibuf = -1; ///< the buffer this handle holds as its current one, -1 = none

  private:
    char* current_addr() const;
    bool pass_synch(short wait);
    int pop_free();
    void put_back(int taken);
    int pop_reusable(bool& interrupted);
    bool push_free(int i);
};

#endif
