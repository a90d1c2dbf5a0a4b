#include "latch.h"

#include <chrono>
#include <ctime>
#include <stdexcept>

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace zrk4::test {
namespace {

using clock = std::chrono::steady_clock;

// Not the private forms: the word is in memory shared by processes.
void sleep_while(std::atomic<int>& word, int value, clock::duration at_most)
{
    const auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(at_most).count();
    const timespec timeout{ns / 1000000000, ns % 1000000000};
    syscall(SYS_futex, &word, FUTEX_WAIT, value, &timeout, nullptr, 0);
}

void wake_all(std::atomic<int>& word) { syscall(SYS_futex, &word, FUTEX_WAKE, 1 << 30, nullptr, nullptr, 0); }

} // namespace

void latch::open()
{
    opened_->fetch_add(1);
    wake_all(*opened_);
}

void latch::wait(int patience_ms) const
{
    const auto until = clock::now() + std::chrono::milliseconds(patience_ms);
    for (int opened = opened_->load(); opened < needed_; opened = opened_->load()) {
        const auto left = until - clock::now();
        if (left <= clock::duration::zero()) throw std::runtime_error("latch: waited too long");
        sleep_while(*opened_, opened, left);
    }
}

} // namespace zrk4::test
