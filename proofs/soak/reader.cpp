// A reader: looks at every byte of every block, at the beginning and at the end of its turn.
#include "run.h"

#include <bitset>
#include <random>
#include <vector>

#include <unistd.h>

#include "block.h"

namespace soak {
namespace {

/// Serial numbers seen in the last while, of one writer.
class serials {
  public:
    /// @return false when it was seen before; those too old to tell count as new.
    bool add(uint64_t serial)
    {
        if (serial + seen_.size() <= newest_) return true;
        for (; newest_ < serial; ++newest_) seen_.reset((newest_ + 1) % seen_.size());
        if (seen_.test(serial % seen_.size())) return false;
        seen_.set(serial % seen_.size());
        return true;
    }

  private:
    std::bitset<8192> seen_;
    uint64_t newest_ = 0;
};

struct found_block {
    const char* at;
    uint64_t serial;
};

class reader : public BM {
  public:
    reader(const context& run, int number) : run_(run), number_(number), random_(static_cast<unsigned>(getpid()))
    {
        configure(*this, run.how);
    }
    ~reader() override { all_clean_up(); }

    int live()
    {
        if (init()) return 2;
        zrk4_client parameters{};
        std::list<std::string> blocks = wanted();
        if (subscribe(EVENT_TYPE, CLI_T_READER, &parameters, &blocks) < 1) return 4;
        while (!run_.all.clients_leave) usleep(10'000);
        all_clean_up();
        return 0;
    }

    void event_handler(void* head, zrk4_client_sblock_data* first) override
    {
        if (run_.how.planted == canary::deaf && number_ == 0) return;
        if (run_.how.wide) {
            look(*static_cast<const zrk4_event_slot_head_2024*>(head), first);
        } else {
            look(*static_cast<const zrk4_event_slot_head*>(head), first);
        }
    }

  private:
    // Numbers 0 and 3 want whatever is in an event, the others wait for one or two blocks.
    std::list<std::string> wanted() const
    {
        switch (number_) {
        case 1:
            return {block_name(0)};
        case 2:
            return {block_name(1), block_name(2)};
        case 4:
            return {block_name(3)};
        case 5:
            return {block_name(3), block_name(0)};
        default:
            return {};
        }
    }

    template <class Head> void look(const Head& head, const zrk4_client_sblock_data* first)
    {
        std::vector<found_block> found;
        const int entries = head.sbfilled;
        for (int i = 0; i < entries; ++i) {
            const zrk4_client_sblock_data entry = first[i];
            if (entry.shmid == 0 || entry.bnum == -1) continue;
            const char* at = get_buffer_address(entry.bnum, entry.shmid, true);
            if (at == nullptr) {
                wrong("address", entry, {});
            } else if (const block_seen seen = read_block(at); is_right(head, entry, seen)) {
                found.push_back({at, seen.says.serial});
            }
        }
        take_a_while();
        for (const found_block& one : found) {
            const block_seen seen = read_block(one.at);
            if (!seen.sound || seen.says.serial != one.serial) wrong("changed-under-the-reader", {}, seen.says);
        }
        mine().blocks += found.size();
        mine().beat_ns = monotonic_ns();
        run_.all.delivered_ns = monotonic_ns();
    }

    template <class Head> bool is_right(const Head& head, const zrk4_client_sblock_data& entry, const block_seen& seen)
    {
        const label& says = seen.says;
        const bool by_id = run_.how.mode == BM_SYNCH_EVID;
        const char* what = nullptr;
        if (!seen.sound || says.writer < 0 || says.writer >= WRITERS) {
            what = "bytes";
        } else if (says.server != entry.name || says.server != block_name(says.writer)) {
            what = "name";
        } else if (by_id ? says.id != head.eventid
                         : says.time.timeup != head.time.timeup || says.time.timelow != head.time.timelow) {
            what = "event";
        } else if (!seen_[says.writer].add(says.serial)) {
            what = "twice";
        }
        if (what != nullptr) wrong(what, entry, says);
        return what == nullptr;
    }

    void wrong(const char* what, const zrk4_client_sblock_data& entry, const label& says)
    {
        if (++wrongs_ > 100) return;
        run_.log.line("wrong", "what=%s role=%s pid=%d shmid=%d bnum=%d writer=%d serial=%llu id=%lld", what,
                      name_of(FIRST_READER + number_).c_str(), getpid(), +entry.shmid, +entry.bnum, says.writer,
                      static_cast<unsigned long long>(says.serial), static_cast<long long>(says.id));
    }

    // Mostly quick, at times slow enough to fall behind.
    void take_a_while()
    {
        const auto chance = static_cast<unsigned>(random_() % 200);
        if (chance == 0) {
            usleep(30'000);
        } else if (chance < 40) {
            usleep(chance * 50);
        }
    }

    common::of_member& mine() { return run_.all.member[FIRST_READER + number_]; }

    const context& run_;
    int number_;
    std::minstd_rand random_;
    serials seen_[WRITERS];
    int wrongs_ = 0;
};

} // namespace

int be_reader(const context& run, int number) { return reader(run, number).live(); }

} // namespace soak
