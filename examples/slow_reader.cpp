// A reader of slow channels: prints those that it is given the names of, at every event of the run control, until the
// run ends.
//   example_slow_reader [--channels NAME,NAME...] [--records 2010|2024]
#include <atomic>
#include <cstdio>
#include <sstream>

#include "bm_util.h"
#include "common.h"

namespace {

constexpr ZRK4_EVTYPE TYPES[] = {ZRK4_EV_BOR, ZRK4_EV_ENV, ZRK4_EV_UPD, ZRK4_EV_EOR};

class slow_reader : public BM {
  public:
    explicit slow_reader(const options& given)
    {
        configure(*this, given);
        std::istringstream names(given.text("channels", "load,tasks,free memory,values sent"));
        for (std::string name; std::getline(names, name, ',');) channels_.push_back(name);
    }
    ~slow_reader() override { all_clean_up(); } // ends the reader thread before what it uses

    bool join()
    {
        if (init()) return false; // true means failure: is there a master?
        bm_util_init();           // forgets the slow channels of an earlier run
        zrk4_client parameters{};
        bool joined = true;
        for (const ZRK4_EVTYPE type : TYPES) joined &= subscribe(type, CLI_T_READER, &parameters, nullptr) > 0;
        return joined;
    }
    /// Runs in the reader thread. The values come from the process's own copies of the run's dictionary and values,
    /// which each query brings up to date first.
    void event_handler(void* head, zrk4_client_sblock_data* first) override
    {
        const int type = type_of(get_evid_64bit_mode(), head);
        for (const std::string& name : channels_) {
            float value = 0;
            if (read(head, first, name, value)) std::printf("%s: %s %.2f\n", kind(type), name.c_str(), value);
        }
        std::fflush(stdout);
        if (type == ZRK4_EV_EOR) ended_ = true;
    }
    void wait_for_the_end() const
    {
        while (!ended_) pause_ms(1);
    }
    void leave()
    {
        for (const ZRK4_EVTYPE type : TYPES) unsubscribe(type, CLI_T_READER);
    }

  private:
    bool read(void* head, zrk4_client_sblock_data* first, const std::string& name, float& value)
    {
        if (get_evid_64bit_mode()) {
            auto* slot = static_cast<zrk4_event_slot_head_2024*>(head);
            return get_slow_channel_data(slot, first, name.c_str(), this, nullptr, nullptr, &value) == 0;
        }
        auto* slot = static_cast<zrk4_event_slot_head*>(head);
        return get_slow_channel_data_2010(slot, first, name.c_str(), this, nullptr, &value) == 0;
    }
    static const char* kind(int type)
    {
        if (type == ZRK4_EV_BOR) return "begin of run";
        if (type == ZRK4_EV_EOR) return "end of run";
        return type == ZRK4_EV_ENV ? "environment" : "update";
    }

    std::vector<std::string> channels_;
    std::atomic<bool> ended_{false};
};

int read_slow_channels(const options& given)
{
    slow_reader bm(given);
    if (!bm.join()) return 1;
    say_ready();

    bm.wait_for_the_end();
    bm.leave();
    return 0;
}

} // namespace

int main(int argc, char** argv) { return run_in_order(argc, argv, read_slow_channels); }
