// The library as its users have it: master, writers and readers are processes of their own.
#include <atomic>
#include <cstring>
#include <list>
#include <string>
#include <vector>

#include "conductor.h"
#include "exchange.h"
#include "sides.h"

namespace bench {
namespace {

constexpr ZRK4_EVTYPE EVENT = ZRK4_EV_NORMAL;
constexpr ZRK4_EVTYPE OTHER_EVENT = ZRK4_EV_IMAGE;
constexpr size_t HEAD = sizeof(zrk4_serv_block_head_2024);

std::string name_of(int block) { return "BENCH" + std::to_string(block); }

std::list<std::string> names_of(int first, int count)
{
    std::list<std::string> names;
    for (int b = first; b < first + count; ++b) names.push_back(name_of(b));
    return names;
}

void be_master(const limits& room, const line_end& line)
{
    BM bm;
    configure(bm, room);
    require(!bm.set_master(true) && !bm.init(), "no slot partitions could be made");
    stand_by(line);
    bm.all_clean_up();
}

void join(BM& bm, const limits& room)
{
    configure(bm, room);
    require(!bm.init(), "no master");
}

void subscribe(BM& bm, ZRK4_EVTYPE evtype, BUF_MNG_CLI_TYPE type, std::list<std::string> blocks)
{
    zrk4_client every_event{};
    require(bm.subscribe(evtype, type, &every_event, &blocks) >= 1, "cannot subscribe");
}

class library_reader : public BM {
  public:
    explicit library_reader(event_log& log) : log_(log) {}
    ~library_reader() override { all_clean_up(); } // ends the reader thread before what it uses

    /// Runs in the reader thread.
    void event_handler(void* head, zrk4_client_sblock_data* first) override
    {
        const int64_t called = now_ns();
        const int filled = static_cast<const zrk4_event_slot_head_2024*>(head)->sbfilled;
        payloads_.clear();
        for (int i = 0; i < filled; ++i) {
            const char* block = get_buffer_address(first[i].bnum, first[i].shmid, true);
            if (block != nullptr) payloads_.push_back(block + HEAD);
        }
        if (payloads_.empty() || !log_.note(payloads_, called)) return;
        complete_ = true;
        complete_.notify_all();
    }
    void wait_for_last() const { complete_.wait(false); }

  private:
    event_log& log_;
    std::vector<const char*> payloads_;
    std::atomic<bool> complete_{false};
};

class library_writer {
  public:
    library_writer(const plan& p, const limits& room, int index) : bytes_(static_cast<int>(HEAD + p.payload))
    {
        join(bm_, room);
        const std::string data = "BENCH_DATA" + std::to_string(index);
        partition_ = bm_.add(data.c_str(), p.on_the_way * p.blocks_each, bytes_, /*sems=*/false);
        require(partition_ >= 1, "no data partition could be made");
        subscribe(bm_, EVENT, CLI_T_WRITER, names_of(index * p.blocks_each, p.blocks_each));
        data_ = bm_.find_by_id(partition_);
    }

    char* take(int64_t number, int index)
    {
        char* block = bm_.get_buffer_from_pool(/*flags=*/0, bytes_, &partition_, &buffer_);
        require(block != nullptr, "no buffer");
        const zrk4_serv_block_head_2024 head = head_of(name_of(index).c_str(), number, bytes_);
        std::memcpy(block, &head, sizeof head);
        return block + HEAD;
    }
    void hand_over(int64_t /*number*/, int /*block*/)
    {
        require(!bm_.ev_update(EVENT, partition_, buffer_), "a block was refused");
    }
    // The last but one step of the way back: only the event's slot follows.
    bool is_over(int64_t /*number*/) const { return data_->get_bufptr()[buffer_].queued(); }

  private:
    BM bm_;
    int bytes_;
    int partition_ = -1;
    int buffer_ = -1;
    C_shm_buffer* data_ = nullptr;
};

// Of one process: every slot is a client like any other.
void be_further_clients(const limits& room, const crowd& around, const line_end& line)
{
    BM bm;
    join(bm, room);
    for (int i = 0; i < around.writers; ++i) subscribe(bm, EVENT, CLI_T_WRITER, {});
    for (int i = 0; i < around.readers; ++i) subscribe(bm, EVENT, CLI_T_READER, {});
    for (int i = 0; i < around.others; ++i) subscribe(bm, OTHER_EVENT, CLI_T_WRITER, {});
    stand_by(line);
    bm.all_clean_up();
}

// So that the datagrams for one event find room in the socket of each.
std::vector<crowd> in_processes(crowd left)
{
    constexpr int MOST = 100;
    std::vector<crowd> each;
    while (left.writers + left.readers + left.others > 0) {
        crowd some;
        some.writers = left.writers;
        some.others = left.others;
        some.readers = left.readers < MOST ? left.readers : MOST;
        left.writers = left.others = 0;
        left.readers -= some.readers;
        each.push_back(some);
    }
    return each;
}

} // namespace

reading measure_library(const plan& p, const limits& room, const crowd& around)
{
    cast roles;
    roles.helpers.emplace_back([&](const line_end& line) { be_master(room, line); });
    for (const crowd& some : in_processes(around))
        roles.helpers.emplace_back([&room, some](const line_end& line) { be_further_clients(room, some, line); });
    roles.reader = [&](int /*index*/, event_log& log, const auto& ready) {
        library_reader bm(log);
        join(bm, room);
        subscribe(bm, EVENT, CLI_T_READER, names_of(p.blocks() - around.names, around.names));
        ready();
        bm.wait_for_last();
    };
    roles.writer = [&](int index, const auto& ready, const auto& done) {
        library_writer writer(p, room, index);
        ready();
        done(write_events(writer, p, index));
    };
    return perform(p, roles);
}

} // namespace bench
