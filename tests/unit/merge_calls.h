/// @file
/// The event utilities' functions on run blocks, watched. One source of a test program includes it: these are found before
/// the library's.
#ifndef ZRK4_TEST_MERGE_CALLS_H
#define ZRK4_TEST_MERGE_CALLS_H

#include <cerrno>
#include <stdexcept>

#include <dlfcn.h>

#include "evutl.h"
#include "local_copies.h"

// These stand in front of our event utilities: a site's own may throw, and they are called with the mutex held.
inline bool merges_throw = false;
inline int calls_without_mutex = 0;

inline void note_mutex()
{
    // The platform's own call: unlike the standard's it may be made by the owner, and then says "busy".
    pthread_mutex_t* const mutex = zrk4::impl::mx_lcp.native_handle();
    if (pthread_mutex_trylock(mutex) == EBUSY) return;
    pthread_mutex_unlock(mutex);
    ++calls_without_mutex;
}

template <class... Args> bool call_ours(const char* function, Args... args)
{
    return reinterpret_cast<bool (*)(Args...)>(dlsym(RTLD_NEXT, function))(args...);
}

bool copy_upd_entries_2010(char* copy, char* fresh)
{
    note_mutex();
    if (merges_throw) throw std::runtime_error("merge");
    return call_ours("copy_upd_entries_2010", copy, fresh);
}

bool copy_env_entries_2010(char* copy, char* fresh)
{
    note_mutex();
    return call_ours("copy_env_entries_2010", copy, fresh);
}

bool find_slow_channel_2010(char* env, char* dict, const char* channel, zrk4_env_data_block_2010** record)
{
    note_mutex();
    return call_ours("find_slow_channel_2010", env, dict, channel, record);
}

#endif
