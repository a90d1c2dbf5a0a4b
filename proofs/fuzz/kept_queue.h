/// @file
/// The free buffers of a partition, the same ones in the same order before every input.
#ifndef ZRK4_FUZZ_KEPT_QUEUE_H
#define ZRK4_FUZZ_KEPT_QUEUE_H

#include <cstring>
#include <string>

#include <sys/sem.h>

#include "partition_state.h"
#include "target.h"

namespace fuzz {

/// Control block, descriptors and count of free buffers as they are now, to be put back behind every input: an entry may
/// name any buffer of any partition, and the order of a queue would be that of the input before.
class kept_queue {
  public:
    explicit kept_queue(const C_shm_buffer& part)
        : semid_(zrk4::impl::control_of(part).gbl_semid),
          free_(semctl(semid_, gbl_empty, GETVAL)),
          at_(reinterpret_cast<char*>(part.get_bufptr()) - sizeof(C_shm_global)),
          bytes_(at_, static_cast<size_t>(part.buffer_addr(0) - at_))
    {
    }
    void put_back() const
    {
        std::memcpy(at_, bytes_.data(), bytes_.size());
        semun argument{};
        argument.val = free_;
        expect(semctl(semid_, gbl_empty, SETVAL, argument) == 0, "a set of semaphores");
    }

  private:
    int semid_;
    int free_;
    char* at_;
    std::string bytes_;
};

} // namespace fuzz

#endif
