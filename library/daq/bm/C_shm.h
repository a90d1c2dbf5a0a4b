/// @file
/// One process's handle on a partition.
#ifndef ZRK4_C_SHM_H
#define ZRK4_C_SHM_H

#include <iosfwd>
#include <mutex>
#include <string>
#include <vector>

#include "C_shm_int.h"
#include "SysError.h"
#include "bm_api.h"

/// Last error of a handle; `C_shm::Error` gives the text.
enum C_shm_error : int32_t {
    NoError = 0,
    NotAttached = 1,
    IncompatiblePartition = 2,
    CantGetSem = 3,
    NoFreeID = 4,
    CantAttach = 5,
    CantCreate = 6,
    CantCreateSem = 7,
    NoPriviledge = 8,
    BadVersion = 9
};

/// How many handles of this process use a segment.
struct shmid_entry {
    int32_t id;
    int32_t cnt;
};

/// A handle on a partition: finds one by name or by segment id, or makes it; gains and gives up access (membership in
/// the count of users that all processes share); locks it; removes it with its last user.
///
/// States: detached, attached (`find`, `make`), accessed (`access`). All handles of a process are on one chain, so that
/// a second handle on a partition shares the first one's mapping; a registry counts them per segment, and the last one
/// detaches. A segment lives until a `release` that finds no user and no `keep`.
///
/// Results: `find` and `make` are TRUE ON FAILURE; `access`, `gate` and `ctrl` are true on success.
///
/// Names: at most 255 characters are stored. A longer name is cut, is then never found again, and every construction
/// with it makes another partition.
///
/// Threads: constructors, `Zeuss` and `release` may run side by side on different handles. One handle is shared by
/// threads only for `gate`, `ctrl`, the address helpers and the reports.
class BM_API C_shm {
  public:
    /// A detached handle.
    C_shm();
    /// Finds a partition by name and gains access. A failed search alone leaves `Error` at "No error".
    explicit C_shm(const char* name);
    /// Attaches segment `shmid` and gains access. Any segment is taken, a partition or not; one of another version is
    /// released at once, which removes it when its word at offset 8 (the use count) is 0.
    explicit C_shm(int shmid);
    /// Finds the partition or makes it, and gains access.
    /// @param nbuf  buffers, at least 0; with `sems` at most 31,996 on a stock kernel (32,000 semaphores per set)
    /// @param lbuf  bytes of each, at least 0; every buffer must begin below 2 GiB
    /// @param sems  one lock per buffer as well
    /// An existing partition that is as large or larger is taken as it is; a smaller one is refused
    /// (`IncompatiblePartition`) and, when nobody else uses it, removed.
    C_shm(const char* name, int nbuf, int lbuf, bool sems);
    /// The same without locks per buffer.
    C_shm(const char* name, int nbuf, int lbuf);
    /// Another handle on the same mapping. It adds no registry entry, so destroying it uses up the original's.
    C_shm(C_shm& other);
    C_shm& operator=(const C_shm&) = delete;
    ~C_shm();

    /// Searches this process's handles, then the keys 32 to 1055, for a partition of this name and attaches it. A
    /// foreign segment in that range which may not be attached ends the search and hides all partitions behind it.
    /// @return false when found; TRUE MEANS FAILURE, also for a handle that is attached already.
    bool find(const char* name);
    /// Attaches segment `shmid`, without a look at what it holds.
    /// @return false when attached; TRUE MEANS FAILURE, also for a handle that is attached already.
    bool find(int shmid);
    /// Makes a partition at the first free key. Two makers at the same moment may pick the same one: start one maker at
    /// a time.
    /// @return TRUE ON FAILURE, with the reason in `Error`. False is success, with one exception: when the semaphore
    /// set cannot be made the segment is removed again, the result is false, and only `Error` (`CantCreateSem`) tells.
    bool make(const char* name, int nbuf, int lbuf);
    /// Joins the users of the partition. @return true on success; false: not attached, has access already, or a
    /// partition of another version (`BadVersion`).
    bool access();
    /// Leaves the users of the partition. Lock: the gate. @throws SysError the semaphore set is gone.
    void deaccess();
    /// Gives up access and attachment; the last user without `keep` removes the partition from the system.
    void release();
    /// Zeroes the use count of the named partition and attaches it without access, so that the next release removes it.
    void Zeuss(const char* name);
    /// @return attached handles of this process on the named partition / on segment `shmid`.
    int attaches(const char* name);
    int attaches(int shmid);
    /// Counts one more handle on segment `id`. The caller holds the process's partition mutex.
    /// @return 1 the first one, 0 one more, -1 no memory.
    int add_shmid_entry(int id);
    /// Counts one handle less. The caller holds the process's partition mutex.
    /// @return 0 that was the last one, 1 others remain, -1 segment `id` is not registered.
    int rem_shmid_entry(int id);
    /// @return text of the last error.
    const char* Error() const;

