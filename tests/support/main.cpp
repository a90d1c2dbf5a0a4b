// Entry of every test program: touches nobody else's segments, and ends in bounded time also when no CTest watches.
#include <cstdint>
#include <cstdio>
#include <thread>

#include <gtest/gtest.h>
#include <unistd.h>

#include "ipc_namespace.h"

// Present in a sanitizer build: its report must not end in the text that a test has captured.
extern "C" __attribute__((weak)) void __sanitizer_set_report_fd(void* fd);
extern "C" __attribute__((weak)) void __tsan_init();

namespace {

constexpr int NO_NAMESPACE = 125;         // SKIP_RETURN_CODE
constexpr unsigned WHOLE_PROGRAM_S = 240; // for all cases of a program in one go under a sanitizer; CTest allows one 60

} // namespace

int main(int argc, char** argv)
{
    if (__sanitizer_set_report_fd != nullptr)
        __sanitizer_set_report_fd(reinterpret_cast<void*>(static_cast<intptr_t>(dup(2))));
    testing::InitGoogleTest(&argc, argv);
    if (!GTEST_FLAG_GET(list_tests) && !zrk4::test::enter_ipc_namespace()) {
        std::perror("no IPC namespace");
        return NO_NAMESPACE;
    }
    // The thread sanitizer starts a thread of its own with the program's first: it would meet the plan for that one.
    if (__tsan_init != nullptr) std::thread([] {}).join();
    alarm(WHOLE_PROGRAM_S);
    return RUN_ALL_TESTS();
}
