/// @file
/// What each call is told to do. Atomics throughout: the calls come from every thread of the program under test.
#ifndef ZRK4_TEST_PLANS_H
#define ZRK4_TEST_PLANS_H

#include <atomic>
#include <functional>

namespace zrk4::test {

struct plan {
    enum what { FAIL, RETURN, PRECEDE };

    const char* call;
    std::atomic<long> calls{0};
    std::atomic<int> to_pass{0}; ///< calls that go through before the plan begins
    std::atomic<int> times{0};   ///< calls that it still meets; 0 = no plan
    std::atomic<int> fired{0};
    // Set before `times`, read after it.
    what kind = FAIL;
    long value = 0; ///< errno or result
    const std::function<void()>* action = nullptr;
};

plan& plan_of(const char* call);

/// How the caller of the system call goes on.
enum class verdict { call_it, fail_with_errno, give_value };

/// Counts the call and tells what to do with it; `value` is the errno or the result.
verdict judge(plan& p, long& value);

} // namespace zrk4::test

#endif
