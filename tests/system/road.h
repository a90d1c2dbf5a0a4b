/// @file
/// Events between real processes: what a writer puts into a block, and how a reader knows that it is the right one.
#ifndef ZRK4_TEST_ROAD_H
#define ZRK4_TEST_ROAD_H

#include <cstring>
#include <list>
#include <numeric>
#include <string>

#include "../unit/slot_bytes.h"
#include "BM.h"
#include "captured_output.h"
#include "latch.h"
#include "partition_ids.h"

namespace zrk4::test {

inline constexpr ZRK4_EVTYPE ROAD_TYPE = ZRK4_EV_NORMAL;
inline constexpr int ROAD_LENGTH = 1501; ///< blocks begin at every alignment

/// What all processes of a host agree on.
struct road {
    generation form = generation::of_2010;
    int smode = BM_SYNCH_TIME;
    int writers = 1;
    int blocks = 1; ///< of each writer

    static std::string block_name(int writer, int block)
    {
        return "W" + std::to_string(writer) + "_B" + std::to_string(block);
    }
    static std::string data_name(int writer) { return "T_DATA_" + std::to_string(writer); }
    std::list<std::string> names_of(int writer) const
    {
        std::list<std::string> names;
        for (int b = 0; b < blocks; ++b) names.push_back(block_name(writer, b));
        return names;
    }
    /// Where ids tell the events, the writers' clocks may be seconds apart.
    time_stamp key_of(int event, int writer) const
    {
        const auto second = static_cast<uint32_t>(1000 + event);
        return smode == BM_SYNCH_TIME ? time_stamp{second, static_cast<uint32_t>(100 + writer)} : time_stamp{second, 0};
    }
    /// A whole block: its head and a body that no other block has.
    std::string bytes_of(int event, int writer, int block) const
    {
        const std::string head = head_bytes({.server = block_name(writer, block),
                                             .time = key_of(event, writer),
                                             .mpulse = event + 1,
                                             .ltotal = ROAD_LENGTH},
                                            form);
        std::string body(ROAD_LENGTH - head.size(), '\0');
        std::iota(body.begin(), body.end(), static_cast<char>(31 * event + 7 * writer + block));
        return head + body;
    }
    /// Before a master's monitor starts: it reads the form of the records then.
    void configure(BM& bm) const
    {
        bm.set_nclients(8);
        bm.set_nblocks(16);
        bm.set_rate(2);
        bm.set_smode(smode);
        bm.set_evid_64bit_mode(form == generation::of_2024);
    }
    /// init() of one that is configured.
    static void join(BM& bm)
    {
        if (bm.init()) throw std::runtime_error("init failed");
    }
    /// Joins as a writer of all its blocks. @return id of its data partition; throws where it is not taken in.
    int join_as_writer(BM& bm, int writer) const
    {
        configure(bm);
        join(bm);
        bm.add(data_name(writer).c_str());
        if (subscribe(bm, CLI_T_WRITER, names_of(writer)) <= 0) throw std::runtime_error("not subscribed");
        return std::stoi(bm.find_by_name(data_name(writer).c_str())->getStat("shmid"));
    }
    /// The same when the partitions are made; returns when everybody else is there, too.
    int meet_as_writer(BM& bm, int writer, latch& made, latch& ready) const
    {
        made.wait();
        const int id = join_as_writer(bm, writer);
        ready.open();
        ready.wait();
        return id;
    }
    int subscribe(BM& bm, BUF_MNG_CLI_TYPE cltype, std::list<std::string> names) const
    {
        zrk4_client all{};
        return bm.subscribe(ROAD_TYPE, cltype, &all, &names);
    }
    /// Puts one block on its way; waits for a free buffer. @return what ev_update answered.
    bool send(BM& bm, int data_id, int event, int writer, int block) const
    {
        int id = data_id;
        int bnum = -1;
        char* at = bm.get_buffer_from_pool(/*flags=*/0, ROAD_LENGTH, &id, &bnum);
        if (at == nullptr) throw std::runtime_error("no buffer");
        const std::string bytes = bytes_of(event, writer, block);
        std::memcpy(at, bytes.data(), bytes.size());
        return bm.ev_update(ROAD_TYPE, id, bnum);
    }
    /// All blocks of that writer. @return whether one was refused.
    bool send_all(BM& bm, int data_id, int event, int writer) const
    {
        for (int b = 0; b < blocks; ++b) {
            if (send(bm, data_id, event, writer, b)) return true;
        }
        return false;
    }
};

/// The number of the event that a handler is called for.
inline int event_number(const void* head, generation form)
{
    const auto* at = static_cast<const char*>(head) + layout_of(form).time;
    return static_cast<int>(load<time_stamp>(at).timeup) - 1000;
}
inline int entries_in(const void* head, generation form)
{
    return load<int32_t>(static_cast<const char*>(head) + layout_of(form).sbfilled);
}

/// What a partition has, seen from outside: free buffers as the queue, and as the semaphore, counts them.
struct balance {
    int buffers, queued, counted;
    bool all_back(int kept = 0) const { return queued == buffers - kept && counted == buffers - kept; }
};
inline balance balance_of(const C_shm& part)
{
    return {part.getBufferCount(), std::stoi(part.getStat("freebuf")), semaphore_value(semid_of(part), 1)};
}
inline std::ostream& operator<<(std::ostream& os, const balance& b)
{
    return os << b.queued << " queued, " << b.counted << " counted, of " << b.buffers;
}

} // namespace zrk4::test

#endif
