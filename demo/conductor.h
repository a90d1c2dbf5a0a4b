/// @file
/// Starts the processes of a run, ends it, and takes stock.
#ifndef ZRK4_DEMO_CONDUCTOR_H
#define ZRK4_DEMO_CONDUCTOR_H

#include <cstdint>
#include <string>
#include <vector>

#include "process.h"
#include "roles.h"
#include "summary.h"

namespace demo {

/// SIGINT, SIGTERM, SIGHUP and SIGCHLD as something to wait for. They stay blocked in all children: what a terminal sends to
/// the whole group ends the run in order and not in the middle of it.
class signal_watch {
  public:
    signal_watch();
    ~signal_watch();
    signal_watch(const signal_watch&) = delete;
    signal_watch& operator=(const signal_watch&) = delete;
    int fd() const { return fd_; }
    /// @return the signal that came, 0 when none did.
    int taken() const;

  private:
    int fd_;
};

/// One run. This process has no buffer manager: it only forks, listens and reads the segments from outside.
class conductor {
  public:
    conductor(const settings& how, const std::string& prefix);
    ~conductor();
    conductor(const conductor&) = delete;
    conductor& operator=(const conductor&) = delete;
    run_figures run();

  private:
    void set_up();
    void start(const char* kind, const std::string& name, const role& body);
    void measure();
    void drain();
    void dismiss(size_t from, size_t to);
    run_figures take_stock();
    bool meet(size_t from, size_t to, char letter, int patience_ms);
    bool hears(const process& one, char letter);
    void on_signal(int signal);
    void fail(const std::string& what) { failures_.push_back(what); }
    bool failed() const { return one_died_ || !failures_.empty(); }
    void tell(size_t from, size_t to, char letter);
    std::vector<expected_partition> partitions() const;

    settings how_;
    run_record record_;
    run_context context_;
    signal_watch signals_;
    std::vector<process> processes_; ///< the master, the readers, the writers, the run control
    std::vector<std::string> failures_;
    int64_t patient_until_ns_ = 0;
    bool interrupted_ = false;
    bool one_died_ = false;
};

} // namespace demo

#endif
