/// @file
/// Removal of a partition by its name.
#ifndef ZRK4_C_SHM_KILL_H
#define ZRK4_C_SHM_KILL_H

#include "C_shm.h"

/// Removes a partition from the system: the constructor zeroes its use count, the destructor's release then finds no
/// user and destroys it, unless another process raised the count meanwhile. Other handles of this process on the same
/// partition lose their attachment with it.
class BM_API C_shm_kill : public C_shm {
  public:
    /// @param name  partition name; null removes nothing.
    explicit C_shm_kill(const char* name)
    {
        if (name != nullptr) Zeuss(name);
    }
};

#endif
