/// @file
/// Failures of system calls at the wish of a test.
///
/// Calls that can be told to fail: bind, geteuid, gethostbyname_r, getsockname, pthread_create, recv, semctl, semget,
/// semop, sendto, setsockopt, shmat, shmctl, shmdt, shmget, socket. The library's own calls and the test's alike go through
/// here, so plan a failure right before the operation that shall meet it.
///
///     fault no_room = fault::fails("shmget", ENOSPC);             // the next call
///     fault full = fault::fails("semop", ERANGE, 3);              // the third from now
///     fault broken = fault::fails("semop", EINVAL, 1, FOR_EVER);  // every one
///     fault null = fault::returns("shmat", 0);                    // returns this, without a call into the kernel
///     fault race = fault::preceded("shmat", [&] { shmctl(id, IPC_RMID, nullptr); });   // runs, then the call is made
///     ...
///     EXPECT_EQ(no_room.fired(), 1);
///
/// One plan per call at a time; it ends with the object. Plans are copied by fork; under the thread sanitizer the
/// sanitizer's own thread in the child meets a plan for pthread_create, so make that one in the child. A call made by an action is not
/// counted and not met by a plan.
///
/// A program that knows nothing of this header takes its plans from the environment, one call each:
///     LD_PRELOAD=libZRK4faults.so ZRK4_FAULTS="shmget:28:1:1,recv:4:2:5" program      (call:errno:nth:times)
/// datagrams.h and trace.h tell what else the environment can ask for.
#ifndef ZRK4_TEST_FAULT_H
#define ZRK4_TEST_FAULT_H

#include <functional>
#include <memory>
#include <utility>

namespace zrk4::test {

enum { FOR_EVER = 1 << 30 };

/// Calls made since the program started, by the name of the call; those that were told to fail included.
__attribute__((visibility("default"))) long calls_of(const char* call);

/// A plan for one call, for the life of the object.
class __attribute__((visibility("default"))) fault {
  public:
    static fault fails(const char* call, int error, int nth = 1, int times = 1);
    static fault returns(const char* call, long value, int nth = 1, int times = 1);
    static fault preceded(const char* call, std::function<void()> action, int nth = 1, int times = 1);
    fault(fault&& other) noexcept : plan_(std::exchange(other.plan_, nullptr)), action_(std::move(other.action_)) {}
    fault& operator=(fault&&) = delete;
    ~fault();
    /// How often the plan has met a call.
    int fired() const;

  private:
    explicit fault(void* plan) : plan_(plan) {}

    void* plan_;
    std::unique_ptr<std::function<void()>> action_;
};

} // namespace zrk4::test

#endif
