// bm read: a consumer that checks what the generator wrote.
#include <algorithm>
#include <chrono>
#include <cstring>
#include <list>
#include <map>
#include <mutex>
#include <string>
#include <utility>

#include <fmt/format.h>
#include <unistd.h>

#include "cli/failure.h"
#include "cli/progress.h"
#include "commands/commands.h"
#include "commands/load_run.h"
#include "host/end_signals.h"
#include "model/arrivals.h"
#include "model/load_mark.h"
#include "sb_view.h"

namespace bm {
namespace {

struct read_options : load_run {
    std::list<std::string> blocks{};
    double patience = 10, work_ms = 0;
};

struct balance {
    int64_t events = 0, blocks = 0, bytes = 0;
    int64_t strangers = 0; ///< blocks of other writers: not judged
    int64_t holes = 0, damaged = 0, lost = 0, repeated = 0;
    int64_t slowest_us = 0; ///< from a block's filling to its reading
    double seconds = 0;
    bool silent = false; ///< nothing came for longer than the patience
    bool short_of = false;

    bool right() const { return holes + damaged + lost + repeated == 0 && !silent && !short_of; }
};

int64_t now_us() { return std::chrono::system_clock::now().time_since_epoch() / std::chrono::microseconds(1); }

class consumer : public BM {
  public:
    ~consumer() override { all_clean_up(); }

    void event_handler(void* head, zrk4_client_sblock_data* first) override
    {
        const int filled = get_evid_64bit_mode() ? static_cast<zrk4_event_slot_head_2024*>(head)->sbfilled
                                                 : static_cast<zrk4_event_slot_head*>(head)->sbfilled;
        if (work_us > 0) usleep(work_us);
        const std::lock_guard held(mutex_);
        if (limit > 0 && all_.events >= limit) return;
        ++all_.events;
        for (int i = 0; i < filled; ++i) look(first[i]);
    }
    balance so_far()
    {
        const std::lock_guard held(mutex_);
        balance copy = all_;
        for (const auto& [from, numbers] : arrived_) {
            copy.lost += numbers.lost();
            copy.repeated += numbers.repeated();
        }
        return copy;
    }

    std::list<std::string> wanted; ///< names of the blocks that are judged; none: all
    int64_t limit = 0;             ///< events; 0: none
    useconds_t work_us = 0;        ///< time that it spends on each

  private:
    /// The others' blocks may be there already, or not: nobody waits for them.
    bool is_wanted(const zrk4_client_sblock_data& entry) const
    {
        const std::string name(entry.name, strnlen(entry.name, sizeof entry.name));
        return wanted.empty() || std::find(wanted.begin(), wanted.end(), name) != wanted.end();
    }
    void look(const zrk4_client_sblock_data& entry)
    {
        if (!is_wanted(entry)) return;
        const zrk4::sb_view block = zrk4::sb_of(*this, entry);
        if (!block) {
            ++all_.holes;
            return;
        }
        ++all_.blocks;
        all_.bytes += std::max<int64_t>(block.head().ltotal, 0);
        const load_found found = load_in(block);
        if (!found.mark) {
            ++all_.strangers;
            return;
        }
        if (!found.whole) ++all_.damaged;
        all_.slowest_us = std::max(all_.slowest_us, now_us() - found.mark->sent_us);
        arrived_[{found.mark->run, std::string(block.server())}].came(found.mark->event);
    }

