/// @file
/// What a reader program calls on the events that it is given: parameters and channels of server blocks, and the
/// process's own copies of the run-control blocks.
#ifndef ZRK4_BM_UTIL_H
#define ZRK4_BM_UTIL_H

#include "BM_int.h"
#include "bm_api.h"
#include "event.h"

class BM;

extern "C" {

/// The latest run-control blocks that this process saw, each a whole sub-block on the heap or null.
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
/// @param h10, h24  out, may be null: the last block visited, in the output of its form; the other one null
/// @return false; TRUE MEANS FAILURE, also for an event type that carries no run-control blocks.
BM_API bool update_local_copies(zrk4_event_slot_head_2024* slot, zrk4_client_sblock_data* entries, BM* bm,
                                zrk4_serv_block_head_2010** h10, zrk4_serv_block_head_2024** h24);
/// The same for a 2010 slot, every block read as a 2010 block.
BM_API bool update_local_copies_2010(zrk4_event_slot_head* slot, zrk4_client_sblock_data* entries, BM* bm,
                                     zrk4_serv_block_head_2010** h10);

/// Head parameters of the first block whose entry is named `name`. Every output may be null. The slot may be of either
/// form. @return 0 found, 1 not found.
BM_API int get_sb_param(zrk4_event_slot_head_2024* slot, zrk4_client_sblock_data* entries, char* name, BM* bm,
                        time_stamp* time, int* length, long* evid, int* tmask, int* status, int* nchan);
/// @return number of server blocks without any sub-block; 0 for run-control events. The slot may be of either form.
BM_API int check_bad_sb_data(zrk4_event_slot_head_2024* slot, zrk4_client_sblock_data* entries, BM* bm);

/// Searches the event for data channel `channel`.
/// @param name  null: any block; not empty: only blocks whose entry is named so; empty: any, and 256 bytes that receive
///              the name of the entry in which the channel was found (no NUL behind a name of 256 characters)
/// @return the channel's sub-head, in shared memory, with `ldata` - 268 bytes of data behind it; null when not found or
///         when a sub-block before it is corrupt.
BM_API zrk4_serv_block_subhead_2010* get_fast_channel_data_2024(zrk4_event_slot_head_2024* slot,
                                                                zrk4_client_sblock_data* entries, char* name,
                                                                char* channel, BM* bm, zrk4_serv_block_head_2010** h10,
                                                                zrk4_serv_block_head_2024** h24);
/// The same for a 2010 slot, every block read as a 2010 block.
BM_API zrk4_serv_block_subhead_2010* get_fast_channel_data(zrk4_event_slot_head* slot, zrk4_client_sblock_data* entries,
                                                           char* name, char* channel, BM* bm,
                                                           zrk4_serv_block_head_2010** h10);

/// Brings the local copies up to date from a run-control event and reads one slow channel out of them.
/// @return 0 and the value in `*value`; 1: not found, not valid, or not a run-control event.
BM_API int get_slow_channel_data(zrk4_event_slot_head_2024* slot, zrk4_client_sblock_data* entries, const char* channel,
                                 BM* bm, zrk4_serv_block_head_2010** h10, zrk4_serv_block_head_2024** h24,
                                 float* value);
BM_API int get_slow_channel_data_2010(zrk4_event_slot_head* slot, zrk4_client_sblock_data* entries, const char* channel,
                                      BM* bm, zrk4_serv_block_head_2010** h10, float* value);
}

#endif
