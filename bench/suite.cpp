#include "suite.h"

#include <utility>

namespace bench {
namespace {

constexpr size_t KIB = 1024;
constexpr size_t MIB = 1024 * KIB;

/// As many blocks as a site may configure, and as many slots as then fit below the 2 GiB that an offset can tell.
limits large_limits()
{
    limits room;
    room.clients = 1024;
    room.client_slots = 2000;
    room.blocks = 4094;
    room.event_slots = 1900;
    return room;
}

class duel_list {
  public:
    duel_list(std::vector<int> processors, double seconds) : processors_(std::move(processors)), seconds_(seconds) {}

    void library_beside_reference(size_t payload, const char* size, size_t processors)
    {
        if (processors > processors_.size()) return;
        const std::string setting = std::string(size) + (processors == 1 ? ", one processor" : ", two processors");
        for (const bool alone : {false, true}) {
            const plan p = plan_for(payload, processors, alone);
            list.push_back({setting, "library", "reference", [p] { return measure_library(p, limits{}); },
                            [p] { return measure_reference(p, limits{}); }, alone ? latencies() : throughput()});
        }
    }

    // Nobody touches the payload: what is left is the hand-over.
    void library_alone(const char* setting, const char* subject, const char* base, size_t subject_payload,
                       const limits& subject_room, int further_readers)
    {
        for (const bool alone : {false, true}) {
            plan p = plan_for(KIB, 1, alone);
            p.touched = false;
            p.warm_up = subject_room.event_slots + 200; // all slots were in use once
            plan other = p;
            other.payload = subject_payload;
            list.push_back(
                {setting, subject, base, [=] { return measure_library(other, subject_room, further_readers); },
                 [=] { return measure_library(p, limits{}, further_readers); }, alone ? latencies() : cost()});
        }
    }

    std::vector<duel> list;

  private:
    using figures = std::vector<duel::figure>;
    static figures cost() { return {{"processor time of an event", "us", &reading::processor_time}}; }
    // The time that passes depends on what else the machine does, the time that is used much less.
    static figures throughput() { return {{EVENTS_PER_SECOND, "1/s", &reading::events_per_second}, cost().front()}; }
    static figures latencies()
    {
        return {{"registration to callback, p50", "us", &reading::p50},
                {"registration to callback, p99", "us", &reading::p99}};
    }

    plan plan_for(size_t payload, size_t processors, bool alone) const
    {
        plan p;
        p.payload = payload;
        p.one_at_a_time = alone;
        p.seconds = seconds_;
        p.writer_processor = processors_.front();
        p.reader_processor = processors_[processors - 1];
        return p;
    }

    std::vector<int> processors_;
    double seconds_;
};

} // namespace

std::vector<duel> all_duels(const std::vector<int>& processors, double seconds)
{
    duel_list duels(processors, seconds);
    for (const size_t count : {1U, 2U}) {
        duels.library_beside_reference(KIB, "1 KiB", count);
        duels.library_beside_reference(MIB, "1 MiB", count);
    }
    duels.library_alone("size of the block", "8 MiB", "1 KiB", 8 * MIB, limits{}, 0);
    const char* const large = "4094 blocks, 2000 + 1900 slots";
    const char* const small = "64 blocks, 64 + 64 slots";
    duels.library_alone("limits", large, small, KIB, large_limits(), 0);
    duels.library_alone("limits, 5 readers", large, small, KIB, large_limits(), 4);
    return duels.list;
}

std::vector<comparison> run(const std::vector<duel>& duels, int rounds, const std::function<void(int)>& progress)
{
    std::vector<comparison> all;
    for (const duel& d : duels) {
        for (const auto& f : d.figures) all.push_back({f.name, f.unit, d.setting, d.subject, d.base, {}, {}});
    }
    for (int round = 0; round < rounds; ++round) {
        progress(round + 1);
        auto into = all.begin();
        for (const duel& d : duels) {
            const bool base_first = round % 2 == 0;
            reading base = base_first ? d.measure_base() : reading{};
            const reading subject = d.measure_subject();
            if (!base_first) base = d.measure_base();
            for (const auto& f : d.figures) {
                into->subject_values.push_back(subject.*f.value);
                into->base_values.push_back(base.*f.value);
                ++into;
            }
        }
    }
    return all;
}

} // namespace bench
