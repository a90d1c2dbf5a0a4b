/// @file
/// The partitions that one process uses.
#ifndef ZRK4_C_SHM_MPOOL_H
#define ZRK4_C_SHM_MPOOL_H

#include <iosfwd>
#include <map>
#include <shared_mutex>
#include <string>
#include <vector>

#include "C_shm_buffer.h"

using buf_map_names = std::map<std::string, C_shm_buffer*>;
using buf_map_ids = std::map<int, C_shm_buffer*>;
using buf_map_sz = std::multimap<int, C_shm_buffer*>;

/// A set of partitions, found by name, by segment id or by buffer length. The pool owns the partition objects.
///
/// Results: the `bool` ones are TRUE ON FAILURE, except `exists`; pointers are null and numbers -1 on failure.
///
/// Threads: taking, addressing and returning buffers, and attaching by id, from any number of threads at once. `remove`,
/// `unmap_buffer` and the destructor only when nobody else uses the partition concerned.
class BM_API C_shm_mpool {
  public:
    C_shm_mpool() = default;
    C_shm_mpool(const C_shm_mpool&) = delete;
    C_shm_mpool& operator=(const C_shm_mpool&) = delete;
    // Not virtual: the first entry of BM's table of virtual operations belongs to event_handler.
    ~C_shm_mpool();

    C_shm_buffer* find_by_name(const char* name);
    C_shm_buffer* find_by_id(int shmid);
    /// @return whether the partition is in the pool and accessed; ALSO TRUE FOR ANYTHING WHEN THE POOL IS EMPTY.
    bool exists(int shmid);
    bool exists(const char* name);

    /// Attaches an existing partition; one that is in the pool already stays.
    /// @return false on success; TRUE MEANS FAILURE.
    bool add(const char* name);
    bool add(int shmid);
    /// Finds or makes a partition, see C_shm_buffer. A name that is in the pool gets a second object, which takes over
    /// the name and the id; the old one then only serves searches by length.
    /// @return the segment id (0 is one), -1 on failure.
    int add(const char* name, int nbuf, int lbuf, bool sems);
    /// The same without locks per buffer.
    int add(const char* name, int nbuf, int lbuf) { return add(name, nbuf, lbuf, false); }
    void map_buffer(C_shm_buffer* p);
    /// Takes a partition out of the indexes; the object stays.
    void unmap_buffer(C_shm_buffer* p);
    /// Takes a partition out of the pool and releases it. @return false on success; TRUE MEANS FAILURE: not there.
    bool remove(const char* name);
    bool remove(int shmid);

    /// Takes a buffer of at least `size` bytes: from partition `*shmid` when that is above 0, else from the smallest
    /// fitting one that can give it.
    ///
    /// The slot partitions of a BM are members of its pool as well: a writer passes its data partition's id, or it may
    /// be handed an event slot as a data buffer.
    /// @param flags  BM_NO_WAIT (4): skip a partition without a free buffer; otherwise the first fitting one is waited for
    /// @param shmid  in: the partition, null or not above 0 = any; out: for "any" the partition that gave the buffer
    /// @param bnum   out, may be null: the buffer's number
    /// @return the buffer's address, null on failure. @throws what C_shm_buffer::get_buffer throws.
    char* get_buffer_from_pool(int flags, int size, int* shmid, int* bnum);
    /// @param shmid  out, may be null: the partition. @return number of the buffer that begins at `addr`, or -1.
    int get_buffer_id_from_pool(char* addr, int* shmid);
    /// @param attach  attach partition `shmid` when it is not in the pool; not for a pool that is empty, and only
    ///                segments that are partitions
    char* get_buffer_address(int bnum, int shmid, bool attach);
    char* get_buffer_address(int bnum, int shmid) { return get_buffer_address(bnum, shmid, false); }

    /// @return false when one partition took the buffer back; TRUE MEANS FAILURE.
    bool return_buffer_in_pool(char* addr);
    /// @return false whenever `addr` is a buffer of partition `shmid`, whatever became of it; TRUE MEANS FAILURE.
    bool return_buffer_in_pool(char* addr, int shmid);
    /// @return false on success; TRUE MEANS FAILURE: unknown, free already, or segment id 0.
    bool return_buffer_in_pool(int bnum, int shmid);

    /// Sets the mode of a partition, see C_shm::bufmode.
    void bufmode(int mode, char* name);
    void bufmode(int mode, int shmid);
    /// @return number of buffers of all partitions together.
    int nbuf();
    /// Prints every partition, see C_shm::dump.
    void pooldump(std::ostream& os);
    void pooldump();

  protected:
    buf_map_names buffers_names;
    buf_map_ids buffers_ids;
    buf_map_sz buffers_sz;
    /// Guards the indexes. Never held while a partition object is made or a buffer is waited for.
    mutable std::shared_mutex mx_indexes;

  private:
    struct labels {
        std::string name;
        int id;
        int length;
    };
    static labels labels_of(const C_shm_buffer& p);
    bool pool_empty() const;
    template <class Index, class Key> C_shm_buffer* find_in(const Index& index, const Key& key) const;
    template <class Index, class Key> bool attach_existing(const Index& index, const Key& key);
    bool remove_found(C_shm_buffer* p);
    void insert(C_shm_buffer* p, const labels& seen);
    std::vector<C_shm_buffer*> by_id() const;
    std::vector<C_shm_buffer*> at_least(int size) const;
};

#endif
