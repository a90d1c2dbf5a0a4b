/// @file
/// A door between processes or threads.
#ifndef ZRK4_TEST_LATCH_H
#define ZRK4_TEST_LATCH_H

#include <atomic>

#include "shared.h"

namespace zrk4::test {

/// Closed when made; once open it stays open. Parent, children forked later, and threads may open it and wait for it.
///
///     latch taken, go_on;
///     child holder([&] { part.gate(true); taken.open(); go_on.wait(); part.gate(false); });
///     taken.wait();
///
/// A wait that lasts too long throws, which fails the test in the parent and ends a child with a status that is not 0.
class latch {
  public:
    static constexpr int PATIENCE_MS = 20000;

    /// @param opens  how many calls of open() it takes, for a meeting of several
    explicit latch(int opens = 1) : needed_(opens) {}
    void open();
    /// @throws std::runtime_error after `patience_ms`
    void wait(int patience_ms = PATIENCE_MS) const;
    bool is_open() const { return opened_->load() >= needed_; }

  private:
    shared<std::atomic<int>> opened_;
    int needed_;
};

} // namespace zrk4::test

#endif
