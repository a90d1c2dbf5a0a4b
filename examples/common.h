/// @file
/// What the examples share: options, an end in order when a signal comes, a reader's wait for its events, the sizes that
/// all processes of a host agree on, the two forms of a slot, and the buffers of a writer.
#ifndef ZRK4_EXAMPLES_COMMON_H
#define ZRK4_EXAMPLES_COMMON_H

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "BM.h"
#include "sb_view.h"
#include "sb_write.h"

/// "--name value" pairs of the command line.
class options {
  public:
    options(int argc, char** argv)
    {
        for (int i = 1; i + 1 < argc; i += 2) given_[argv[i]] = argv[i + 1];
    }
    std::string text(const std::string& name, const std::string& otherwise) const
    {
        const auto at = given_.find("--" + name);
        return at == given_.end() ? otherwise : at->second;
    }
    int number(const std::string& name, int otherwise) const
    {
        return std::stoi(text(name, std::to_string(otherwise)));
    }

  private:
    std::map<std::string, std::string> given_;
};

/// What ends a program from outside; SIGPIPE, when nobody reads its output any more. With nohup a program outlives its
/// terminal: waiting for a signal would undo that.
inline sigset_t end_signals()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGPIPE);
    struct sigaction hang_up {};
    sigaction(SIGHUP, nullptr, &hang_up);
    if (hang_up.sa_handler != SIG_IGN) sigaddset(&set, SIGHUP);
    return set;
}

/// @return the signal that tells the program to end, when one comes in that time, else 0.
inline int end_signal_within(std::chrono::nanoseconds time)
{
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
    const timespec limit{seconds.count(), (time - seconds).count()};
    const sigset_t set = end_signals();
    return std::max(0, sigtimedwait(&set, nullptr, &limit));
}

struct told_to_end {
    int signal;
};

/// Every wait of the examples. A signal leaves it as an exception, so that all that the program holds goes back on the
/// way out: a process that a signal ends where it stands stays a user of its partitions for ever, and they stay with it.
inline void pause_ms(int ms)
{
    if (const int signal = end_signal_within(std::chrono::milliseconds(ms))) throw told_to_end{signal};
}

inline void pause_until(std::chrono::system_clock::time_point due)
{
    using namespace std::chrono;
    do {
        pause_ms(static_cast<int>(std::max<int64_t>(0, ceil<milliseconds>(due - system_clock::now()).count())));
    } while (system_clock::now() < due);
}

/// Tells whoever started the program that it is ready.
inline void say_ready()
{
    std::puts("ready");
    std::fflush(stdout);
}

/// The events that a reader has seen, of as many as it is to see: its thread counts, the program waits.
class event_count {
  public:
    explicit event_count(const options& given) : wanted_(given.number("events", 10)) {}
    void operator++()
    {
        std::fflush(stdout);
        ++seen_;
    }
    void wait_for_all() const
    {
        while (seen_ < wanted_) pause_ms(1);
    }

  private:
    const int wanted_;
    std::atomic<int> seen_{0};
};

/// What a reader does once it has subscribed. @return exit status.
inline int see_events(BM& bm, ZRK4_EVTYPE type, const event_count& seen)
{
    say_ready();
    seen.wait_for_all();
    bm.unsubscribe(type, CLI_T_READER);
    return 0;
}

/// Runs a program. @return its exit status.
inline int run_in_order(int argc, char** argv, const std::function<int(const options&)>& program)
{
    const sigset_t set = end_signals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr); // before there are threads: one that does not wait would take it
    try {
        return program(options(argc, argv));
    } catch (const told_to_end& end) {
        return 128 + end.signal; // as shells say it
    } catch (const std::exception& wrong) {
        std::fprintf(stderr, "%s: %s\n", argv[0], wrong.what());
        return 1;
    }
}

/// Generation, time mask and sizes: the same in every process that shares the slot partitions, and before `init`. The
/// default sizes are more than a stock kernel grants.
inline void configure(BM& bm, const options& given)
{
    bm.set_evid_64bit_mode(given.number("records", 2024) == 2024);
    bm.set_time_mask(1000); // microseconds: well below half the time between two events
    bm.set_nclients(16);
    bm.set_ncl_slots(64);
    bm.set_nblocks(16);
    bm.set_rate(20);
}

/// The form of the blocks that a process writes: that of its slots.
inline zrk4::sb_form form_of(BM& bm)
{
    return bm.get_evid_64bit_mode() ? zrk4::sb_form::of_2024 : zrk4::sb_form::of_2010;
}
/// @return number of entries of the event that a handler was given.
inline int blocks_in(bool form_2024, const void* head)
{
    return form_2024 ? static_cast<const zrk4_event_slot_head_2024*>(head)->sbfilled
                     : static_cast<const zrk4_event_slot_head*>(head)->sbfilled;
}

inline int type_of(bool form_2024, const void* head)
{
    return form_2024 ? static_cast<const zrk4_event_slot_head_2024*>(head)->evtype
                     : static_cast<const zrk4_event_slot_head*>(head)->evtype;
}

/// The names of the writers' partitions begin alike: by that the master tells them from those of others.
inline const std::string PARTITIONS = "EXAMPLE_";

/// @return a buffer of the partition, as soon as one is free. The partition's id goes in: without it the pool would also
/// hand out a free event slot as a buffer.
inline char* wait_for_buffer(BM& bm, int bytes, int partition, int& number)
{
    for (;; pause_ms(1)) {
        if (char* at = bm.get_buffer_from_pool(BM_NO_WAIT, bytes, &partition, &number)) return at;
        if (bm.find_by_id(partition) == nullptr) throw std::runtime_error("the exchange is gone: has the master left?");
    }
}

/// Returns when no buffer of the partition is in an event any more: when all of them can be had at once. A writer does
/// so before it leaves: a partition goes with its last user, and a reader becomes one when the first block comes to it.
inline void wait_until_all_are_back(BM& bm, int partition, int buffers)
{
    std::vector<int> taken(static_cast<size_t>(buffers), -1);
    for (int& number : taken) wait_for_buffer(bm, 0, partition, number);
    for (const int number : taken) bm.return_buffer_in_pool(number, partition);
}

#endif
