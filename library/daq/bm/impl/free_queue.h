/// @file
/// What makes a buffer a free one.
#ifndef ZRK4_IMPL_FREE_QUEUE_H
#define ZRK4_IMPL_FREE_QUEUE_H

#include "C_shm_int.h"

namespace zrk4::impl {

/// Makes buffer `i` free: appends it to the free queue. REQUIRES: the gate; the buffer is in no queue.
inline void append_free(C_shm_global& control, C_shm_buf* bufs, int i)
{
    C_shm_buf& buf = bufs[i];
    buf.link = -1;
    buf.use_count = 0;
    buf.ldata = 0;
    buf.trig = 0;
    buf.status |= BUF_QUEUED;
    control.free.link(bufs, i);
}

} // namespace zrk4::impl

#endif
