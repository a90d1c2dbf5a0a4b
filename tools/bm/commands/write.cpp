// bm write: a generator of blocks of a given size, rate and count.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <list>
#include <memory>
#include <string>
#include <thread>

#include <fmt/format.h>
#include <unistd.h>

#include "cli/failure.h"
#include "cli/progress.h"
#include "commands/commands.h"
#include "commands/load_options.h"
#include "commands/load_run.h"
#include "host/end_signals.h"
#include "model/load_mark.h"
#include "sb_write.h"

namespace bm {
namespace {

using clock = std::chrono::system_clock;
using std::chrono::microseconds;

struct write_options : load_run {
    std::string name = "LOAD", size = "4k", partition;
    int blocks = 1, buffers = 64;
    double rate = 10, patience = 10;
};

constexpr size_t HEADS = sizeof(zrk4_serv_block_head_2024) + sizeof(zrk4_serv_block_subhead_2010) + sizeof(load_mark);

struct balance {
    int64_t events = 0, blocks = 0, bytes = 0, refused = 0, waits = 0, out = 0;
    double seconds = 0;
    bool starved = false; ///< no buffer came within the patience

    bool right() const { return refused == 0 && out == 0 && !starved; }
};

class generator {
  public:
    generator(const common_options& common, const write_options& options)
        : options_(options), type_(event_type(options.type)), bytes_(static_cast<int>(bytes_of(options.size)))
    {
        demand_room();
        demand_slow_enough();
        name_slot_partitions(common);
        bm_ = std::make_unique<BM>();
        configure(*bm_, common, options.member);
        join(*bm_, common);
        make_partition();
        subscribe();
    }
    generator(const generator&) = delete;
    generator& operator=(const generator&) = delete;
    ~generator()
    {
        bm_->unsubscribe(type_, CLI_T_WRITER);
        bm_->all_clean_up();
    }

    balance run(const end_signals& ends)
    {
        const auto begun = std::chrono::steady_clock::now();
        const int64_t first = clock::now().time_since_epoch() / microseconds(1) / period_us() + 1;
        for (int64_t n = 0; !over(n) && !done_.starved; ++n) {
            if (wait_until(microseconds((first + n) * period_us()), ends)) break;
            if (!send(first + n, n)) break;
            progress_.show(part_done(n + 1),
                           fmt::format("{} events, {}", n + 1, size_text(static_cast<uint64_t>(done_.bytes))));
        }
        done_.seconds = seconds_since(begun);
        wait_for_buffers();
        return done_;
    }

  private:
    static double seconds_since(std::chrono::steady_clock::time_point begun)
    {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
    }
    int64_t period_us() const { return std::max<int64_t>(1, std::llround(1e6 / options_.rate)); }

    void demand_room() const
    {
        if (static_cast<size_t>(bytes_) > HEADS) return;
        throw failure(exit_status::usage, "a block has no room for its heads and a mark")
            .seen(fmt::format("{} bytes", bytes_))
            .needed(fmt::format("at least {} bytes", HEADS + 1))
            .help("bm write --size 1k");
    }
    /// Nearer than twice the mask, neighbours take each other's blocks.
    void demand_slow_enough() const
    {
        if (options_.member.mode == "evid") return;
        const double most = 1e6 / (2.0 * static_cast<double>(options_.member.time_mask) + 1);
        if (options_.rate <= most) return;
        throw failure(exit_status::usage, "events this close have the same key")
            .seen(fmt::format("{:g} events/s with a time mask of {} us", options_.rate, options_.member.time_mask))
            .needed(fmt::format("at most {:.1f} events/s", most))
            .help("a smaller --time-mask, or --mode evid, in all clients alike");
    }
    void make_partition()
    {
        const std::string name = options_.partition.empty() ? "BM_LOAD." + options_.name : options_.partition;
        shmid_ = bm_->add(name.c_str(), options_.buffers, bytes_, false);
        if (shmid_ >= 1) return;
        throw failure(exit_status::failed,
                      fmt::format("partition \"{}\" can neither be made nor used", printable(name)))
            .seen(fmt::format("{} buffers of {} bytes", options_.buffers, bytes_))
            .needed("none of this name, or one as large")
            .help(fmt::format("bm ls; bm doctor; bm rm {}", printable(name)));
    }
    void subscribe()
    {
        for (int i = 1; i <= options_.blocks; ++i)
            names_.push_back(options_.blocks == 1 ? options_.name : fmt::format("{}.{}", options_.name, i));
        zrk4_client none{};
        if (bm_->subscribe(type_, CLI_T_WRITER, &none, &names_) >= 1) return;
        throw failure(exit_status::failed, "no client slot is to be had, or none with room for so many names")
            .seen(fmt::format("{} names", names_.size()))
            .needed("a free client slot")
            .help("bm ls; bm clients");
    }

    bool over(int64_t n) const
    {
        if (options_.count > 0) return n >= options_.count;
        return options_.seconds > 0 && static_cast<double>(n) >= options_.seconds * options_.rate;
    }
    double part_done(int64_t n) const
    {
        if (options_.count > 0) return static_cast<double>(n) / static_cast<double>(options_.count);
        return options_.seconds > 0 ? static_cast<double>(n) / (options_.seconds * options_.rate) : -1;
    }
    /// @return whether we are told to end.
    static bool wait_until(microseconds when, const end_signals& ends)
    {
        const auto left = std::chrono::duration_cast<microseconds>(clock::time_point(when) - clock::now());
        return ends.within(std::max(left, microseconds(0))) != 0;
    }

