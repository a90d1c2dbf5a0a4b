#include "scenario.h"

#include <cerrno>
#include <chrono>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <thread>

#include <sys/mman.h>
#include <unistd.h>

#include "fields.h"
#include "host.h"
#include "process.h"
#include "stock.h"

namespace call_faults {
namespace {

constexpr int PATIENCE_MS = 10'000, BACK_MS = 4'000;
constexpr int FEW_EVENTS = 4, MANY_EVENTS = 400;

template <class Condition> bool eventually(Condition condition, int patience_ms)
{
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(patience_ms);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > until) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

/// The counts that the processes of a host share.
class counts_file {
  public:
    counts_file() : fd_(memfd_create("counts", MFD_CLOEXEC))
    {
        if (fd_ < 0 || ftruncate(fd_, sizeof(shared_counts)) != 0)
            throw std::system_error(errno, std::generic_category(), "counts");
        at_ = mmap(nullptr, sizeof(shared_counts), PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0);
        if (at_ == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "counts");
    }
    ~counts_file()
    {
        munmap(at_, sizeof(shared_counts));
        close(fd_);
    }
    counts_file(const counts_file&) = delete;
    counts_file& operator=(const counts_file&) = delete;
    shared_counts* operator->() const { return static_cast<shared_counts*>(at_); }
    int fd() const { return fd_; }

  private:
    int fd_;
    void* at_;
};

class host {
  public:
    host(const programs& with, const point& where, std::string folder, bool careless)
        : with_(with), where_(where), folder_(std::move(folder)), careless_(careless)
    {
    }

    finding run()
    {
        set_up();
        first_round();
        retire_victim();
        count_met();
        if (found_.crashed || found_.hung) return found_; // what holds for the others then is what holds after a death
        second_round();
        if (!found_.stuck) take_stock();
        leave();
        return found_;
    }

    environment tracing; ///< for the role of the point, beside its failing call

  private:
    using member = std::unique_ptr<process>;

    member& of(const std::string& role) { return role == "master" ? master_ : role == "writer" ? writer_ : reader_; }

    environment victims_environment() const
    {
        environment extra = tracing;
        extra["LD_PRELOAD"] = with_.preload;
        extra["ZRK4_FAULT_LOG"] = folder_ + "/met";
        if (where_.is_datagram()) {
            extra["ZRK4_DATAGRAMS"] = where_.way;
        } else if (where_.error != 0) {
            extra["ZRK4_FAULTS"] = where_.call + ":" + std::to_string(where_.error) + ":" + std::to_string(where_.n);
        }
        return extra;
    }

    // A role that does not get ready has been refused something; in its place comes one that meets no failure.
    void start(const std::string& role, bool with_failure)
    {
        member& one = of(role);
        one = std::make_unique<process>(with_.role, role, careless_ && with_failure, counts_.fd(), folder_ + "/log",
                                        with_failure ? victims_environment() : environment{});
        if (one->hear(READY, PATIENCE_MS)) return;
        if (!with_failure) throw std::runtime_error(role + " cannot start, and nothing fails in it");
        note_end(one->ended(PATIENCE_MS));
        one.reset();
        retired_ = true;
        if (!found_.crashed && !found_.hung) start(role, false);
    }

    void set_up()
    {
        for (const char* role : {"master", "reader", "writer"}) {
            if (!found_.crashed && !found_.hung) start(role, where_.role == role);
        }
    }

    void note_end(const end_of_process& how)
    {
        found_.victim = how.words();
        found_.crashed = how.crashed();
        found_.hung = how.hung;
        found_.gave_up = how.code() != WELL;
    }

    // Events `from` to `to` - 1. @return whether the writer got to its end.
    bool send(int from, int to)
    {
        counts_->first_event = from;
        counts_->last_event = to;
        writer_->say(GO);
        return writer_->hear(FINISHED, PATIENCE_MS);
    }

