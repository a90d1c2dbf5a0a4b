// The run control: begins a run, sends values of slow channels at regular times and prints them, and ends the run.
//   example_run_control [--values N] [--period MILLISECONDS] [--records 2010|2024]
#include <cstdio>

#include <sys/sysinfo.h>

#include "common.h"

namespace {

constexpr int BUFFERS = 8, BYTES = 4096;
constexpr ZRK4_EVTYPE TYPES[] = {ZRK4_EV_BOR, ZRK4_EV_ENV, ZRK4_EV_UPD, ZRK4_EV_EOR};

/// Values come under the index that the dictionary gives to their name: any number, not a position.
struct slow_channel {
    int32_t index;
    const char* name;
    float value;
};

std::vector<slow_channel> measured()
{
    struct sysinfo host {};
    sysinfo(&host);
    return {{10, "load", static_cast<float>(host.loads[0]) / 65536},
            {20, "tasks", static_cast<float>(host.procs)},
            {30, "free memory", static_cast<float>((host.freeram * host.mem_unit) >> 20)}};
}

class run_control {
  public:
    bool join(const options& given)
    {
        configure(bm_, given);
        if (bm_.init()) return false; // true means failure: is there a master?
        partition_ = bm_.add((PARTITIONS + "RUN").c_str(), BUFFERS, BYTES);
        zrk4_client parameters{};
        std::list<std::string> blocks{"RUN"};
        bool joined = partition_ > 0;
        for (const ZRK4_EVTYPE type : TYPES) joined &= bm_.subscribe(type, CLI_T_WRITER, &parameters, &blocks) > 0;
        return joined;
    }
    /// An event of one block, into which `fill` writes the records.
    template <class Fill> void send(ZRK4_EVTYPE type, Fill fill)
    {
        time_stamp now{};
        bm_.get_cur_time(&now);
        int number = -1;
        zrk4::sb_write block(wait_for_buffer(bm_, BYTES, partition_, number), BYTES, form_of(bm_),
                             {"RUN", now, ++sent_, 1});
        fill(block, now);
        block.finish();
        if (bm_.ev_update(type, partition_, number)) std::puts("refused");
    }
    void leave()
    {
        wait_until_all_are_back(bm_, partition_, BUFFERS);
        for (const ZRK4_EVTYPE type : TYPES) bm_.unsubscribe(type, CLI_T_WRITER);
    }

  private:
    BM bm_;
    int partition_ = -1;
    int64_t sent_ = 0;
};

int make_a_run(const options& given)
{
    run_control run;
    if (!run.join(given)) return 1;
    run.send(ZRK4_EV_BOR, [](zrk4::sb_write& block, time_stamp now) {
        block.dictionary("CHANNELS");
        for (const slow_channel& one : measured()) block.dictionary_entry(one.name, one.index);
        block.begin_of_run("RUN");
        block.update("PROPERTIES"); // later updates change these, and add none
        block.update_value("values sent", now, 0);
    });
    for (int i = 1; i <= given.number("values", 5); ++i, pause_ms(given.number("period", 200))) {
        run.send(ZRK4_EV_ENV, [](zrk4::sb_write& block, time_stamp now) {
            block.environment("VALUES");
            for (const auto& [index, name, value] : measured()) {
                block.environment_value(index, now, value);
                std::printf("environment: %s %.2f\n", name, value);
            }
        });
        run.send(ZRK4_EV_UPD, [i](zrk4::sb_write& block, time_stamp now) {
            block.update("PROPERTIES");
            block.update_value("values sent", now, static_cast<float>(i));
            std::printf("update: values sent %d.00\n", i);
        });
    }
    run.send(ZRK4_EV_EOR, [](zrk4::sb_write& block, time_stamp) { block.end_of_run("RUN"); });
    run.leave();
    return 0;
}

} // namespace

int main(int argc, char** argv) { return run_in_order(argc, argv, make_a_run); }
