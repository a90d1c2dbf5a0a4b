#include "actor.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <list>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "BM.h"
#include "blocks.h"

namespace sweep {

const char* const DATA_NAME = "SWEEP_DATA";
const char* const MADE_NAMES[2] = {"SWEEP_MADE_0", "SWEEP_MADE_1"};

long mark_number() { return SYS_getppid; }

namespace {

constexpr int SHOW_CYCLES = -4000;
constexpr int NO_BUFFER = -2;
constexpr int THROWN = -3;

class actor;
actor* the_actor = nullptr; // the handler is a plain function

class actor {
  public:
    actor(const setting& in, uint32_t first, int number, board& common)
        : in_(in), first_(first), number_(number), board_(common)
    {
        the_actor = this;
        configure(8, 4, 16);
    }

    int obey(const command& c)
    {
        switch (c.what) {
        case order::become_master:
            return become_master();
        case order::become_small_master:
            configure(2, 1, 4);
            return become_master();
        case order::join:
            return bm_.init() ? -1 : 0;
        case order::make_data:
            return bm_.add(DATA_NAME, DATA_BUFFERS, BLOCK_LENGTH, false);
        case order::attach_data:
            return bm_.add(DATA_NAME) ? -1 : 0;
        case order::subscribe_reader:
            return subscribe_reader(c.a);
        case order::crowd:
            return crowd();
        case order::subscribe_writer:
            writer_ = c.a;
            return subscribe(CLI_T_WRITER, names_of(c.a));
        case order::unsubscribe_reader:
            return bm_.unsubscribe(TYPE, CLI_T_READER);
        case order::unsubscribe_writer:
            return bm_.unsubscribe(TYPE, CLI_T_WRITER);
        case order::send:
            return send(c.a);
        case order::write_two:
            return std::min(send(c.a), send(c.a + 1));
        case order::make_two:
            return make_two();
        case order::use_two:
            return std::min(use_all(MADE_NAMES[0], MADE_BUFFERS), use_all(MADE_NAMES[1], MADE_BUFFERS));
        case order::use_data:
            return use_all(DATA_NAME, DATA_BUFFERS);
        case order::take_one:
            return take_one();
        case order::give_back:
            return bm_.return_buffer_in_pool(c.a, data_id()) ? -1 : 0;
        case order::fill:
            kept_ = take_one();
            if (kept_ >= 0) write_block(kept_block(), in_, first_, {c.a, writer_, 0});
            return kept_;
        case order::find:
            slot_ = bm_.find_ev_slot(TYPE, kept_block());
            return slot_;
        case order::enter:
            return bm_.ev_update(TYPE, data_id(), std::exchange(kept_, -1), slot_) ? -1 : 0;
        case order::free_slot:
            return bm_.free_ev_slot(slot_) ? -1 : 0;
        case order::return_foreign:
            return return_foreign();
        case order::put_back:
            return kept_ >= 0 && bm_.return_buffer_in_pool(std::exchange(kept_, -1), data_id()) ? -1 : 0;
        case order::leave:
            bm_.all_clean_up();
            return 0;
        default:
            return 0;
        }
    }

    // In the reader thread.
    void look(void* head, zrk4_client_sblock_data* first)
    {
        const int event = event_of(head);
        const int entries = entries_of(head);
        if (event < 0 || event >= EVENTS_MAX) {
            ++board_.wrong_blocks;
            return;
        }
        ++board_.calls[number_][event];
        std::vector<zrk4_client_sblock_data> blocks(first, first + entries);
        check(blocks, event);
        wait_where_held(event);
        check(blocks, event);
        if (board_.victim == number_ && event >= board_.early_from) give_early(blocks, event);
    }

  private:
    void configure(int clients, int blocks, int slots)
    {
        bm_.set_nclients(clients);
        bm_.set_nblocks(blocks);
        bm_.set_rate(1);
        bm_.set_ncl_slots(slots);
        bm_.set_nev_slots(slots);
        bm_.set_monitoring_period(PERIOD_US);
        bm_.set_smode(in_.by_id ? BM_SYNCH_EVID : BM_SYNCH_TIME);
        bm_.set_evid_64bit_mode(in_.wide);
    }
    int become_master() { return bm_.set_master(true) ? -1 : 0; }

    static std::list<std::string> names_of(int writer)
    {
        if (writer == 0) return {name_of_block(0, 0), name_of_block(0, 1)};
        return {name_of_block(writer, 0)};
    }
    int subscribe(BUF_MNG_CLI_TYPE type, std::list<std::string> names)
    {
        zrk4_client all{};
        return bm_.subscribe(TYPE, type, &all, &names);
    }
    int crowd()
    {
        zrk4_client all{};
        int taken = 0;
        while (bm_.subscribe(ZRK4_EV_EOR, CLI_T_WRITER, &all, nullptr) > 0) ++taken;
        return taken;
    }
    int subscribe_reader(int wanted)
    {
        bm_.set_ev_handler([](void* head, zrk4_client_sblock_data* first) { the_actor->look(head, first); });
        return subscribe(CLI_T_READER, wanted == 0 ? std::list<std::string>() : names_of(wanted - 1));
    }

    int data_id()
    {
        C_shm_buffer* data = bm_.find_by_name(DATA_NAME);
        return data == nullptr ? -1 : std::atoi(data->getStat("shmid").c_str());
    }