    bool send(int64_t tick, int64_t number)
    {
        for (const std::string& name : names_) {
            int bnum = -1;
            char* at = buffer(bnum);
            if (at == nullptr) return false;
            fill(at, name, tick, number);
            ++done_.blocks;
            done_.bytes += bytes_;
            if (bm_->ev_update(type_, shmid_, bnum)) ++done_.refused;
        }
        ++done_.events;
        return true;
    }
    char* buffer(int& bnum)
    {
        const auto begun = std::chrono::steady_clock::now();
        for (bool waited = false;; waited = true) {
            int id = shmid_;
            char* at = bm_->get_buffer_from_pool(BM_NO_WAIT, bytes_, &id, &bnum);
            if (at != nullptr) return at;
            if (!waited) ++done_.waits;
            if (seconds_since(begun) > options_.patience) break;
            std::this_thread::sleep_for(microseconds(200));
        }
        done_.starved = true;
        return nullptr;
    }
    void fill(char* at, const std::string& name, int64_t tick, int64_t number)
    {
        const int64_t us = tick * period_us();
        const time_stamp key{static_cast<uint32_t>(us / 1'000'000), static_cast<uint32_t>(us % 1'000'000)};
        const auto form = bm_->get_evid_64bit_mode() ? zrk4::sb_form::of_2024 : zrk4::sb_form::of_2010;
        zrk4::sb_write block(at, static_cast<size_t>(bytes_), form, {name, key, tick & 0x7FFFFFFF, 1});
        const load_mark mark{LOAD_MAGIC, run_, number, clock::now().time_since_epoch() / microseconds(1),
                             static_cast<uint64_t>(bytes_) - HEADS};
        block.sub_block(LOAD_CHANNEL, ZRK4_BLOCK_1CHAN_2010);
        block.append(&mark, sizeof mark);
        fill_pattern(mark, block.reserve(mark.bytes));
        block.finish();
    }
    /// The last events are still on their way; then all buffers are back.
    void wait_for_buffers()
    {
        const auto begun = std::chrono::steady_clock::now();
        do {
            const C_shm_buffer* part = bm_->find_by_id(shmid_);
            done_.out = 0;
            for (int i = 0; i < part->getBufferCount(); ++i) done_.out += part->get_bufptr()[i].queued() ? 0 : 1;
            if (done_.out == 0) return;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        } while (seconds_since(begun) < options_.patience);
    }

    write_options options_;
    ZRK4_EVTYPE type_;
    int bytes_;
    std::unique_ptr<BM> bm_;
    int shmid_ = -1;
    std::list<std::string> names_;
    const uint64_t run_ =
        static_cast<uint64_t>(clock::now().time_since_epoch().count()) ^ static_cast<uint64_t>(getpid());
    balance done_;
    progress progress_;
};

json to_json(const balance& all)
{
    json one = document("write");
    one["events"] = all.events;
    one["blocks"] = all.blocks;
    one["bytes"] = all.bytes;
    one["refused"] = all.refused;
    one["waits"] = all.waits;
    one["out"] = all.out;
    one["starved"] = all.starved;
    one["span_s"] = all.seconds;
    one["balanced"] = all.right();
    return one;
}

std::string text_of(const balance& all)
{
    const double seconds = std::max(all.seconds, 1e-9);
    return fmt::format("wrote {} events, {} blocks, {} in {}: {:.1f} events/s, {}/s\n"
                       "refused {}, waited for a buffer {} times, buffers not back {}: {}\n",
                       all.events, all.blocks, size_text(static_cast<uint64_t>(all.bytes)), span_text(all.seconds),
                       static_cast<double>(all.events) / seconds,
                       size_text(static_cast<uint64_t>(static_cast<double>(all.bytes) / seconds)), all.refused,
                       all.waits, all.out,
                       all.right()   ? "the balance is right"
                       : all.starved ? "no buffer came in time: bm events, bm why"
                                     : "the balance is wrong: bm check");
}

exit_status run(const common_options& common, const write_options& options)
{
    const end_signals ends;
    const operator_output out;
    generator source(common, options);
    const balance all = source.run(ends);
    return tell(all, all.starved, common, out);
}

} // namespace

void add_write(command_line& line)
{
    line.add<write_options>(
        "write", "writes blocks of a given size, rate and count, and takes stock",
        [](arguments& app, write_options& options) {
            declare_run(app, options);
            app.option("--name", options.name, "name of the block; of several with .1, .2 behind it (LOAD)");
            app.option("--blocks", options.blocks, "blocks of each event (1)").check(between(1, 10000));
            app.option("--size", options.size, "bytes of each block (4k)").type_name("BYTES");
            app.option("--rate", options.rate, "events per second (10)").check(between(0.001, 1e6)).type_name("HZ");
            app.option("--buffers", options.buffers, "buffers of its partition (64)").check(between(1, 32767));
            app.option("--partition", options.partition, "name of its partition (BM_LOAD.NAME)");
            app.option("--patience", options.patience, "how long it waits for a buffer, and for all at the end (10)")
                .check(between(0.0, 86400.0))
                .type_name("SECONDS");
        },
        run);
}

} // namespace bm
