#include "stage.h"

#include <chrono>

#include <unistd.h>

#include "blocks.h"
#include "stillness.h"

namespace sweep {
namespace {

constexpr int64_t LONGEST_WAIT_US = 1'000'000;

template <class Condition> bool eventually(std::chrono::milliseconds patience, Condition holds)
{
    const auto until = std::chrono::steady_clock::now() + patience;
    while (!holds()) {
        if (std::chrono::steady_clock::now() > until) return false;
        stillness::nap(500);
    }
    return true;
}

} // namespace

stage::stage(const point& at, board& common) : at_(at), board_(common), first_second_(first_second(at)) {}

void stage::expect(bool held, const std::string& what)
{
    if (!held) say_broken(what);
}

member& stage::start(const std::string& name)
{
    const int number = next_number_++;
    if (number >= READERS_MAX) throw std::logic_error("too many processes");
    const bool shown = name == "master" || name == "small master";
    cast_.push_back(std::make_unique<member>(name, at_.in, first_second_, number, shown, board_));
    return *cast_.back();
}

member& stage::start_master(bool shown)
{
    master_ = &start(shown ? "master" : "victim master");
    expect(master_->ask(order::become_master).answer == 0, "a process cannot become master");
    return *master_;
}

member& stage::bring_up_master()
{
    const auto attached = [](member& m) {
        return m.ask(order::join).answer == 0 && m.ask(order::make_data).answer >= 0;
    };
    member& first = start_master();
    if (attached(first)) return first;
    first.end();
    check(true);
    member& second = start_master();
    expect(attached(second), "the master cannot init, or the data partition cannot be had");
    return second;
}

member& stage::bring_up_client(const std::string& name)
{
    member& m = start(name);
    expect(m.ask(order::join).answer == 0, name + " cannot init");
    expect(m.ask(order::attach_data).answer == 0, name + " cannot attach the data partition");
    return m;
}

void stage::subscribe_reader(member& m, int wanted)
{
    expect(m.ask(order::subscribe_reader, wanted).answer > 0, m.name() + " cannot subscribe");
    m.subscribed = member::part::reader;
    m.kind = wanted;
    m.since = next_event_;
}

void stage::subscribe_writer(member& m, int writer)
{
    expect(m.ask(order::subscribe_writer, writer).answer > 0, m.name() + " cannot subscribe");
    m.subscribed = member::part::writer;
    m.kind = writer;
}

void stage::bring_up_all()
{
    if (master_ == nullptr) bring_up_master();
    for (int w = 0; w < 2; ++w) subscribe_writer(bring_up_client("writer " + std::to_string(w)), w);
    for (int r = 0; r < at_.in.readers; ++r) subscribe_reader(bring_up_client("reader " + std::to_string(r)), r);
}

member* stage::find(member::part part, int kind)
{
    for (const auto& m : cast_) {
        if (m->alive() && m->subscribed == part && m->kind == kind) return m.get();
    }
    return nullptr;
}

int stage::new_open_event()
{
    open_.insert(next_event_);
    return next_event_++;
}

void stage::send_from(int writer, int event)
{
    member* m = find(member::part::writer, writer);
    if (m == nullptr) return;
    const int answer = m->ask(order::send, event).answer;
    expect(answer == 0 || open_.count(event) != 0,
           m->name() + ": its block of event " + std::to_string(event) + " was refused, " + std::to_string(answer));
}

bool stage::all_got(int event) const
{
    for (const auto& m : cast_) {
        if (m->alive() && m->subscribed == member::part::reader && m->since <= event &&
            board_.calls[m->number()][event] == 0)
            return false;
    }
    return true;
}

void stage::whole_events(int count)
{
    for (int i = 0; i < count; ++i) {
        const int event = next_event_++;
        for (int w = 0; w < WRITERS_MAX; ++w) send_from(w, event);
        expect(eventually(std::chrono::milliseconds(1000), [&] { return all_got(event); }),
               "a reader waits for event " + std::to_string(event));
    }
}

std::string stage::lost_events()
{
    std::string lost;
    for (const auto& m : cast_) {
        if (m->subscribed != member::part::reader) continue;
        for (int event = 0; event < next_event_; ++event) {
            const int calls = board_.calls[m->number()][event];
            const std::string what = m->name() + ", event " + std::to_string(event);
            expect(calls <= 1, what + ": its handler was called " + std::to_string(calls) + " times");
            if (!m->alive() || calls > 0 || event < m->since) continue;
            const uint32_t key = first_second_ + static_cast<uint32_t>(event);
            if (open_.count(event) != 0) lost += (lost.empty() ? "" : " ") + std::to_string(key);
            expect(open_.count(event) != 0, what + ": lost, although it was not under way at the kill");
        }
    }
    return lost;
}

void stage::replace_dead()
{
    if (master_ != nullptr && !master_->alive()) {
        bring_up_master();
    }
    // Within the first ticks of its life a process cannot be told from the one whose id, or slot, it has.
    usleep(PERIOD_US);
    const size_t count = cast_.size();
    for (size_t i = 0; i < count; ++i) {
        const member& dead = *cast_[i];
        if (dead.alive() || dead.subscribed == member::part::none) continue;
        const auto part = dead.subscribed;
        const int kind = dead.kind;
        member& next = bring_up_client("next " + dead.name());
        if (part == member::part::reader) subscribe_reader(next, kind);
        if (part == member::part::writer) subscribe_writer(next, kind);
    }
}

int stage::cycles() const
{
    const std::string text = master_->output();
    int seen = 0;
    for (size_t at = 0; (at = text.find("MONITORING [", at)) != std::string::npos; ++at) ++seen;
    return seen;
}

void stage::wait_periods(int count)
{
    if (master_->name() != "master") { // it does not say its cycles
        usleep(static_cast<useconds_t>(count + 2) * PERIOD_US * 5 / 4);
        return;
    }
    // The first line may be that of a cycle that is under way.
    const int wanted = cycles() + count + 1;
    expect(eventually(std::chrono::seconds(10),
                      [&] {
                          stillness::nap(10'000);
                          return cycles() >= wanted;
                      }),
           "the monitor stands still");
}

void stage::use_all_buffers()
{
    // The last event may still be on its way back.
    expect(eventually(std::chrono::milliseconds(1000), [&] { return master_->ask(order::use_data).answer == 0; }),
           "not all buffers of the data partition can be had");
}

void stage::everybody_leaves()
{
    for (const auto& m : cast_) {
        if (m.get() != master_) m->end();
    }
    if (master_ != nullptr) master_->end();
}

expected stage::as_expected() const
{
    expected e{at_.in.wide, made, {}};
    e.partitions.insert(DATA_NAME);
    for (const auto& m : cast_) {
        if (m->alive() && m->subscribed != member::part::none) e.clients.insert(m->pid());
    }
    return e;
}

checked stage::check(bool repair)
{
    checked seen = check_host(at_.in.wide, repair);
    found_.insert(found_.end(), seen.lines.begin(), seen.lines.end());
    broken_.insert(broken_.end(), seen.wrong.begin(), seen.wrong.end());
    repaired_ = repaired_ || repair;
    return seen;
}

void stage::check_claims()
{
    expect(board_.wrong_blocks == 0, "blocks with foreign bytes: " + std::to_string(board_.wrong_blocks));
    expect(board_.taken_twice == 0, "buffers handed out twice: " + std::to_string(board_.taken_twice));
    for (const auto& m : cast_) {
        expect(m->slowest <= LONGEST_WAIT_US,
               m->name() + " waited " + std::to_string(m->slowest / 1000) + " ms in " + m->slowest_order);
    }
}

} // namespace sweep
