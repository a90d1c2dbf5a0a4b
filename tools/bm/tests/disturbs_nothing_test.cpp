// Whatever only looks leaves every byte and every semaphore as it was.
#include <fstream>
#include <map>
#include <sstream>

#include <sys/sem.h>
#include <sys/shm.h>

#include "C_shm_kill.h"
#include "a_host.h"

namespace bm::test {
namespace {

const std::vector<std::vector<std::string>> LOOKS = {{"ls"},
                                                     {"ls", "--json"},
                                                     {"show", "T_DATA"},
                                                     {"show", "ZRK4_CLIENT_SLOTS"},
                                                     {"clients"},
                                                     {"events"},
                                                     {"show", "ZRK4_EVENT_SLOTS"},
                                                     {"clients", "-i", "0.1"},
                                                     {"why", "1"},
                                                     {"why", "1000:500"},
                                                     {"stat", "-n", "2", "-i", "0.1"},
                                                     {"top", "-n", "1", "-i", "0.1"},
                                                     {"events", "--incomplete"}};

std::string named(const std::vector<std::string>& arguments)
{
    std::string all;
    for (const std::string& each : arguments) all += each + " ";
    return all;
}

/// Everything of the namespace that a look could change.
struct state {
    std::map<int, std::string> segments; ///< their bytes
    std::map<int, long> attached;
    std::map<int, std::vector<int>> semaphores; ///< value and last process of each
    std::map<int, time_t> last_operation;

    static state now(const std::vector<int>& segments, const std::vector<int>& sets)
    {
        state seen;
        for (const int id : segments) {
            const live_segment bytes(id);
            seen.segments[id] = bytes.bytes(0, bytes.size());
        }
        for (const int id : segments) seen.attached[id] = attachments(id);
        for (const int id : sets) {
            for (int i = 0; i < semaphores_in_set(id); ++i) {
                seen.semaphores[id].push_back(semctl(id, i, GETVAL));
                seen.semaphores[id].push_back(semctl(id, i, GETPID));
            }
            semid_ds info{};
            semctl(id, 0, IPC_STAT, &info);
            seen.last_operation[id] = info.sem_otime;
        }
        return seen;
    }
};

class DisturbsNothing : public AHost {
  protected:
    DisturbsNothing()
    {
        const int w = writer_slot({"A", "B"});
        const int r = reader_slot({"A"});
        const int n = event(2, 30);
        slot(n).add_client(w, WAIT);
        slot(n).add_client(r, NTF);
        slot(n).add_entry("A", data_id, put({.server = "A"}));
    }
};
IN_BOTH_GENERATIONS(DisturbsNothing);

TEST_P(DisturbsNothing, BytesSemaphoresAndUsersStayAsTheyWere)
{
    const std::vector<int> segments{shmid_of(clients_part), shmid_of(events_part), data_id};
    const std::vector<int> sets{clients_semid, events_semid, semid_of(*bm.find_by_id(data_id))};
    const state before = state::now(segments, sets);
    for (const auto& arguments : LOOKS) {
        const outcome seen = run_bm(arguments);
        EXPECT_LE(seen.status, 1) << named(arguments) << seen.err;
        const state after = state::now(segments, sets);
        EXPECT_TRUE(before.segments == after.segments) << named(arguments);
        EXPECT_EQ(before.attached, after.attached) << named(arguments);
        EXPECT_EQ(before.semaphores, after.semaphores) << named(arguments);
        EXPECT_EQ(before.last_operation, after.last_operation) << named(arguments);
    }
}

// A handle that finds the use count 0 when it goes would remove the partition.
TEST_P(DisturbsNothing, APartitionThatNobodyUsesSurvivesALook)
{
    int id = -1;
    {
        C_shm_buffer kept("T_KEPT", 3, 100, false);
        kept.keep(true);
        id = shmid_of(kept);
    }
    ASSERT_EQ(live_segment(id).int32(AT_COUNT), 0);
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"ls"}, {"show", "T_KEPT"}, {"stat", "-n", "1", "-i", "0.1"}})
        EXPECT_EQ(run_bm(arguments).status, 0) << named(arguments);
    EXPECT_TRUE(segment_exists(id));
    const C_shm_kill end("T_KEPT");
}

// What the kernel is asked for, as strace sees it.
TEST_P(DisturbsNothing, NoSemaphoreIsTakenAndEveryMappingIsReadOnly)
{
    for (const auto& arguments : LOOKS) {
        const std::string trace = testing::TempDir() + "bm_trace." + std::to_string(getpid());
        std::vector<std::string> all{
            "-f", "-o", trace, "-e", "trace=semop,semtimedop,semctl,semget,shmat,shmctl,shmget", bm_command()};
        all.insert(all.end(), arguments.begin(), arguments.end());
        const outcome seen = run_program("strace", all);
        EXPECT_LE(seen.status, 1) << seen.err;
        std::ifstream file(trace);
        int mappings = 0;
        for (std::string line; std::getline(file, line);) {
            EXPECT_EQ(line.find("semop("), std::string::npos) << line;
            EXPECT_EQ(line.find("semtimedop("), std::string::npos) << line;
            EXPECT_EQ(line.find("IPC_RMID"), std::string::npos) << line;
            EXPECT_EQ(line.find("IPC_SET"), std::string::npos) << line;
            EXPECT_EQ(line.find("SETVAL"), std::string::npos) << line;
            if (line.find("shmat(") != std::string::npos) {
                ++mappings;
                EXPECT_NE(line.find("SHM_RDONLY"), std::string::npos) << line;
            }
            // The values of a set are not asked for either: the kernel locks all its semaphores to answer.
            EXPECT_EQ(line.find("GETVAL"), std::string::npos) << line;
            EXPECT_EQ(line.find("GETALL"), std::string::npos) << line;
        }
        EXPECT_GT(mappings, 0) << "nothing was traced: " << named(arguments);
        std::remove(trace.c_str());
    }
}

} // namespace
} // namespace bm::test
