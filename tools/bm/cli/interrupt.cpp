#include "cli/interrupt.h"

#include <atomic>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <ctime>

namespace bm {
namespace {

std::atomic<bool> was_interrupted{false};
struct sigaction before_int, before_term;

extern "C" void note(int) { was_interrupted = true; }

} // namespace

interrupt_watch::interrupt_watch()
{
    was_interrupted = false;
    struct sigaction action {};
    action.sa_handler = note; // without restart: a wait returns
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, &before_int);
    sigaction(SIGTERM, &action, &before_term);
}

interrupt_watch::~interrupt_watch()
{
    sigaction(SIGINT, &before_int, nullptr);
    sigaction(SIGTERM, &before_term, nullptr);
}

bool interrupt_watch::interrupted() { return was_interrupted; }

double interrupt_watch::steady_now()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

bool interrupt_watch::sleep_until(double steady_seconds)
{
    const double whole = std::floor(steady_seconds);
    const timespec until{static_cast<time_t>(whole), static_cast<long>((steady_seconds - whole) * 1e9)};
    while (!was_interrupted && clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {}
    return !was_interrupted;
}

} // namespace bm
