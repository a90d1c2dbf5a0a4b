#include "scenarios.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <utility>

#include "peers.h"

namespace bench {
namespace {

constexpr size_t KIB = 1024;
constexpr size_t MIB = 1024 * KIB;

struct size {
    size_t bytes;
    const char* name;
};
constexpr size SIZES[] = {{KIB, "1KiB"}, {64 * KIB, "64KiB"}, {MIB, "1MiB"}, {8 * MIB, "8MiB"}};

/// Blocks on their way that fit into a processor's caches together, as whoever has large ones would choose.
int deep_enough(size_t payload) { return std::clamp(static_cast<int>(4 * MIB / payload), 2, 32); }

/// As many blocks as a site may configure, and as many client slots as then fit below the 2 GiB that an offset can tell.
limits large_limits()
{
    limits room;
    room.clients = 1024;
    room.client_slots = 2000;
    room.blocks = 4094;
    return room;
}

class collection {
  public:
    collection(std::vector<int> processors, double seconds) : processors_(std::move(processors)), seconds_(seconds) {}

    void beside_references(const std::string& kind, const size& s, size_t processors)
    {
        if (processors > processors_.size()) return;
        plan p = plan_for(s.bytes, processors);
        p.one_at_a_time = kind == "one";
        const std::string name = kind + '/' + s.name + (processors == 1 ? "/1cpu" : "/2cpu");
        add(name, p, limits{});
        if (processors == 2 || kind == "one") add_peers(name, p);
    }

    // Eight writers, one block each, on both processors. A few seconds' worth for the slowest are too many for all.
    void building(int readers)
    {
        if (processors_.size() < 2) return;
        plan p = plan_for(64 * KIB, 2);
        p.writers = 8;
        p.readers = readers;
        p.events = std::max<int64_t>(20, static_cast<int64_t>(seconds_ * 4000));
        p.warm_up = std::min<int64_t>(100, p.events);
        p.on_the_way = deep_enough(8 * p.payload);
        const std::string name = "building/8x64KiB/" + std::to_string(readers) + (readers == 1 ? "reader" : "readers");
        add(name, p, limits{});
        add_peers(name, p);
    }

    // Nobody touches the payload: what is left is the hand-over.
    void library_alone(const std::string& group, const std::string& scenario, size_t payload, const limits& room,
                       int readers, bool alone)
    {
        plan p = plan_for(payload, 1);
        p.touched = false;
        p.one_at_a_time = alone;
        p.readers = readers;
        add_library(scenario, p, room, {}, group);
    }

    // The reference's cost of one call: what the library's growth is held against.
    void unit_cost()
    {
        plan p = plan_for(KIB, 1);
        p.touched = false;
        list.push_back(
            {"growth/unit", STRICT, p, [](const plan& q) { return measure_reference(manner::strict, q, limits{}); }});
    }

    void growth(const std::string& kind, int n)
    {
        plan p = plan_for(KIB, 1);
        p.touched = false;
        p.warm_up = 20;
        limits room;
        room.clients = room.client_slots = room.blocks = 640;
        crowd around;
        if (kind == "writers") around.writers = n - 1;
        if (kind == "readers") around.readers = n - 1;
        if (kind == "clients") around.others = n;
        if (kind == "blocks") p.blocks_each = n;
        if (kind == "names") p.blocks_each = MOST, around.names = n;
        if (kind == "slots") room.client_slots = room.event_slots = n + 63;
        if (p.blocks_each > 64) p.on_the_way = 8;
        add_library("growth/" + kind + '/' + std::to_string(n), p, room, around, "growth/" + kind);
    }
    static constexpr int MOST = 512;

    std::vector<measurement> list;

  private:
    plan plan_for(size_t payload, size_t processors) const
    {
        plan p;
        p.payload = payload;
        p.warm_up = payload > MIB ? 40 : 200;
        p.on_the_way = deep_enough(payload);
        p.seconds = seconds_;
        p.writer_processor = processors_.front();
        p.reader_processor = processors_[processors - 1];
        return p;
    }
    void add_library(const std::string& scenario, const plan& p, const limits& room, const crowd& around,
                     const std::string& group)
    {
        list.push_back({scenario, LIBRARY, p, [=](const plan& q) { return measure_library(q, room, around); }, group});
    }
    void add(const std::string& scenario, const plan& p, const limits& room)
    {
        add_library(scenario, p, room, {}, scenario);
        for (const manner m : {manner::strict, manner::best}) {
            const char* subject = m == manner::strict ? STRICT : BEST;
            list.push_back({scenario, subject, p, [=](const plan& q) { return measure_reference(m, q, room); }});
        }
    }
    void add_peers(const std::string& scenario, const plan& p)
    {
        for (const peer& other : all_peers()) {
            if (other.takes(p)) list.push_back({scenario, other.name, p, other.measure});
        }
    }

    std::vector<int> processors_;
    double seconds_;
};

} // namespace

std::vector<measurement> all_measurements(const std::vector<int>& processors, double seconds)
{
    collection all(processors, seconds);
    for (const size_t count : {1U, 2U}) all.beside_references("one", SIZES[0], count);
    for (const size_t count : {1U, 2U}) {
        for (const size& s : SIZES) all.beside_references("pipelined", s, count);
    }
    for (const int readers : {1, 3}) all.building(readers);
    for (const size& s : SIZES)
        all.library_alone("handover", std::string("handover/") + s.name, s.bytes, limits{}, 1, true);
    for (const bool alone : {true, false}) {
        for (const int readers : {1, 5}) {
            const std::string kind = std::string(alone ? "one" : "pipelined") + '/' + std::to_string(readers);
            all.library_alone("limits/" + kind, "limits/small/" + kind, KIB, limits{}, readers, alone);
            all.library_alone("limits/" + kind, "limits/large/" + kind, KIB, large_limits(), readers, alone);
        }
    }
    all.unit_cost();
    for (const char* kind : {"writers", "readers", "blocks", "names", "clients", "slots"}) {
        for (const int n : {1, 128, 256, 384, 512}) all.growth(kind, n);
    }
    return all.list;
}

namespace {

measurement of_shape(const plan& p, const std::string& subject)
{
    if (subject == LIBRARY) return {{}, subject, p, [](const plan& q) { return measure_library(q, limits{}); }};
    const manner m = subject == STRICT ? manner::strict : manner::best;
    return {{}, subject, p, [m](const plan& q) { return measure_reference(m, q, limits{}); }};
}

} // namespace

measurement measurement_named(const std::string& name, const std::string& subject, int processor)
{
    plan p;
    int blocks = 0;
    if (std::sscanf(name.c_str(), "shape/%d/%d/%d", &p.writers, &p.readers, &blocks) == 3) {
        if (p.writers < 1 || p.readers < 1 || blocks < p.writers || blocks % p.writers != 0)
            throw std::runtime_error("no such shape: " + name);
        p.blocks_each = blocks / p.writers;
        p.one_at_a_time = p.writers == 1;
        p.writer_processor = p.reader_processor = processor;
        return of_shape(p, subject);
    }
    for (const measurement& m : all_measurements({processor, processor}, 1)) {
        if (m.scenario == name && m.subject == subject) return m;
    }
    throw std::runtime_error("no such measurement: " + subject + " in " + name);
}

} // namespace bench
