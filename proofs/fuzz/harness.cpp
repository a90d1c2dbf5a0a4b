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
constexpr int64_t ENDLESS_NS = 10 * LIMIT_NS;
// Fresh pages and the sanitizer's housekeeping fall on whatever input is there; one that is slow stays slow.
constexpr int TRIES = 3;
volatile sig_atomic_t at_work = 0;
int64_t began_ns = 0;

int64_t processor_ns()
{
    timespec used{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    return used.tv_sec * int64_t{1'000'000'000} + used.tv_nsec;
}

[[noreturn]] void too_slow()
{
    constexpr char TEXT[] = "fuzz: the input takes longer than 10 ms\n";
    (void)!write(STDERR_FILENO, TEXT, sizeof TEXT - 1);
    std::abort();
}

void on_tick(int)
{
    if (at_work != 0 && processor_ns() - began_ns > ENDLESS_NS) too_slow();
}

bool runs_in_time(const uint8_t* at, size_t bytes)
{
    input in(at, bytes);
    began_ns = processor_ns();
    at_work = 1;
    run(in);
    at_work = 0;
    return processor_ns() - began_ns <= LIMIT_NS;
}

// An input that ends late is seen at its end, one that does not end at a tick.
void start_ticks()
{
    struct sigaction action {};
    action.sa_handler = on_tick;
    action.sa_flags = SA_RESTART;
    sigaction(SIGPROF, &action, nullptr);
    const itimerval every_10_ms{{0, 10000}, {0, 10000}};
    setitimer(ITIMER_PROF, &every_10_ms, nullptr);
}

} // namespace

void expect(bool holds, const char* what)
{
    if (holds) return;
    std::fprintf(stderr, "fuzz: does not hold: %s\n", what);
    std::abort();
}

} // namespace fuzz

// In the library's place, which writes and flushes: a hostile count of clients is worth a line for each, and nearly all
// of the time would go there.
void bm_dump_message(char* text)
{
    volatile size_t read = std::strlen(text);
    (void)read;
}

// Short stacks of allocations: each of them costs, and a finding is replayed anyway. What was freed stays away for the
// length of some hundred inputs, and not so long that every allocation meets cold memory.
extern "C" const char* __asan_default_options() { return "malloc_context_size=3:quarantine_size_mb=8"; }

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    if (!zrk4::test::enter_ipc_namespace()) {
        std::perror("no IPC namespace");
        _exit(125);
    }
    if (std::freopen("/dev/null", "w", stdout) == nullptr) _exit(125);
    fuzz::prepare();
    fuzz::start_ticks();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* at, size_t bytes)
{
    for (int n = 0; n < fuzz::TRIES; ++n) {
        if (fuzz::runs_in_time(at, bytes)) return 0;
    }
    fuzz::too_slow();
}
