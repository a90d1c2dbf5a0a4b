/// @file
/// The one writer of time-stamped diagnostics.
#ifndef ZRK4_BM_MESSAGE_H
#define ZRK4_BM_MESSAGE_H

#include "bm_api.h"

extern "C" {
/// Writes date and time, a blank, `text` and a newline to standard output and flushes all output streams. It may block
/// as long as standard output does, or as long as another thread of the process sits in a read of a stream: call it
/// with no lock held.
BM_API void bm_dump_message(char* text);
}

#endif
