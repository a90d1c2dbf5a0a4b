/// @file
/// A look at a partition's segment and semaphores from outside the library, as another program would see them.
#ifndef ZRK4_TEST_LIVE_SEGMENT_H
#define ZRK4_TEST_LIVE_SEGMENT_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace zrk4::test {

/// A segment attached by id beside the library's own mapping of it.
///
///     const live_segment seen(part_id);
///     EXPECT_EQ(seen.int32(4), 102);                    // by offset: the layout is the format under test
///     live_segment damaged(part_id, live_segment::WRITE);
///     damaged.put_int32(28, 7);
class live_segment {
  public:
    enum access { READ, WRITE };
    /// @throws std::runtime_error when it cannot be attached
    explicit live_segment(int shmid, access how = READ);
    ~live_segment();
    live_segment(const live_segment&) = delete;
    live_segment& operator=(const live_segment&) = delete;

    size_t size() const { return size_; }
    uint8_t byte(size_t offset) const;
    int32_t int32(size_t offset) const;
    /// The NUL-terminated text at `offset`, cut at `room` bytes.
    std::string text(size_t offset, size_t room = 256) const;
    std::string bytes(size_t offset, size_t count) const;
    void put_byte(size_t offset, uint8_t value);
    void put_int32(size_t offset, int32_t value);
    void put_bytes(size_t offset, const std::string& bytes);

  private:
    char* at(size_t offset, size_t count) const;

    char* start_ = nullptr;
    size_t size_ = 0;
};

/// Segment at a System V key, -1 when there is none.
int segment_at_key(int key);
/// Whether the segment / set still exists; one that is only waiting for its last detach does not.
bool segment_exists(int shmid);
bool semaphore_set_exists(int semid);
/// Mappings of the segment in all processes.
int attachments(int shmid);

/// Value of a semaphore / processes asleep in a decrement of it / number in the set; -1 when the set is gone.
int semaphore_value(int semid, int number);
int semaphore_waiters(int semid, int number);
int semaphores_in_set(int semid);
/// Adds to a semaphore without undo and without waiting, as a foreign process would. @return whether it could.
bool change_semaphore(int semid, int number, int by);

} // namespace zrk4::test

#endif
