/// @file
/// What a partition says of itself, as text.
#ifndef ZRK4_IMPL_PARTITION_REPORT_H
#define ZRK4_IMPL_PARTITION_REPORT_H

#include <iosfwd>
#include <string>

#include "C_shm_int.h"

namespace zrk4::impl {

/// The words of the mode bits, "-" for none.
std::string mode_words(int32_t status);

/// Control block and descriptors. REQUIRES: the descriptors stand behind the control block, as many as it says.
void dump_partition(std::ostream& os, const C_shm_global& control);

} // namespace zrk4::impl

#endif
