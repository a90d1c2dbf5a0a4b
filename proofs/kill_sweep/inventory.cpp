#include "inventory.h"

#include <cstring>
#include <map>
#include <optional>

#include <sys/sem.h>
#include <sys/shm.h>

#include "BM_int.h"
#include "C_shm_int.h"

namespace sweep {
namespace {

constexpr const char* CLIENTS = "ZRK4_CLIENT_SLOTS";
constexpr const char* EVENTS = "ZRK4_EVENT_SLOTS";

/// Ids of all segments or sets of the namespace.
std::vector<int> segment_ids()
{
    shm_info info{};
    const int highest = shmctl(0, SHM_INFO, reinterpret_cast<shmid_ds*>(&info));
    std::vector<int> ids;
    for (int i = 0; i <= highest; ++i) {
        shmid_ds one{};
        const int id = shmctl(i, SHM_STAT, &one);
        if (id >= 0) ids.push_back(id);
    }
    return ids;
}

std::vector<int> set_ids()
{
    seminfo info{};
    const int highest = semctl(0, 0, SEM_INFO, &info);
    std::vector<int> ids;
    for (int i = 0; i <= highest; ++i) {
        semid_ds one{};
        const int id = semctl(i, 0, SEM_STAT, &one);
        if (id >= 0) ids.push_back(id);
    }
    return ids;
}

/// A segment, mapped for reading.
class segment {
  public:
    explicit segment(int id) : at_(static_cast<const char*>(shmat(id, nullptr, SHM_RDONLY)))
    {
        shmid_ds about{};
        if (at_ != NOT_MAPPED && shmctl(id, IPC_STAT, &about) == 0) size_ = about.shm_segsz;
    }
    ~segment()
    {
        if (at_ != NOT_MAPPED) shmdt(at_);
    }
    segment(const segment&) = delete;
    segment& operator=(const segment&) = delete;

    bool is_partition() const
    {
        return size_ >= sizeof(C_shm_global) && global().version == SHM_LAYOUT_VERSION && global().name[0] != '\0';
    }
    const C_shm_global& global() const { return *reinterpret_cast<const C_shm_global*>(at_); }
    const C_shm_buf& buf(int i) const
    {
        return *reinterpret_cast<const C_shm_buf*>(at_ + sizeof(C_shm_global) +
                                                   sizeof(C_shm_buf) * static_cast<size_t>(i));
    }
    const char* data(int i) const { return at_ + buf(i).boff; }

  private:
    static inline const char* const NOT_MAPPED = reinterpret_cast<const char*>(-1);
    const char* at_;
    size_t size_ = 0;
};

class counting {
  public:
    counting(const segment& s, std::vector<std::string>& missing)
        : s_(s), g_(s.global()), name_(g_.name), missing_(missing)
    {
    }

    /// @return numbers of the buffers that are in the free queue.
    std::set<int> queue()
    {
        std::set<int> queued;
        int last = -1;
        for (int i = g_.free.head; i >= 0; i = s_.buf(i).link) {
            if (i >= g_.nbuf || !queued.insert(i).second) {
                say("free queue has a cycle or a wild link at " + std::to_string(i));
                break;
            }
            last = i;
        }
        if (!queued.empty() && g_.free.tail != last)
            say("free queue ends at " + std::to_string(last) + ", its tail is " + std::to_string(g_.free.tail));
        for (int i = 0; i < g_.nbuf; ++i) {
            if (s_.buf(i).queued() != (queued.count(i) != 0))
                say("buffer " + std::to_string(i) +
                    (s_.buf(i).queued() ? " is flagged queued but in no queue" : " is in the queue but not flagged"));
        }
        return queued;
    }
    void locks_and_count(size_t queued)
    {
        expect_value(gbl_gate, 1, "gate");
        expect_value(gbl_empty, static_cast<int>(queued), "count of free buffers");
        for (int i = 0; g_.sems != 0 && i < g_.nbuf; ++i) expect_value(gbl_nsems + i, 1, "lock " + std::to_string(i));
    }
    void all_queued(const std::set<int>& queued, int from)
    {
        for (int i = from; i < g_.nbuf; ++i) {
            if (queued.count(i) == 0)
                say("buffer " + std::to_string(i) + " is out, owner " + std::to_string(s_.buf(i).owner_pid));
        }
        if (from > 0 && queued.count(0) != 0) say("buffer 0 is in the free queue");
    }
    template <class Entry> void event_table()
    {
        const auto* first = reinterpret_cast<const Entry*>(s_.data(0));
        for (int i = 1; i < g_.nbuf; ++i) {
            if (first[i - 1].status != EVT_C_FREE) say("control entry of event slot " + std::to_string(i) + " is used");
        }
    }
    void client_slots(const std::set<int>& queued, const std::set<pid_t>& living)
    {
        zrk4_client_ctrl_block recount{};
        std::set<pid_t> holders;
        for (int i = 1; i < g_.nbuf; ++i) {
            if (queued.count(i) == 0) client_slot(i, living, holders, recount);
        }
        for (const pid_t pid : living) {
            if (holders.count(pid) == 0) say("process " + std::to_string(pid) + " has lost its client slot");
        }
        compare_counts(recount);
    }

