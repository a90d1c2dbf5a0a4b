// A site's own library of event utilities: the same eight functions, other answers.
#include <cstring>

#include "evutl.h"

void create_isodate(char* text, int /*form*/) { std::strcpy(text, "the site's date"); }
const char* event_name_itoa(int /*type*/) { return "SITE"; }
void dump_event_subheader_2010(int /*level*/, char* /*block*/) {}
void dump_event_subheader_2024(int /*level*/, char* /*block*/) {}
bool find_upd_channel_2010(char* /*upd*/, const char* /*channel*/, zrk4_upd_data_block_2010** /*record*/)
{
    return true;
}
bool find_slow_channel_2010(char* /*env*/, char* /*dict*/, const char* /*channel*/,
                            zrk4_env_data_block_2010** /*record*/)
{
    return true;
}
bool copy_env_entries_2010(char* /*copy*/, char* /*fresh*/) { return true; }
bool copy_upd_entries_2010(char* /*copy*/, char* /*fresh*/) { return true; }
