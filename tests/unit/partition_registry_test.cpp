// What a process knows of its own handles: the chain and the counts per segment.
#include <cstdlib>
#include <memory>
#include <new>
#include <string>

#include <gtest/gtest.h>

#include "C_shm.h"
#include "captured_output.h"
#include "child.h"
#include "clean_namespace.h"
#include "live_segment.h"
#include "partition_ids.h"

using namespace zrk4::test;

// A sanitizer has its own way to get memory, which a program may not take over.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ZRK4_OWN_NEW 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ZRK4_OWN_NEW 0
#endif
#endif
#ifndef ZRK4_OWN_NEW
#define ZRK4_OWN_NEW 1

namespace {

bool no_memory = false;

} // namespace

// The registry asks for memory in this form alone.
void* operator new(size_t size, const std::nothrow_t&) noexcept
{
    if (no_memory) return nullptr;
    try {
        return ::operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
#endif

namespace {

constexpr int SOME_ID = 1 << 20; // no segment of this namespace

class PartitionRegistry : public CleanNamespace {};

TEST_F(PartitionRegistry, CountsHandlesPerSegment)
{
    C_shm any;
    EXPECT_EQ(any.add_shmid_entry(SOME_ID), 1) << "new";
    EXPECT_EQ(any.add_shmid_entry(SOME_ID), 0) << "counted up";
    EXPECT_EQ(any.add_shmid_entry(SOME_ID + 1), 1);
    EXPECT_EQ(registered(SOME_ID), 2);
    EXPECT_EQ(any.rem_shmid_entry(SOME_ID), 1) << "counted down";
    EXPECT_EQ(registered(SOME_ID + 1), 1) << "another segment's count is its own";
    EXPECT_EQ(any.rem_shmid_entry(SOME_ID), 0) << "the last one";
    EXPECT_EQ(registered(SOME_ID), 0);
    EXPECT_EQ(any.rem_shmid_entry(SOME_ID + 1), 0);
}

TEST_F(PartitionRegistry, UnknownSegmentIsReported)
{
    C_shm any;
    captured_output captured;
    EXPECT_EQ(any.rem_shmid_entry(SOME_ID), -1);
    EXPECT_EQ(captured.out(), "rem_shmid_entry() shmid: 1048576  NOT FOUND\n");
    EXPECT_EQ(captured.err(), "");
}

TEST_F(PartitionRegistry, KeepsTheOrderOfTheOthers)
{
    struct ids : C_shm {
        std::vector<int> of_ours() const
        {
            std::vector<int> found;
            for (const shmid_entry* entry : shmid_list) {
                if (entry->id >= SOME_ID) found.push_back(entry->id);
            }
            return found;
        }
    } any;
    for (int i = 0; i < 4; ++i) any.add_shmid_entry(SOME_ID + i);
    any.rem_shmid_entry(SOME_ID + 1);
    EXPECT_EQ(any.of_ours(), (std::vector<int>{SOME_ID, SOME_ID + 2, SOME_ID + 3}));
    for (int i : {0, 2, 3}) any.rem_shmid_entry(SOME_ID + i);
}

#if ZRK4_OWN_NEW
TEST_F(PartitionRegistry, EntryWithoutMemoryIsReported)
{
    C_shm any;
    captured_output captured;
    no_memory = true;
    const int result = any.add_shmid_entry(SOME_ID);
    no_memory = false;
    EXPECT_EQ(result, -1);
    EXPECT_EQ(captured.out(), "add_shmid_entry() failed to malloc()\n");
    EXPECT_EQ(registered(SOME_ID), 0);
}
#endif

TEST_F(PartitionRegistry, AttachedHandlesAreCountedByNameAndById)
{
    C_shm first("T_ONE", 1, 1, false);
    C_shm second("T_ONE");
    C_shm other("T_OTHER", 1, 1, false);
    C_shm detached;
    EXPECT_EQ(first.attaches("T_ONE"), 2);
    EXPECT_EQ(detached.attaches("T_OTHER"), 1);
    EXPECT_EQ(first.attaches("T_ABSENT"), 0);
    EXPECT_EQ(first.attaches(static_cast<const char*>(nullptr)), 0);
    EXPECT_EQ(other.attaches(shmid_of(first)), 2);
    EXPECT_EQ(other.attaches(SOME_ID), 0);
    second.release();
    EXPECT_EQ(first.attaches("T_ONE"), 1);
}

TEST_F(PartitionRegistry, HandlesLeaveTheChainInAnyOrder)
{
    auto a = std::make_unique<C_shm>("T_CHAIN", 1, 1, false);
    auto b = std::make_unique<C_shm>("T_CHAIN");
    auto c = std::make_unique<C_shm>("T_CHAIN");
    b.reset();
    EXPECT_EQ(a->attaches("T_CHAIN"), 2);
    a.reset();
    EXPECT_EQ(c->attaches("T_CHAIN"), 1);
    a = std::make_unique<C_shm>("T_CHAIN");
    c.reset();
    EXPECT_EQ(a->attaches("T_CHAIN"), 1);
}

// Afterwards the process has two mappings and one count for both; the mapping that stays ends with the child.
void use_a_flushed_chain()
{
    C_shm old("T_FLUSHED", 1, 1, false);
    const int id = shmid_of(old);
    old.flush();
    EXPECT_EQ(old.attaches("T_FLUSHED"), 0);
    EXPECT_EQ(old.attaches(id), 0);
    {
        C_shm fresh("T_FLUSHED");
        EXPECT_EQ(fresh.attaches(id), 1) << "only what came later";
        EXPECT_EQ(attachments(id), 2) << "a mapping of its own";
        EXPECT_EQ(registered(id), 2);
    }
    EXPECT_EQ(old.getStat("freebuf"), "1") << "its mapping is still there";
    old.release();
    EXPECT_FALSE(segment_exists(id));
}

TEST_F(PartitionRegistry, FlushedChainShowsNoHandleAndNoneMissesIt)
{
    child process(use_a_flushed_chain);
    EXPECT_EQ(process.wait(), 0);
}

} // namespace
