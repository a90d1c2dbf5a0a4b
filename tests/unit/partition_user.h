/// @file
/// Another process with access to a partition.
#ifndef ZRK4_TEST_PARTITION_USER_H
#define ZRK4_TEST_PARTITION_USER_H

#include <gtest/gtest.h>

#include "C_shm.h"
#include "child.h"
#include "latch.h"

namespace zrk4::test {

/// A user of the named partition, until it is told to leave or dies.
class other_user {
  public:
    explicit other_user(const char* name)
        : process_([this, name] {
              const C_shm part(name);
              EXPECT_EQ(part.valid(), 1);
              in_.open();
              leave_.wait();
          })
    {
        in_.wait();
    }
    void leave()
    {
        leave_.open();
        EXPECT_EQ(process_.wait(), 0);
    }
    void kill_now() { process_.kill_now(); }

  private:
    latch in_, leave_;
    child process_;
};

} // namespace zrk4::test

#endif
