// bm watch: a reader that prints what it is given.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <list>
#include <mutex>
#include <string>
#include <utility>

#include <fmt/format.h>

#include "bm_util.h"
#include "cli/failure.h"
#include "commands/commands.h"
#include "host/end_signals.h"
#include "host/member.h"
#include "model/event_text.h"

namespace bm {
namespace {

struct watch_options {
    member_options member;
    std::string type, shown = "f64";
    int64_t events = 0;
    std::string mask = "-1";
    double ratio_s = 0, seconds = 0;
    size_t most = 4;
    std::list<std::string> blocks{}, slow{};
};

/// Keeps what it saw as documents: an event is not held up by a slow terminal.
class onlooker : public BM {
  public:
    explicit onlooker(watch_options options) : options_(std::move(options)) {}
    ~onlooker() override { all_clean_up(); }

    void event_handler(void* head, zrk4_client_sblock_data* first) override
    {
        {
            const std::lock_guard held(mutex_);
            ++number_;
            if (options_.events > 0 && number_ > options_.events) return;
            if (kept_.size() >= MOST_KEPT) {
                ++skipped_;
                return;
            }
        }
        json one = event_document({head, first, *this, values_named(options_.shown), options_.most});
        if (!options_.slow.empty()) one["slow"] = slow_channels(head, first);
        const std::lock_guard held(mutex_);
        kept_.push_back(std::move(one));
    }
    std::deque<json> taken()
    {
        const std::lock_guard held(mutex_);
        return std::exchange(kept_, {});
    }
    int64_t skipped()
    {
        const std::lock_guard held(mutex_);
        return skipped_;
    }

  private:
    static constexpr size_t MOST_KEPT = 1000;

    json slow_channels(void* head, zrk4_client_sblock_data* first)
    {
        json all = json::object();
        for (const std::string& name : options_.slow) {
            float value = 0;
            const int missing = get_evid_64bit_mode()
                                    ? get_slow_channel_data(static_cast<zrk4_event_slot_head_2024*>(head), first,
                                                            name.c_str(), this, nullptr, nullptr, &value)
                                    : get_slow_channel_data_2010(static_cast<zrk4_event_slot_head*>(head), first,
                                                                 name.c_str(), this, nullptr, &value);
            all[name] = missing != 0 ? json(nullptr) : json(value);
        }
        return all;
    }

    const watch_options options_;
    std::mutex mutex_;
    std::deque<json> kept_;
    int64_t number_ = 0, skipped_ = 0;
};

int mask_of(const std::string& text)
{
    char* end = nullptr;
    const long long value = std::strtoll(text.c_str(), &end, 0);
    if (!text.empty() && *end == '\0' && value >= INT32_MIN && value <= UINT32_MAX) return static_cast<int>(value);
    throw failure(exit_status::usage, "this is no trigger mask").seen("\"" + text + "\"").needed("32 bits: 5, 0x5, -1");
}

void subscribe(onlooker& reader, const watch_options& options)
{
    zrk4_client wish{};
    wish.time_ratio = {static_cast<uint32_t>(options.ratio_s),
                       static_cast<uint32_t>(std::fmod(options.ratio_s, 1.0) * 1e6)};
    wish.tmask = mask_of(options.mask);
    std::list<std::string> blocks = options.blocks;
    if (reader.subscribe(event_type(options.type), CLI_T_READER, &wish, &blocks) >= 1) return;
    throw failure(exit_status::failed, "no client slot is to be had, or none with room for so many names")
        .needed("a free client slot, and a socket")
        .help("bm ls; bm clients");
}

std::string text_of(const json& event)
{
    std::string text = event_text(event);
    if (!event.contains("slow")) return text;
    for (const auto& [name, value] : event["slow"].items())
        text += fmt::format("  slow {} = {}\n", printable(name), value.is_null() ? "not there" : value.dump());
    return text;
}

json as_document(const json& event)
{
    json one = document("watch");
    one["event"] = event;
    return one;
}

exit_status run(const common_options& common, const watch_options& options)
{
    const end_signals ends;
    const operator_output out;
    event_type(options.type);
    mask_of(options.mask);
    name_slot_partitions(common);
    if (!options.slow.empty()) bm_util_init();
    onlooker reader(options);
    configure(reader, common, options.member);
    join(reader, common);
    subscribe(reader, options);
    std::fputs("bm: watching\n", stderr);
    const auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(options.seconds);
    int64_t printed = 0;
    const auto print_all = [&] {
        for (const json& event : reader.taken()) {
            ++printed;
            common.json ? out.print_line(as_document(event)) : out.print(text_of(event));
        }
    };
    bool late = false;
    while (ends.within(std::chrono::milliseconds(20)) == 0 && !late) {
        print_all();
        if (options.events > 0 && printed >= options.events) break;
        late = options.seconds > 0 && std::chrono::steady_clock::now() > until;
    }
    reader.all_clean_up();
    print_all();
    clean_local_copies();
    if (reader.skipped() > 0)
        std::fprintf(stderr, "bm: %ld events were not shown: the output is too slow\n",
                     static_cast<long>(reader.skipped()));
    return late && options.events > printed ? exit_status::timed_out : exit_status::fine;
}

} // namespace

void add_watch(command_line& line)
{
    line.add<watch_options>(
        "watch", "joins as a reader and prints heads, channels and values",
        [](arguments& app, watch_options& options) {
            declare_member(app, options.member);
            app.option("TYPE", options.type, "event type: a number or a name, as NORMAL").required();
            app.option("-n,--events", options.events, "end after so many events").check(above_zero());
            app.option("--mask", options.mask, "trigger mask: events that share a bit with it (-1)");
            app.option("--ratio", options.ratio_s, "take an event that the mask misses after so long; 0: every one (0)")
                .check(between(0.0, 1e6))
                .type_name("SECONDS");
            app.option("--blocks", options.blocks, "names of the blocks it waits for (all)")
                .delimiter(',')
                .type_name("A,B");
            app.option("--slow", options.slow, "slow channels to read by name").delimiter(',').type_name("A,B");
            app.option("--values", options.shown, "how the data of a channel are read (f64)")
                .one_of({"f64", "f32", "i32", "i16", "hex"});
            app.option("--most", options.most, "values of each channel (4)").check(between(0, 1'000'000));
            app.option("--seconds", options.seconds, "end after this time").check(above_zero());
        },
        run);
}

} // namespace bm
