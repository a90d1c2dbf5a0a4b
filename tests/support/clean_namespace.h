/// @file
/// A test case after which nothing may be left in the namespace.
#ifndef ZRK4_TEST_CLEAN_NAMESPACE_H
#define ZRK4_TEST_CLEAN_NAMESPACE_H

#include <gtest/gtest.h>

#include "ipc_namespace.h"

namespace zrk4::test {

/// Base of test cases that make partitions: fails when a case leaves a segment (also one that is removed but still
/// mapped) or a semaphore set behind. A case that leaves one on purpose says so with clear_ipc_namespace() at its end.
class CleanNamespace : public testing::Test {
  protected:
    // In constructor and destructor: members of the derived fixture may be partitions.
    CleanNamespace() { clear_ipc_namespace(); }
    ~CleanNamespace() override
    {
        EXPECT_EQ(segments_in_namespace(), 0) << "segments left behind";
        EXPECT_EQ(semaphore_sets_in_namespace(), 0) << "semaphore sets left behind";
        clear_ipc_namespace();
    }
};

} // namespace zrk4::test

#endif
