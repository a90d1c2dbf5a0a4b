// The library as its users have it: master, writer and reader are processes of their own.
#include <atomic>
#include <cstring>
#include <list>
#include <string>

#include "exchange.h"
#include "process.h"
#include "sides.h"

namespace bench {
namespace {

constexpr ZRK4_EVTYPE EVENT = ZRK4_EV_NORMAL;
constexpr size_t HEAD = sizeof(zrk4_serv_block_head_2024);

void be_master(const limits& room, const line_end& line)
{
    BM bm;
    configure(bm, room);
    require(!bm.set_master(true) && !bm.init(), "no slot partitions could be made");
    line.nod();
    line.await_nod();
    bm.all_clean_up();
}

class library_reader : public BM {
  public:
    explicit library_reader(const plan& p) : log_(p) {}
    ~library_reader() override { all_clean_up(); } // ends the reader thread before what it uses

    /// Runs in the reader thread.
    void event_handler(void* /*head*/, zrk4_client_sblock_data* first) override
    {
        const int64_t called = now_ns();
        const char* block = get_buffer_address(first->bnum, first->shmid, true);
        if (block == nullptr || !log_.note(block + HEAD, called)) return;
        complete_ = true;
        complete_.notify_all();
    }
    void wait_for_last() const { complete_.wait(false); }
    const event_log& log() const { return log_; }

  private:
    event_log log_;
    std::atomic<bool> complete_{false};
};

void subscribe_as_reader(BM& bm, const limits& room)
{
    configure(bm, room);
    zrk4_client every_event{};
    require(!bm.init(), "no master");
    require(bm.subscribe(EVENT, CLI_T_READER, &every_event, nullptr) >= 1, "cannot subscribe");
}

void be_further_reader(const limits& room, const line_end& line)
{
    BM bm;
    subscribe_as_reader(bm, room);
    line.nod();
    line.await_nod();
}

void be_reader(const plan& p, const limits& room, const line_end& line)
{
    library_reader bm(p);
    subscribe_as_reader(bm, room);
    line.nod();
    bm.wait_for_last();
    line.say(bm.log().result(line.hear<int64_t>()));
    line.await_nod();
}

class library_writer {
  public:
    library_writer(const plan& p, const limits& room) : bytes_(static_cast<int>(HEAD + p.payload))
    {
        configure(bm_, room);
        require(!bm_.init(), "no master");
        partition_ = bm_.add("BENCH_DATA", room.buffers, bytes_, /*sems=*/false);
        require(partition_ >= 1, "no data partition could be made");
        zrk4_client parameters{};
        std::list<std::string> blocks{SERVER};
        require(bm_.subscribe(EVENT, CLI_T_WRITER, &parameters, &blocks) >= 1, "cannot subscribe");
        data_ = bm_.find_by_id(partition_);
    }

    char* take(int64_t number)
    {
        char* block = bm_.get_buffer_from_pool(/*flags=*/0, bytes_, &partition_, &buffer_);
        require(block != nullptr, "no buffer");
        const zrk4_serv_block_head_2024 head = head_of(SERVER, number, bytes_);
        std::memcpy(block, &head, sizeof head);
        return block + HEAD;
    }
    void hand_over(int64_t /*number*/) { require(!bm_.ev_update(EVENT, partition_, buffer_), "a block was refused"); }
    // The last but one step of the way back: only the event's slot follows.
    bool is_over(int64_t /*number*/) const { return data_->get_bufptr()[buffer_].queued(); }

  private:
    static constexpr const char* SERVER = "BENCH";

    BM bm_;
    int bytes_;
    int partition_ = -1;
    int buffer_ = -1;
    C_shm_buffer* data_ = nullptr;
};

void be_writer(const plan& p, const limits& room, const line_end& line)
{
    library_writer writer(p, room);
    line.nod();
    line.await_nod();
    line.say(write_events(writer, p));
    line.await_nod();
}

} // namespace

reading measure_library(const plan& p, const limits& room, int further_readers)
{
    process master("master", p.writer_processor, [&](line_end& line) { be_master(room, line); });
    master.await_nod();
    process reader("reader", p.reader_processor, [&](line_end& line) { be_reader(p, room, line); });
    reader.await_nod();
    std::list<process> further;
    for (int i = 0; i < further_readers; ++i) {
        further.emplace_back("further reader", p.reader_processor,
                             [&](line_end& line) { be_further_reader(room, line); });
        further.back().await_nod();
    }
    process writer("writer", p.writer_processor, [&](line_end& line) { be_writer(p, room, line); });
    writer.await_nod();
    writer.nod();
    reader.say(writer.hear<int64_t>());
    const auto result = reader.hear<reading>();
    writer.end();
    for (process& other : further) other.end();
    reader.end();
    master.end();
    return result;
}

} // namespace bench
