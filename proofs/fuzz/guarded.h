/// @file
/// Buffers of partitions whose surroundings may not be touched.
#ifndef ZRK4_FUZZ_GUARDED_H
#define ZRK4_FUZZ_GUARDED_H

#include <string>
#include <vector>

#include "BM.h"
#include "input.h"

namespace fuzz {

/// While one lives, this buffer may be read and written. The sanitizer reports the first byte behind it.
class open_buffer {
  public:
    open_buffer(char* at, size_t bytes);
    ~open_buffer();
    open_buffer(const open_buffer&) = delete;
    open_buffer& operator=(const open_buffer&) = delete;

  private:
    char* at_;
    size_t bytes_;
};

/// What may not be touched: every buffer that is not open, or only what lies behind the last one. The latter where an
/// input may name any buffer that there is.
enum class guard { all_buffers, end };
void set_guard(const C_shm_buffer& part, guard what);

/// What the library calls readable lies in an open buffer, all of it. Asked, not read: a compiler leaves out reads that
/// nobody needs.
void expect_readable(const void* at, size_t bytes);

/// Data partitions of many lengths, from too short for a head on; buffers begin at all alignments.
class data_partitions {
  public:
    data_partitions(BM& bm, guard what);

    struct place {
        int id;
        int bnum;
        char* at;
        size_t bytes;
    };
    /// Of these, one of them: both numbers exist.
    place one(input& in) const;
    static constexpr int BUFFERS = 8;

  private:
    std::vector<C_shm_buffer*> parts_;
    std::vector<int> ids_;
};

} // namespace fuzz

#endif
