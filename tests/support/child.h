/// @file
/// A process that runs a part of a test.
#ifndef ZRK4_TEST_CHILD_H
#define ZRK4_TEST_CHILD_H

#include <functional>

#include <sys/types.h>

namespace zrk4::test {

/// A forked process that runs `body` and ends. Make it before this process starts any thread: a fork beside threads
/// inherits locked mutexes, and the thread sanitizer refuses it.
///
///     child writer([&] { C_shm_buffer part("T_DATA"); EXPECT_FALSE(!part); });
///     EXPECT_EQ(writer.wait(), 0);
///
/// The body sees copies of this process's variables (`shared` and `latch` are common) and of its handles. It ends
/// without running destructors of statics, with status
///   0   the body returned and no expectation failed in it
///   1   an expectation failed in it
///   3   an exception left it
///   128 + n   signal n ended it
/// Whoever makes a child ends it: the destructor kills and reaps, and the kernel kills it when its parent dies.
class child {
  public:
    static constexpr int PATIENCE_MS = 20000;

    explicit child(const std::function<void()>& body);
    ~child() { kill_now(); }
    child(const child&) = delete;
    child& operator=(const child&) = delete;

    pid_t pid() const { return pid_; }
    /// Waits for the end. @return the status as above; after `patience_ms` the test has failed and the child is killed.
    int wait(int patience_ms = PATIENCE_MS);
    /// SIGKILL, and reaps: when it returns the process is gone, and what the kernel undoes at a death is undone.
    void kill_now();
    void send(int signal) const;
    /// Stops it (SIGSTOP) and returns when it stands still / lets it go on and returns when it was told to.
    void stop() const;
    void go_on() const;

  private:
    void reap();

    pid_t pid_ = -1;
    int pidfd_ = -1; // -1: reaped
    int status_ = -1;
};

} // namespace zrk4::test

#endif
