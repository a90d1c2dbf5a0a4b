// A reader of few events and few blocks: it names the blocks that it wants, and the trigger bits that an event must have.
//   example_selective_reader [--blocks NAME,NAME...] [--trigger MASK] [--at-least-every SECONDS] [--events N]
//                            [--records 2010|2024]
// It is called as soon as its blocks are there. Events without any of the bits pass it by, but for one whenever the
// given time went by without an event: 0 would mean every event.
#include <sstream>

#include "common.h"

namespace {

class picker : public BM {
  public:
    explicit picker(const options& given) : seen(given)
    {
        configure(*this, given);
        std::istringstream names(given.text("blocks", "LOAD"));
        for (std::string name; std::getline(names, name, ',');) blocks_.push_back(name);
    }
    ~picker() override { all_clean_up(); } // ends the reader thread before what it uses

    bool join(const options& given)
    {
        zrk4_client parameters{};
        parameters.tmask = given.number("trigger", 2);
        parameters.time_ratio = {static_cast<uint32_t>(given.number("at-least-every", 3600)), 0};
        return !init() && subscribe(ZRK4_EV_NORMAL, CLI_T_READER, &parameters, &blocks_) > 0; // true means failure
    }
    /// Runs in the reader thread. Blocks of others may be in the event as well, or not yet.
    void event_handler(void* head, zrk4_client_sblock_data* first) override
    {
        for (int i = 0; i < blocks_in(get_evid_64bit_mode(), head); ++i) {
            if (std::find(blocks_.begin(), blocks_.end(), first[i].name) == blocks_.end()) continue;
            const zrk4::sb_view block = zrk4::sb_of(*this, first[i]);
            if (!block) continue; // the place of one that did not come
            std::printf("%s of event %lld, trigger 0x%X\n", first[i].name, static_cast<long long>(block.head().mpulse),
                        static_cast<unsigned>(block.head().tmask));
        }
        ++seen;
    }

    event_count seen;

  private:
    std::list<std::string> blocks_;
};

int read_selected(const options& given)
{
    picker bm(given);
    if (!bm.join(given)) return 1; // is there a master?
    return see_events(bm, ZRK4_EV_NORMAL, bm.seen);
}

} // namespace

int main(int argc, char** argv) { return run_in_order(argc, argv, read_selected); }
