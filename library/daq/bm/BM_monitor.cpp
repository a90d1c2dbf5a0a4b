// Start and end of the monitor thread.
#include "BM.h"

#include <cstdio>
#include <utility>

#include "bm_core.h"
#include "signal_thread.h"
#include "text_later.h"

using namespace zrk4::impl;

std::atomic<bool> zrk4::impl::monitor_go{false};

// The reader's thread is stopped by the same signal, and the last start of either thread installed the handler: a
// signal taken in a reader thread does not end the monitor.
void monitor_int_handler(int signal)
{
    if (signal == SIGABRT && !is_reader_thread) monitor_go = false;
}

namespace {

bool never_busy() { return false; }

} // namespace

bool BM::start_monitor()
{
    const text_later texts;
    struct sigaction action {};
    action.sa_handler = monitor_int_handler;
    sigemptyset(&action.sa_mask);
    sigaddset(&action.sa_mask, SIGABRT);
    action.sa_flags = 0;
    sigaction(SIGABRT, &action, nullptr);
    const sigset_t before = change_abort(SIG_UNBLOCK);
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) {
        say_plain("Failed to init attribute for the monitor thread\n");
        return true; // the mask stays as it is now: deliberate
    }
    monitor_go = true;
    if (pid != 0) own->earlier_monitors.push_back(pid);
    const auto entry = [](void* bm) {
        void* const result = monitor_thread(static_cast<BM*>(bm));
        change_abort(SIG_BLOCK); // the stop's signal may come to one that ends by itself: not while it is taken apart
        return result;
    };
    const bool failed = pthread_create(&pid, &attributes, entry, this) != 0;
    if (failed) {
        say_plain("Failed to start monitor thread\n");
        pid = 0;
        monitor_go = false;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_attr_destroy(&attributes);
    return failed;
}

bool BM::stop_monitor()
{
    if (pid == 0 && own->earlier_monitors.empty()) return false;
    const text_later texts;
    monitor_go = false;
    // Those whose place a further start took are left by nobody else: they would work on for an object that has gone.
    for (const pthread_t earlier : std::exchange(own->earlier_monitors, {})) signal_and_join(earlier, never_busy);
    if (pid == 0) return false;
    const thread_end end = signal_and_join(pid, never_busy);
    if (end == thread_end::not_signalled)
        say_plain("Failed to kill my monitoring thread: %ld\n", static_cast<long>(pid));
    if (end == thread_end::not_joined) say_plain("Joining monitoring thread failed \n");
    pid = 0;
    return false;
}

void* monitor_thread(BM* bm)
{
    block_program_signals();
    bm->monitor_exec();
    return nullptr;
}
