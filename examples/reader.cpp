// A reader: prints what is in each event.
//   example_reader [--block NAME] [--events N] [--records 2010|2024]
// With --block it is called as soon as that block is there, else when all blocks of an event are.
#include <cstdio>

#include "common.h"

namespace {

class printer : public BM {
  public:
    explicit printer(const options& given) : seen(given) { configure(*this, given); }
    ~printer() override { all_clean_up(); } // ends the reader thread before what it uses

    /// Runs in the reader thread. The event is this process's until it returns: nothing of it may be kept.
    void event_handler(void* head, zrk4_client_sblock_data* first) override
    {
        for (int i = 0; i < blocks_in(get_evid_64bit_mode(), head); ++i) print(first[i]);
        ++seen;
    }

    event_count seen;

  private:
    // An entry that stands for a block that no writer brings gives an empty view.
    void print(const zrk4_client_sblock_data& entry)
    {
        const zrk4::sb_view block = zrk4::sb_of(*this, entry);
        for (const zrk4::sb_sub& channel : block) {
            std::printf("%u.%06u  %-16s %5zu bytes of data, the first: %.2f\n", block.head().time.timeup,
                        block.head().time.timelow, entry.name, channel.bytes(), channel.value<double>(0));
        }
    }
};

int read_events(const options& given)
{
    printer bm(given);
    if (bm.init()) return 1;  // true means failure: is there a master?
    zrk4_client parameters{}; // no time ratio: every event
    std::list<std::string> blocks;
    if (const std::string name = given.text("block", ""); !name.empty()) blocks.push_back(name);
    if (bm.subscribe(ZRK4_EV_NORMAL, CLI_T_READER, &parameters, &blocks) < 1) return 1;
    return see_events(bm, ZRK4_EV_NORMAL, bm.seen);
}

} // namespace

int main(int argc, char** argv) { return run_in_order(argc, argv, read_events); }