    int send(int event)
    {
        const int blocks = static_cast<int>(names_of(writer_).size());
        int worst = 0;
        for (int block = 0; block < blocks; ++block) worst = std::min(worst, send_block({event, writer_, block}));
        return worst;
    }
    int send_block(const stamp& s)
    {
        int id = data_id();
        int number = -1;
        char* at = bm_.get_buffer_from_pool(BM_NO_WAIT, BLOCK_LENGTH, &id, &number);
        if (at == nullptr) return NO_BUFFER;
        write_block(at, in_, first_, s);
        if (!holds_block(at, in_, first_, s)) ++board_.taken_twice;
        if (!bm_.ev_update(TYPE, id, number)) return 0;
        // Surplus in an event that its maker died over: the block is still ours. A duplicate's would be back already,
        // and then this is refused.
        bm_.return_buffer_in_pool(number, id);
        return -1;
    }

    int make_two()
    {
        const int with = bm_.add(MADE_NAMES[0], MADE_BUFFERS, BLOCK_LENGTH, true);
        const int without = bm_.add(MADE_NAMES[1], MADE_BUFFERS, BLOCK_LENGTH, false);
        return std::min(with, without);
    }
    int take_one()
    {
        int id = data_id();
        int number = -1;
        return bm_.get_buffer_from_pool(BM_NO_WAIT, BLOCK_LENGTH, &id, &number) == nullptr ? NO_BUFFER : number;
    }
    char* kept_block() { return bm_.get_buffer_address(kept_, data_id()); }
    int return_foreign()
    {
        const char* slot = bm_.find_by_name("ZRK4_EVENT_SLOTS")->buffer_addr(slot_);
        int32_t clients = 0;
        std::memcpy(&clients, slot + (in_.wide ? 72 : 56), sizeof clients);
        zrk4_client_sblock_data first{};
        const size_t head = in_.wide ? sizeof(zrk4_event_slot_head_2024) : sizeof(zrk4_event_slot_head);
        std::memcpy(&first, slot + head + sizeof(zrk4_client_block) * static_cast<size_t>(clients), sizeof first);
        return bm_.return_buffer_in_pool_ext(TYPE, first.bnum, first.shmid) ? -1 : 0;
    }
    int use_all(const char* name, int buffers)
    {
        C_shm_buffer* part = bm_.find_by_name(name);
        if (part == nullptr) return -1;
        std::set<char*> taken;
        while (char* at = part->get_buffer(BM_NO_WAIT, true)) {
            if (taken.insert(at).second) continue;
            ++board_.taken_twice;
            break;
        }
        for (char* at : taken) part->return_buffer(at);
        return static_cast<int>(taken.size()) == buffers ? 0 : -1;
    }

    int event_of(const void* head) const
    {
        const auto* at = static_cast<const char*>(head);
        time_stamp key{};
        std::memcpy(&key, at + (in_.wide ? 8 : 0), sizeof key);
        return static_cast<int>(key.timeup - first_);
    }
    int entries_of(const void* head) const
    {
        int32_t entries = 0;
        std::memcpy(&entries, static_cast<const char*>(head) + (in_.wide ? 68 : 52), sizeof entries);
        return entries;
    }
    void check(const std::vector<zrk4_client_sblock_data>& blocks, int event)
    {
        for (const auto& b : blocks) {
            if (b.shmid == 0 || b.bnum == -1) continue;
            const char* at = bm_.get_buffer_address(b.bnum, b.shmid, true);
            if (!holds_block(at, in_, first_, event, b.name)) ++board_.wrong_blocks;
        }
    }
    void wait_where_held(int event)
    {
        if (board_.victim == number_) return;
        ++board_.inside;
        while (event >= board_.hold_from) usleep(500);
        --board_.inside;
    }
    // All blocks of one event, from the first on, so that the others move up; one of the next.
    void give_early(const std::vector<zrk4_client_sblock_data>& blocks, int event)
    {
        const size_t count = event == board_.early_from ? blocks.size() : 1;
        for (size_t i = 0; i < count && i < blocks.size(); ++i)
            bm_.return_buffer_in_pool_ext(TYPE, blocks[i].bnum, blocks[i].shmid);
    }

    setting in_;
    uint32_t first_;
    int number_;
    board& board_;
    int writer_ = 0;
    int kept_ = -1; // buffer of the data partition
    int slot_ = -1;
    BM bm_;
};

int64_t obey_timed(actor& self, const command& c, int& answer)
{
    const auto start = std::chrono::steady_clock::now();
    if (c.marked != 0) syscall(mark_number());
    try {
        answer = self.obey(c);
    } catch (const std::exception& e) {
        std::printf("%s left the order\n", e.what());
        answer = THROWN;
    }
    if (c.marked != 0) syscall(mark_number());
    const auto took = std::chrono::steady_clock::now() - start;
    return std::chrono::duration_cast<std::chrono::microseconds>(took).count();
}

} // namespace

void act(int line, const setting& in, uint32_t first_second, int number, bool show, board& common)
{
    if (show) ZRK4_DAQ_BM_DEBUG = SHOW_CYCLES;
    actor self(in, first_second, number, common);
    for (command c{}; recv(line, &c, sizeof c, 0) == static_cast<ssize_t>(sizeof c);) {
        reply r{};
        r.micros = obey_timed(self, c, r.answer);
        send(line, &r, sizeof r, MSG_NOSIGNAL);
        if (c.what == order::end) break;
    }
}

} // namespace sweep
