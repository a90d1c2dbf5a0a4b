/// @file
/// The exception of the partition layer.
#ifndef ZRK4_SYSERROR_H
#define ZRK4_SYSERROR_H

#include <stdexcept>

#include "bm_api.h"

/// An operation on a semaphore failed in a way that its caller cannot mend: as a rule the set was removed under it.
class BM_API SysError : public std::runtime_error {
  public:
    /// The message is the text of the current `errno`.
    SysError();
    SysError(const SysError&) = default;
    SysError& operator=(const SysError&) = default;
    ~SysError() override;
};

#endif
