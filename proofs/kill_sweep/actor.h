/// @file
/// A process that takes part in a point: it does what it is asked to, one order after the other.
#ifndef ZRK4_SWEEP_ACTOR_H
#define ZRK4_SWEEP_ACTOR_H

#include <cstdint>

#include "board.h"
#include "point.h"

namespace sweep {

enum class order : int32_t {
    become_master,       ///< set_master, not yet init
    become_small_master, ///< the same, with limits that are too small for the others
    join,                ///< init
    make_data,           ///< the partition of the blocks is found or made
    attach_data,
    subscribe_reader, ///< a: which blocks it wants: 0 all, 1 those of writer 0, 2 that of writer 1
    crowd,            ///< takes all client slots that are left, for events that nobody makes
    subscribe_writer, ///< a: writer 0, 1 or 2
    unsubscribe_reader,
    unsubscribe_writer,
    send,           ///< a: event; the blocks of this writer
    write_two,      ///< a: first event of two
    make_two,       ///< makes two more partitions
    use_two,        ///< takes all buffers of both, once each, and gives them back
    use_data,       ///< the same with the partition of the blocks
    take_one,       ///< @return number of a buffer of the data partition that is kept
    give_back,      ///< a: number of a buffer of the data partition
    fill,           ///< a: event; a buffer is taken and holds a block of it, and is kept
    find,           ///< the kept block's event slot is found or made, and remembered
    enter,          ///< the kept block enters that slot
    free_slot,      ///< that slot
    return_foreign, ///< the first block of that slot, early
    put_back,       ///< the kept block's buffer, if there is one
    leave,          ///< all_clean_up
    end             ///< the process ends
};

struct command {
    order what;
    int32_t a;
    int32_t marked; ///< not 0: a mark before and after, for the tracer
};

struct reply {
    int32_t answer; ///< below 0: it failed
    int64_t micros; ///< that it took
};

/// The call that is the mark: nothing else makes it, and it changes nothing.
long mark_number();

extern const char* const DATA_NAME;
extern const char* const MADE_NAMES[2];
inline constexpr int DATA_BUFFERS = 16;
inline constexpr int MADE_BUFFERS = 5;
inline constexpr int PERIOD_US = 50'000;

/// Runs until it is told to end, or the line is closed.
/// @param line    socket: commands come in, replies go out
/// @param number  of a reader: its row on the board
/// @param show    says every cycle of its monitor
void act(int line, const setting& in, uint32_t first_second, int number, bool show, board& common);

} // namespace sweep

#endif
