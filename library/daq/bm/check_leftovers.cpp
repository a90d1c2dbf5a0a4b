// What belongs to nobody: use counts without users, segments and semaphore sets that no partition became, or left.
#include <set>

#include "check_run.h"
#include "geometry.h"
#include "process_life.h"

namespace zrk4::impl {

// Exact under the gate: who has access counts himself with it in hand, and has the segment attached before and after.
void check_use_count(check_run& run, const raw_partition& part)
{
    if (part.control().gbl_count == 0) return;
    int count = 0;
    {
        const raw_lock gate(part, gbl_gate, run.request.patience);
        if (!gate || part.segment().others() > 0) return;
        count = part.control().gbl_count;
        if (run.request.repair) part.control().gbl_count = 0;
    }
    if (count == 0) return;
    run.found(7, part.name(), -1, 0, worded("the use count is %d, and nobody has the partition attached", count),
              run.request.repair);
}

namespace {

struct leftover {
    enum class kind { half_made, without_set, orphan_set } what;
    int id;
    int64_t pid;
    std::string partition;
    std::string text;
    int semid = 0; ///< of a half-made segment

    bool operator==(const leftover& other) const { return what == other.what && id == other.id; }
};

/// Whether the segment can be a partition on its way: only what its maker writes before the name stands in it.
bool may_become_partition(const C_shm_global& g, size_t size)
{
    const auto room = static_cast<int64_t>(size) - static_cast<int64_t>(sizeof(C_shm_global));
    const int64_t each = int64_t{sizeof(C_shm_buf)} + g.lbuf;
    const bool begun = g.version == 0 || (g.version == SHM_LAYOUT_VERSION && g.name[0] == '\0');
    const bool lengths = g.lbuf >= 0 && g.nbuf >= 0 && (g.lbuf == 0 || room % each == 0) &&
                         (g.nbuf == 0 || int64_t{g.nbuf} * each == room);
    return begun && g.gbl_count == 0 && lengths && (room == 0 || room >= int64_t{sizeof(C_shm_buf)});
}

/// A private set as a partition's maker leaves it at any moment.
bool may_be_partitions_set(const semid_ds& info, int semid)
{
    if (info.sem_perm.__key != IPC_PRIVATE || info.sem_nsems < gbl_nsems) return false;
    std::vector<unsigned short> values(info.sem_nsems);
    semun argument{};
    argument.array = values.data();
    if (semctl(semid, 0, GETALL, argument) != 0) return false;
    const bool untouched = std::all_of(values.begin(), values.end(), [](auto v) { return v == 0; });
    const bool locks = std::all_of(values.begin() + gbl_nsems, values.end(), [](auto v) { return v <= 1; });
    return untouched || (values[gbl_gate] <= 1 && locks);
}

pid_t last_user(int semid) { return static_cast<pid_t>(semctl(semid, gbl_gate, GETPID)); }

class leftover_watch : public watched {
  public:
    explicit leftover_watch(check_run& run) : run_(run) {}

    void look() override
    {
        std::vector<leftover> now;
        std::set<int> named;
        look_at_segments(now, named);
        look_at_sets(now, named);
        if (!first_) {
            std::erase_if(now,
                          [&](const leftover& l) { return std::find(left_.begin(), left_.end(), l) == left_.end(); });
        }
        left_ = std::move(now);
        first_ = false;
    }

    bool still(const event_listing& /*listing*/) override { return !left_.empty(); }

    void settle(const event_listing& /*listing*/) override
    {
        for (const leftover& l : left_) run_.found(9, l.partition, -1, l.pid, l.text, run_.request.repair && remove(l));
    }

  private:
    static void look_at_segments(std::vector<leftover>& now, std::set<int>& named)
    {
        for (const int id : segments_at_partition_keys()) {
            mapped_segment segment(id);
            shmid_ds info{};
            if (!segment || shmctl(id, IPC_STAT, &info) != 0) continue;
            const bool unused = segment.others() <= 0;
            const auto& g = *reinterpret_cast<const C_shm_global*>(segment.at());
            named.insert(g.gbl_semid);
            if (may_become_partition(g, segment.size())) {
                if (!unused || is_running(info.shm_cpid)) continue;
                const std::string text = worded("segment %d at key %d is a partition that was never finished", id,
                                                static_cast<int>(info.shm_perm.__key));
                now.push_back({leftover::kind::half_made, id, info.shm_cpid, "", text, g.gbl_semid});
                continue;
            }
            const raw_partition part(std::move(segment));
            if (part.condition() == raw_partition::state::sound && !part.has_semaphores() && unused)
                now.push_back({leftover::kind::without_set, id, info.shm_cpid, part.name(),
                               "the semaphore set of the partition is gone, and nobody has it attached", 0});
        }
    }

    static void look_at_sets(std::vector<leftover>& now, const std::set<int>& named)
    {
        semid_ds info{};
        semun argument{};
        argument.buf = &info;
        seminfo limits{};
        semun all{};
        all.buf = reinterpret_cast<semid_ds*>(&limits);
        const int last = semctl(0, 0, SEM_INFO, all);
        for (int index = 0; index <= last; ++index) {
            const int id = semctl(index, 0, SEM_STAT, argument);
            if (id < 0 || named.count(id) != 0 || !may_be_partitions_set(info, id)) continue;
            const pid_t user = last_user(id);
            if (is_running(user)) continue;
            const std::string text =
                worded("semaphore set %d has %lu members like a partition's, and no partition names it", id,
                       static_cast<unsigned long>(info.sem_nsems));
            now.push_back({leftover::kind::orphan_set, id, user, "", text, 0});
        }
    }

    bool remove(const leftover& l) const
    {
        if (l.what == leftover::kind::orphan_set)
            return run_.request.remove_orphan_sets && semctl(l.id, 0, IPC_RMID) == 0;
        shmid_ds info{};
        if (shmctl(l.id, IPC_STAT, &info) != 0 || info.shm_nattch > 0) return false;
        if (l.semid > 0 && l.what == leftover::kind::half_made) remove_set(l.semid);
        return shmctl(l.id, IPC_RMID, nullptr) == 0;
    }

    /// Of a half-made segment. Its number may be a stranger's by now: only one that nobody uses goes.
    static void remove_set(int semid)
    {
        semid_ds info{};
        semun argument{};
        argument.buf = &info;
        if (semctl(semid, 0, IPC_STAT, argument) == 0 && may_be_partitions_set(info, semid) &&
            !is_running(last_user(semid)))
            semctl(semid, 0, IPC_RMID);
    }

    check_run& run_;
    bool first_ = true;
    std::vector<leftover> left_;
};

} // namespace

std::unique_ptr<watched> watch_leftovers(check_run& run) { return std::make_unique<leftover_watch>(run); }

} // namespace zrk4::impl
