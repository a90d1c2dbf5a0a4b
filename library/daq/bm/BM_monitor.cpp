// Start and end of the monitor thread.
#include "BM.h"

#include <cstdio>

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
    const auto entry = [](void* bm) { return monitor_thread(static_cast<BM*>(bm)); };
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
    if (pid == 0) return false;
    const text_later texts;
    monitor_go = false;
    const thread_end end = signal_and_join(pid, [] { return false; });
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
    change_abort(SIG_BLOCK); // the stop's signal may come to one that ends by itself: not while it is taken apart
    return nullptr;
}
