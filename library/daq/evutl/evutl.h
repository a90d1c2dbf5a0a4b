/// @file
/// The event-utility functions that the buffer manager calls. A site may have a library of its own with these functions;
/// it then takes this one's place when the buffer manager is built or loaded.
#ifndef ZRK4_EVUTL_H
#define ZRK4_EVUTL_H

#define EVUTL_API __attribute__((visibility("default")))

struct zrk4_upd_data_block_2010;
struct zrk4_env_data_block_2010;

extern "C" {

/// Writes date and time as text; every text fits 296 bytes.
/// @param form  1: ISO 8601, local time with microseconds and offset from UTC; 0: the same without microseconds;
///              2: compact, as file names take it; anything else as 1
EVUTL_API void create_isodate(char* text, int form);

/// @return the name of an event type without its prefix ("NORMAL" for 1); "UNKNOWN" for what is not a type. Static.
EVUTL_API const char* event_name_itoa(int type);

/// Prints one line per sub-block of the server block at `block`, at most 64, and never reads past the block.
/// @param level  number of blanks by which the lines are indented, 0 to 32
EVUTL_API void dump_event_subheader_2010(int level, char* block);
EVUTL_API void dump_event_subheader_2024(int level, char* block);

/// Finds property `channel` in an update sub-block. @return false and its record in `*record`; TRUE WHEN NOT FOUND,
/// also for a null block. A null `record` is not written.
EVUTL_API bool find_upd_channel_2010(char* upd, const char* channel, zrk4_upd_data_block_2010** record);
/// Finds slow channel `channel` in an environment sub-block, by its index in the dictionary sub-block. @return as above.
EVUTL_API bool find_slow_channel_2010(char* env, char* dict, const char* channel, zrk4_env_data_block_2010** record);

/// Updates the records of the copy from a newly arrived sub-block of the same kind: environment records by channel
/// index, update records by property name. The copy never grows: what it does not hold is left out.
/// @return false on success; TRUE MEANS FAILURE: a null argument or a sub-block of another kind.
EVUTL_API bool copy_env_entries_2010(char* copy, char* fresh);
EVUTL_API bool copy_upd_entries_2010(char* copy, char* fresh);
}

#endif
