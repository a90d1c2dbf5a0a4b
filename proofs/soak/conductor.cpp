#include "conductor.h"

#include <cerrno>
#include <csignal>
#include <new>
#include <stdexcept>
#include <system_error>

#include <sys/mman.h>
#include <unistd.h>

#include "capacity.h"

namespace soak {
namespace {

constexpr int64_t MS = 1'000'000;
constexpr int SET_UP_MS = 20'000, LEAVE_MS = 20'000;
/// An event that lacks a block is spared for a second where a writer is at it, and looked at ten periods later.
constexpr int QUIET_MS = 2500, SETTLE_MS = 20'000;

volatile std::sig_atomic_t interrupted = 0;

common* shared_memory()
{
    void* at = mmap(nullptr, sizeof(common), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (at == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "mmap");
    return new (at) common();
}

template <class Condition> void wait_until(const char* what, Condition condition)
{
    const int64_t until = monotonic_ns() + SET_UP_MS * MS;
    while (!condition()) {
        if (monotonic_ns() > until) throw std::runtime_error(std::string("set-up: ") + what);
        usleep(2000);
    }
}

} // namespace

conductor::conductor(const settings& how, const record& log)
    : how_(how), all_(shared_memory()), context_{how, log, *all_}, crew_(context_), watch_(context_, crew_)
{
    for (const int signal : {SIGINT, SIGTERM}) std::signal(signal, [](int) { interrupted = 1; });
}

conductor::~conductor() { munmap(all_, sizeof *all_); }

void conductor::run()
{
    set_up();
    disturb();
    drain();
    take_stock();
    context_.log.line("end", "longest_gap_ms=%lld", static_cast<long long>(watch_.longest_gap_ms()));
}

void conductor::set_up()
{
    crew_.start(MASTER);
    wait_until("no partitions", [this] { return all_->made.load(); });
    for (int m = FIRST_READER; m < MEMBERS; ++m) crew_.start(m);
    for (int m = FIRST_WRITER; m < FIRST_READER; ++m) crew_.start(m);
    wait_until("no event", [this] { return all_->delivered_ns != 0; });
}

void conductor::disturb()
{
    plan actions(how_.seed, plan::watch_of(how_.seconds));
    const int64_t until = monotonic_ns() + int64_t{how_.seconds} * 1000 * MS;
    while (monotonic_ns() < until && kills_ < how_.last_kill && interrupted == 0) {
        const action next = actions.next();
        pause(next.delay_ms);
        carry_out(next);
    }
}

void conductor::carry_out(const action& what)
{
    if (what.what == action::STOP) {
        crew_.stop(what.victim, what.stop_ms);
        return;
    }
    watch_.tell(what.victim);
    if (crew_.kill(what.victim)) ++kills_;
    crew_.start(what.victim);
}

void conductor::pause(int ms)
{
    for (const int64_t until = monotonic_ns() + ms * MS; monotonic_ns() < until; usleep(2000)) {
        crew_.let_go_on(false);
        crew_.look_for_the_dead();
        watch_.look();
    }
}

// The last life of everybody gets the time to take part once more.
void conductor::drain()
{
    crew_.let_go_on(true);
    pause(1000);
    watch_.tell();
    all_->last_tick = tick_now();
    settled_stock(false, QUIET_MS, SETTLE_MS);
    all_->clients_leave = true;
    crew_.dismiss(FIRST_WRITER, MEMBERS, LEAVE_MS);
}

void conductor::take_stock()
{
    tell(context_.log, settled_stock(true, 20 * PERIOD_US / 1000, SETTLE_MS));
    repair(context_.log, how_);
    tell(context_.log, all_stock(true));
    for (int m = FIRST_READER; m < MEMBERS; ++m) {
        context_.log.line("blocks", "role=%s n=%llu", name_of(m).c_str(),
                          static_cast<unsigned long long>(all_->member[m].blocks));
    }
    all_->master_leaves = true;
    crew_.dismiss(MASTER, FIRST_WRITER, LEAVE_MS);
    const int left = proof::left_behind();
    if (left != 0) context_.log.line("wrong", "what=left-behind n=%d", left);
}

} // namespace soak