  private:
    void client_slot(int i, const std::set<pid_t>& living, std::set<pid_t>& holders, zrk4_client_ctrl_block& recount)
    {
        const auto& head = *reinterpret_cast<const zrk4_client_slot_head*>(s_.data(i));
        const bool known = head.cltype == CLI_T_READER || head.cltype == CLI_T_WRITER;
        const pid_t pid = head.pid;
        if (!known || living.count(pid) == 0) {
            say("client slot " + std::to_string(i) + " is out, owner " + std::to_string(s_.buf(i).owner_pid) +
                ", pid in its head " + std::to_string(pid));
            return;
        }
        holders.insert(pid);
        recount.clitotal += 1;
        const bool reads = head.cltype == CLI_T_READER;
        (reads ? recount.clireader : recount.cliwriter) += 1;
        (reads ? recount.evtyper : recount.evtypew)[head.evtype & 31] += 1;
    }
    void compare_counts(const zrk4_client_ctrl_block& recount)
    {
        const auto& counts = *reinterpret_cast<const zrk4_client_ctrl_block*>(s_.data(0));
        const bool same = counts.clitotal == recount.clitotal && counts.clireader == recount.clireader &&
                          counts.cliwriter == recount.cliwriter &&
                          std::memcmp(counts.evtyper, recount.evtyper, sizeof counts.evtyper) == 0 &&
                          std::memcmp(counts.evtypew, recount.evtypew, sizeof counts.evtypew) == 0;
        if (!same) say("client counts are " + text_of(counts) + ", a recount gives " + text_of(recount));
    }
    static std::string text_of(const zrk4_client_ctrl_block& c)
    {
        return std::to_string(c.clitotal) + '/' + std::to_string(c.clireader) + '/' + std::to_string(c.cliwriter);
    }
    void expect_value(int number, int value, const std::string& what)
    {
        const int is = semctl(g_.gbl_semid, number, GETVAL);
        if (is != value) say(what + " is " + std::to_string(is) + " instead of " + std::to_string(value));
    }
    void say(const std::string& what) { missing_.push_back(name_ + ": " + what); }

    const segment& s_;
    const C_shm_global& g_;
    std::string name_;
    std::vector<std::string>& missing_;
};

void count_partition(const segment& s, const expected& e, std::vector<std::string>& missing)
{
    counting count(s, missing);
    const std::set<int> queued = count.queue();
    count.locks_and_count(queued.size());
    const std::string name = s.global().name;
    if (name == CLIENTS) {
        if (queued.count(0) != 0) missing.push_back(name + ": buffer 0 is in the free queue");
        count.client_slots(queued, e.clients);
    } else if (name == EVENTS) {
        count.all_queued(queued, 1);
        if (e.wide) {
            count.event_table<zrk4_event_ctrl_block_2024>();
        } else {
            count.event_table<zrk4_event_ctrl_block>();
        }
    } else {
        count.all_queued(queued, 0);
    }
}

} // namespace

std::vector<std::string> missing_from(const expected& e)
{
    std::vector<std::string> missing;
    std::map<std::string, int> seen;
    std::set<int> sets;
    for (const int id : segment_ids()) {
        const segment s(id);
        if (!s.is_partition()) {
            missing.push_back("segment " + std::to_string(id) + " is no partition");
            continue;
        }
        sets.insert(s.global().gbl_semid);
        if (++seen[s.global().name] > 1) missing.push_back(std::string(s.global().name) + ": is there twice");
        count_partition(s, e, missing);
    }
    std::set<std::string> wanted = e.partitions;
    wanted.insert({CLIENTS, EVENTS});
    for (const std::string& name : wanted) {
        if (seen.count(name) == 0) missing.push_back(name + ": is not there");
    }
    for (const int id : set_ids()) {
        if (sets.count(id) == 0) missing.push_back("semaphore set " + std::to_string(id) + " belongs to no partition");
    }
    return missing;
}

std::vector<std::string> leftovers()
{
    std::vector<std::string> left;
    for (const int id : segment_ids()) left.push_back("segment " + std::to_string(id) + " is left");
    for (const int id : set_ids()) left.push_back("semaphore set " + std::to_string(id) + " is left");
    return left;
}

} // namespace sweep