    std::mutex mutex_;
    balance all_;
    std::map<std::pair<uint64_t, std::string>, arrivals> arrived_; // of each generator, by block
};

void subscribe(consumer& reader, const read_options& options)
{
    std::list<std::string> wanted = options.blocks;
    zrk4_client every{};
    every.tmask = -1;
    if (reader.subscribe(event_type(options.type), CLI_T_READER, &every, &wanted) >= 1) return;
    throw failure(exit_status::failed, "no client slot is to be had, or none with room for so many names")
        .seen(fmt::format("{} names", options.blocks.size()))
        .needed("a free client slot, and a socket")
        .help("bm ls; bm clients");
}

/// Until enough came, time is up, a signal came, or nothing comes any more.
balance watch(consumer& reader, const read_options& options, const end_signals& ends)
{
    progress shown;
    const int64_t begun = now_us();
    int64_t heard = begun;
    balance all;
    for (bool told = false; !told;) {
        told = ends.within(std::chrono::milliseconds(20)) != 0;
        const int64_t before = all.events;
        all = reader.so_far();
        const int64_t now = now_us();
        if (all.events != before) heard = now;
        all.seconds = static_cast<double>(now - begun) / 1e6;
        if (options.count > 0 && all.events >= options.count) break;
        if (options.seconds > 0 && all.seconds >= options.seconds) break;
        all.silent = static_cast<double>(now - heard) / 1e6 > options.patience && options.patience > 0;
        if (all.silent) break;
        const double part = options.count > 0     ? static_cast<double>(all.events) / static_cast<double>(options.count)
                            : options.seconds > 0 ? all.seconds / options.seconds
                                                  : -1;
        shown.show(part, fmt::format("{} events, {}", all.events, size_text(static_cast<uint64_t>(all.bytes))));
    }
    all.short_of = options.count > 0 && all.events < options.count;
    return all;
}

json to_json(const balance& all)
{
    json one = document("read");
    one["events"] = all.events;
    one["blocks"] = all.blocks;
    one["bytes"] = all.bytes;
    one["strangers"] = all.strangers;
    one["holes"] = all.holes;
    one["damaged"] = all.damaged;
    one["lost"] = all.lost;
    one["repeated"] = all.repeated;
    one["slowest_s"] = static_cast<double>(all.slowest_us) / 1e6;
    one["span_s"] = all.seconds;
    one["silent"] = all.silent;
    one["balanced"] = all.right();
    return one;
}

std::string text_of(const balance& all)
{
    return fmt::format("read {} events, {} blocks, {} in {}; the slowest block took {}\n"
                       "holes {}, damaged {}, lost {}, twice {}, of other writers {}: {}\n",
                       all.events, all.blocks, size_text(static_cast<uint64_t>(all.bytes)), span_text(all.seconds),
                       span_text(static_cast<double>(all.slowest_us) / 1e6), all.holes, all.damaged, all.lost,
                       all.repeated, all.strangers,
                       all.right()  ? "the balance is right"
                       : all.silent ? "nothing came any more: bm clients, bm events"
                                    : "the balance is wrong");
}

exit_status run(const common_options& common, const read_options& options)
{
    const end_signals ends;
    const operator_output out;
    event_type(options.type);
    name_slot_partitions(common);
    consumer reader;
    reader.wanted = options.blocks;
    reader.limit = options.count;
    reader.work_us = static_cast<useconds_t>(options.work_ms * 1000);
    configure(reader, common, options.member);
    join(reader, common);
    subscribe(reader, options);
    std::fputs("bm: reading\n", stderr);
    const balance all = watch(reader, options, ends);
    reader.all_clean_up();
    return tell(all, all.silent, common, out);
}

} // namespace

void add_read(command_line& line)
{
    line.add<read_options>(
        "read", "reads events, checks the blocks of bm write, and takes stock",
        [](arguments& app, read_options& options) {
            declare_run(app, options);
            app.option("--blocks", options.blocks, "names of the blocks it waits for (all)")
                .delimiter(',')
                .type_name("A,B");
            app.option("--work", options.work_ms, "time that it spends on each event (0)")
                .check(between(0.0, 60000.0))
                .type_name("MILLISECONDS");
            app.option("--patience", options.patience, "end when nothing came for so long; 0: never (10)")
                .check(between(0.0, 1e6))
                .type_name("SECONDS");
        },
        run);
}

} // namespace bm