    void first_round()
    {
        if (found_.crashed || found_.hung) return;
        const int events = where_.is_datagram() ? MANY_EVENTS : FEW_EVENTS;
        found_.sent = events;
        const bool all_sent = send(0, events);
        if (!all_sent && where_.role != "writer") found_.strange = true;
        // As far as they come: a datagram that is lost, or a reader that idles for a second, ends with the monitor.
        eventually([&] { return heard(0, events) == events; }, where_.is_datagram() ? 300 : all_sent ? 50 : 20);
        found_.heard = heard(0, events);
    }

    int heard(int from, int to)
    {
        int count = 0;
        for (int e = from; e < to; ++e) {
            const int calls = counts_->calls[e];
            if (calls > 1) found_.strange = true;
            count += calls == 0 ? 0 : 1;
        }
        return count;
    }

    // A master takes its partitions along: the others go before it, and come again after it.
    void retire_victim()
    {
        if (retired_ || found_.crashed || found_.hung) return;
        if (where_.role == "master") {
            dismiss(writer_);
            dismiss(reader_);
        }
        of(where_.role)->say(LEAVE);
        note_end(of(where_.role)->ended(PATIENCE_MS));
        of(where_.role).reset();
        retired_ = true;
        if (found_.crashed || found_.hung) return;
        start(where_.role, false);
        if (where_.role != "master") return;
        start("reader", false);
        start("writer", false);
    }

    void dismiss(member& one)
    {
        if (!one) return;
        one->say(LEAVE);
        const end_of_process how = one->ended(PATIENCE_MS);
        if (how.hung || how.code() != WELL) found_.strange = true;
        one.reset();
    }

    // Where the machine is so slow that the monitor ends an event before its reader gets the processor, another try counts.
    void second_round()
    {
        constexpr int TRIES = 5;
        found_.stuck = true;
        for (int i = 0; found_.stuck && i < TRIES; ++i) {
            const int from = MOST_EVENTS / 2 + i * FEW_EVENTS;
            const int to = from + FEW_EVENTS;
            if (!send(from, to)) break;
            found_.stuck = !eventually([&] { return heard(from, to) == FEW_EVENTS; }, PATIENCE_MS / TRIES);
        }
        if (counts_->strange != 0) found_.strange = true;
    }

    void take_stock()
    {
        const auto missing = [] {
            // Two clients have their slots.
            return proof::stock_of(DATA, false).missing() + proof::stock_of("ZRK4_EVENT_SLOTS", true).missing() +
                   proof::stock_of("ZRK4_CLIENT_SLOTS", true).missing() - 2;
        };
        eventually([&] { return missing() == 0; }, found_.gave_up ? 800 : BACK_MS);
        found_.missing = missing();
        heard(0, MOST_EVENTS); // nothing twice, also late
    }

    void leave()
    {
        dismiss(writer_);
        dismiss(reader_);
        dismiss(master_);
        found_.left = proof::left_behind();
    }

    void count_met()
    {
        std::ifstream in(folder_ + "/met");
        proof::for_each_line(in, [&](const proof::record_line&) { ++found_.kept_back; });
        found_.met = found_.kept_back > 0;
    }

    const programs& with_;
    const point& where_;
    const std::string folder_;
    const bool careless_;
    counts_file counts_;
    member master_, reader_, writer_; // the writer goes first
    bool retired_ = false;
    finding found_;
};

} // namespace

finding run_point(const programs& with, const point& where, const std::string& folder, bool careless)
{
    return host(with, where, folder, careless).run();
}

void trace_calls_of(const programs& with, const std::string& role, const std::string& folder)
{
    const point nothing_fails{role, "", 0, 0, ""};
    host undisturbed(with, nothing_fails, folder, false);
    undisturbed.tracing["ZRK4_FAULT_TRACE"] = folder + "/trace";
    undisturbed.run();
}

} // namespace call_faults
