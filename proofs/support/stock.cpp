#include "stock.h"

#include <stdexcept>

#include <sys/sem.h>

#include "C_shm_buffer.h"
#include "ipc_namespace.h"

namespace proof {
namespace {

/// A partition as it lies there, the queue walked without the library's help.
class open_partition : public C_shm_buffer {
  public:
    explicit open_partition(const std::string& name) : C_shm_buffer(name.c_str())
    {
        if (!*this) throw std::runtime_error("no partition " + name);
    }
    int countable() const { return semctl(global()->gbl_semid, gbl_empty, GETVAL); }
    std::vector<bool> queued() const
    {
        std::vector<bool> reached(static_cast<size_t>(NBuff), false);
        for (int i = global()->free.head; i >= 0 && i < NBuff && !reached[static_cast<size_t>(i)];) {
            reached[static_cast<size_t>(i)] = true;
            i = bufptr[i].link;
        }
        return reached;
    }
    buffer_out out(int i) const { return {i, bufptr[i].owner_pid, bufptr[i].status}; }
};

} // namespace

bool stock::operator==(const stock& other) const
{
    return partition == other.partition && countable == other.countable && out.size() == other.out.size();
}

stock stock_of(const std::string& partition, bool slots)
{
    const open_partition seen(partition);
    const int first = slots ? 1 : 0;
    stock made{partition, seen.getBufferCount() - first, seen.countable(), {}};
    const std::vector<bool> queued = seen.queued();
    for (int i = first; i < seen.getBufferCount(); ++i) {
        if (!queued[static_cast<size_t>(i)]) made.out.push_back(seen.out(i));
    }
    return made;
}

int left_behind() { return zrk4::test::segments_in_namespace() + zrk4::test::semaphore_sets_in_namespace(); }

} // namespace proof
