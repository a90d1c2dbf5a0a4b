// Between the fuzzer and a target: a namespace, silence on standard output, and a limit of time for every input.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <sys/time.h>
#include <unistd.h>

#include "bm_message.h"
#include "ipc_namespace.h"
#include "target.h"

namespace fuzz {
namespace {

// Of the processor, not of the clock on the wall: beside other programs an input may have to wait for its turn. One that
// waits for a lock is ended by the fuzzer's own limit.
constexpr int64_t LIMIT_NS = 10'000'000;
constexpr int64_t TICK_NS = LIMIT_NS;
constexpr int ENDLESS_TICKS = 10;
// Fresh pages and the sanitizer's housekeeping fall on whatever input is there; one that is slow stays slow.
constexpr int TRIES = 3;
volatile sig_atomic_t at_work = 0;
volatile sig_atomic_t ticks = 0;
int own_stderr = STDERR_FILENO;

int64_t ns_of(clockid_t clock)
{
    timespec now{};
    clock_gettime(clock, &now);
    return now.tv_sec * int64_t{1'000'000'000} + now.tv_nsec;
}

[[noreturn]] void end(const char* what, const char* more = "")
{
    dprintf(own_stderr, "fuzz: %s%s\n", what, more);
    std::abort();
}

[[noreturn]] void too_slow() { end("the input takes longer than 10 ms"); }

void on_tick(int)
{
    ticks = ticks + 1;
    if (at_work != 0 && ticks > ENDLESS_TICKS) too_slow();
}

bool runs_in_time(const uint8_t* at, size_t bytes, clockid_t clock)
{
    input in(at, bytes);
    ticks = 0;
    at_work = 1;
    const int64_t began = ns_of(clock);
    run(in);
    const bool in_time = ns_of(clock) - began <= LIMIT_NS;
    at_work = 0;
    return in_time;
}

// An input that ends late is seen at its end, one that does not end at a tick.
void start_ticks()
{
    struct sigaction action {};
    action.sa_handler = on_tick;
    action.sa_flags = SA_RESTART;
    sigaction(SIGPROF, &action, nullptr);
    const itimerval every_tick{{0, TICK_NS / 1000}, {0, TICK_NS / 1000}};
    setitimer(ITIMER_PROF, &every_tick, nullptr);
}

} // namespace

void expect(bool holds, const char* what)
{
    if (!holds) end("does not hold: ", what);
}

} // namespace fuzz

// In the library's place, which writes and flushes: a hostile count of clients is worth a line for each, and nearly all
// of the time would go there.
void bm_dump_message(char* text)
{
    volatile size_t read = std::strlen(text);
    (void)read;
}

// No stacks of allocations: each of them costs, and a finding is replayed with them. What was freed stays away for the
// length of some hundred inputs, and not so long that every allocation meets cold memory.
extern "C" const char* __asan_default_options()
{
    return "malloc_context_size=1:max_malloc_fill_size=256:"
           "quarantine_size_mb=1:thread_local_quarantine_size_kb=256";
}

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    if (!zrk4::test::enter_ipc_namespace()) {
        std::perror("no IPC namespace");
        _exit(125);
    }
    fuzz::own_stderr = dup(STDERR_FILENO); // the fuzzer turns the library's away
    if (std::freopen("/dev/null", "w", stdout) == nullptr) _exit(125);
    fuzz::prepare();
    fuzz::start_ticks();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* at, size_t bytes)
{
    // The processor's clock takes the kernel, the one on the wall does not, and it is never behind.
    if (fuzz::runs_in_time(at, bytes, CLOCK_MONOTONIC)) return 0;
    for (int n = 0; n < fuzz::TRIES; ++n) {
        if (fuzz::runs_in_time(at, bytes, CLOCK_PROCESS_CPUTIME_ID)) return 0;
    }
    fuzz::too_slow();
}
