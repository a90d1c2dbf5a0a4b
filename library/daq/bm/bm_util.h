/// @file
/// What a reader program calls on the events that it is given: parameters and channels of server blocks, and the
/// process's own copies of the run-control blocks.
///
/// `slot` and `entries` are what the event callback was given. Every output may be null and is then not written. A block
/// that cannot be had is stepped over like a hole; none is read past the end of its buffer.
///
/// Threads: any thread of the process. The copies and the slow channels share one mutex, held for one sub-block or one
/// query at a time; the other functions take none and read the blocks in place, without a copy.
#ifndef ZRK4_BM_UTIL_H
#define ZRK4_BM_UTIL_H

#include "BM_int.h"
#include "bm_api.h"
#include "event.h"

class BM;

extern "C" {

/// The run-control blocks that this process keeps, each a whole sub-block on the heap or null. To read one beside
/// threads that query or update, stop those first: the mutex is the library's own.
extern BM_API char* local_dict_copy_;
extern BM_API char* local_env_copy_;
extern BM_API char* local_upd_copy_;
extern BM_API char* local_bor_copy_;
extern BM_API char* local_eor_copy_;

/// Call once before the first query; again to start afresh.
BM_API void bm_util_init();
/// Frees every local copy.
BM_API void clean_local_copies();
/// Brings the local copies up to date from the server blocks of one event, each read by its own form.
///
/// The first dictionary, begin-of-run, end-of-run and update block make their copies, and an environment block makes its
/// own once there is a dictionary. Copies stay until `clean_local_copies`; what changes is the values in two of them: the
/// environment copy's by later environment blocks, the update copy's by the update blocks of end-of-run and update events.
/// @param h10, h24  out: the last block visited, in the output of its form; the other one null
/// @return false; TRUE MEANS FAILURE, with a line on standard output: no memory, or a merge that failed; also, at the
///         first block and without a line, for an event type that carries no run-control blocks: outputs stay then.
BM_API bool update_local_copies(zrk4_event_slot_head_2024* slot, zrk4_client_sblock_data* entries, BM* bm,
                                zrk4_serv_block_head_2010** h10, zrk4_serv_block_head_2024** h24);
/// The same for a 2010 slot, every block read as a 2010 block.
BM_API bool update_local_copies_2010(zrk4_event_slot_head* slot, zrk4_client_sblock_data* entries, BM* bm,
                                     zrk4_serv_block_head_2010** h10);

/// Head parameters of the first block whose entry is named `name`. The slot may be of either form.
/// @param length  out: bytes behind the block's head, cut to 32 bits; negative for a corrupt block
/// @return 0 found, 1 not found; outputs stay then.
BM_API int get_sb_param(zrk4_event_slot_head_2024* slot, zrk4_client_sblock_data* entries, char* name, BM* bm,
                        time_stamp* time, int* length, long* evid, int* tmask, int* status, int* nchan);
/// @return number of server blocks without any sub-block; 0 for run-control events. The slot may be of either form.
BM_API int check_bad_sb_data(zrk4_event_slot_head_2024* slot, zrk4_client_sblock_data* entries, BM* bm);

/// Searches the event for data channel `channel`.
/// @param name  null: any block; not empty: only blocks whose entry is named so; empty: any, and 256 bytes that receive
///              the name of the entry in which the channel was found (no NUL behind a name of 256 characters)
/// @param h10, h24  out: the block in which it was found, in the output of its form; the other one null
/// @return the channel's sub-head, in shared memory, with `ldata` - 268 bytes of data behind it, until the event is
///         returned; null when not found, in a run-control event, or when a sub-block before it is corrupt, which two
///         lines on standard output report.
BM_API zrk4_serv_block_subhead_2010* get_fast_channel_data_2024(zrk4_event_slot_head_2024* slot,
                                                                zrk4_client_sblock_data* entries, char* name,
                                                                char* channel, BM* bm, zrk4_serv_block_head_2010** h10,
                                                                zrk4_serv_block_head_2024** h24);
/// The same for a 2010 slot, every block read as a 2010 block.
BM_API zrk4_serv_block_subhead_2010* get_fast_channel_data(zrk4_event_slot_head* slot, zrk4_client_sblock_data* entries,
                                                           char* name, char* channel, BM* bm,
                                                           zrk4_serv_block_head_2010** h10);

/// Brings the local copies up to date from a run-control event or a heart beat and reads one slow channel out of them:
/// from the update copy where that has it, except in an environment event, else from the environment copy.
/// @return 0 and the value in `*value`; 1: not found, not valid, a failed update, or an event of another type.
BM_API int get_slow_channel_data(zrk4_event_slot_head_2024* slot, zrk4_client_sblock_data* entries, const char* channel,
                                 BM* bm, zrk4_serv_block_head_2010** h10, zrk4_serv_block_head_2024** h24,
                                 float* value);
BM_API int get_slow_channel_data_2010(zrk4_event_slot_head* slot, zrk4_client_sblock_data* entries, const char* channel,
                                      BM* bm, zrk4_serv_block_head_2010** h10, float* value);
}

#endif
