/// @file
/// Runs points side by side, each in namespaces of its own. A point during which the host stood still is run again.
#ifndef ZRK4_SWEEP_RUNNER_H
#define ZRK4_SWEEP_RUNNER_H

#include <deque>
#include <functional>
#include <map>
#include <string>

#include <sys/types.h>

#include "trial.h"

namespace sweep {

class runner {
  public:
    using done = std::function<void(const trial_end&)>;

    explicit runner(int side_by_side) : limit_(side_by_side) {}
    ~runner();
    runner(const runner&) = delete;
    runner& operator=(const runner&) = delete;

    /// `when_done` may add more.
    void add(const point& at, done when_done) { waiting_.push_back({at, std::move(when_done), 0}); }
    /// Until all are done.
    void run();

  private:
    struct job {
        point at;
        done when_done;
        int tries;
    };
    struct running {
        job what;
        pid_t pid;
        std::string said;
        int64_t deadline_ms;
    };

    void start_one();
    void collect();
    void finish(int fd);

    int limit_;
    std::deque<job> waiting_;
    std::map<int, running> running_; ///< by the end of its pipe
};

} // namespace sweep

#endif