    /// Takes (true) or gives (false) the gate, the mutex over control data and queues. A holder's death gives it back.
    /// @return true when done; false only because a signal interrupted the wait: callers that must have it try again.
    /// @throws SysError the semaphore set is gone; std::logic_error the handle is not attached.
    bool gate(bool lock) const;
    /// Takes (true) or gives (false) the lock of buffer `slot`. A holder's death gives it back. Not recursive.
    /// @return true when done; false: interrupted by a signal, no such slot, or a partition without such locks; the
    /// latter two for ever, so check the number before a loop. @throws SysError the semaphore set is gone.
    bool ctrl(int slot, bool lock) const;
    /// Pins (true) or unpins the segment in memory; needs effective user id 0. Result in `Error`.
    void lock(bool on);
    /// Sets the mode bits 1, 2 and 16: 0 release; 1 none; 2 scavage; 3 release and expose.
    void bufmode(int mode);
    /// Sets or clears synch mode, in which get_buffer eats synch counts and never hands out a buffer.
    void rqsynch(bool on);
    /// Tells this handle never to remove the partition when it is released.
    void keep(bool on);
    /// @return whether one of the mode bits in `mask` is set; false for a detached handle.
    bool testFlag(int mask) const;
    /// How often this handle found the gate or a buffer's lock busy, a wait that still lasts included.
    int getLockCount() const { return __atomic_load_n(&mLockCount, __ATOMIC_RELAXED); }
    void clrLockCount() { __atomic_store_n(&mLockCount, 0, __ATOMIC_RELAXED); }
    /// Forgets the chain: the process's searches no longer see any handle that exists now.
    void flush();

    /// @return 1 when the handle has access, else 0.
    int valid() const { return accessed ? 1 : 0; }
    /// @return true when the handle is attached.
    bool found() const { return attached; }
    /// Bytes of each buffer / number of buffers, as they were when access was gained.
    int getBufferLength() const { return NByte; }
    int getBufferCount() const { return NBuff; }
    /// @return address of buffer `i`; null without access or for a number that does not exist.
    char* buffer_addr(int i) const;
    /// @return number of the buffer that begins at `addr`, -1 when none does. With buffers of length 0 always 0.
    int buffer_id(char* addr) const;
    /// @return bytes of valid data noted for buffer `i`, else 0.
    int buffer_length(int i) const;

    /// Answers one question about the partition as decimal text or a word: "exists", "name", "pflags", "shmid",
    /// "version", "nbuf", "lbuf", "use_count", "buffer_tot", "maxcons", "semglobal", "fullbuf", "freebuf", "usedbuf",
    /// "last_ID". A detached handle answers "0" to everything, an unknown key gives "Undefined parameter".
    /// Locks: "fullbuf", "freebuf" and "usedbuf" take the gate once; after a signal in that wait they give it back
    /// without having had it, so do not ask them where signals arrive.
    std::string getStat(const std::string& key) const;
    /// Prints the control block and the table of buffers; a detached handle prints nothing.
    void dump(std::ostream& os) const;
    void dump() const;

  protected:
    C_shm_global* global() const { return static_cast<C_shm_global*>(pointer); }

    C_shm_error shm_error = NoError;
    void* pointer = nullptr;        ///< the attached segment
    C_shm_consbk* conptr = nullptr; ///< same address as `bufptr`, see C_shm_consbk
    C_shm_buf* bufptr = nullptr;    ///< the descriptors
    bool more_sems = false;         ///< the set has one lock per buffer
    bool attached = false;
    bool accessed = false;
    bool kpflg = false;    ///< keep: do not remove on release
    int32_t NByte = 0;     ///< buffer length at access
    int32_t NBuff = 0;     ///< buffer count at access
    int32_t ident = -1;    ///< segment id
    C_shm* link = nullptr; ///< next handle on the chain
    mutable int32_t mLockCount = 0;

    static C_shm* base;        ///< the chain of all handles of the process
    static std::mutex mx_cnts; ///< one constructor, Zeuss or registry change at a time
    static std::vector<shmid_entry*>& shmid_list;

  private:
    class on_chain;
    enum class mapping { stays, unless_shared, gone_for_all };
    template <class Search> void open(Search search);
    void push_on_chain();
    void unlink_from_chain();
    bool is_on(const char* name) const;
    bool is_on(int shmid) const;
    template <class Partition> bool share_mapping(Partition wanted);
    void detach(mapping what);
    void forget_mapping();
    bool find_at_key(int key, const char* name, bool& search_ends);
    bool initialise(const char* name, int nbuf, int lbuf) const;
    template <class Wanted> std::string count_queued(const C_shm_BufferQ& queue, Wanted wanted) const;
};

#endif
