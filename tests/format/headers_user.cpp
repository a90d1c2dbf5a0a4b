// The smallest program of a user: one header, one library.
#include <stdexcept>

#include "BM.h"

namespace {

// An exception of the library is the program's own type: their type information is one.
bool exceptions_arrive()
{
    const C_shm detached;
    try {
        detached.gate(true);
    } catch (const std::logic_error&) {
        return true;
    }
    return false;
}

bool system_errors_arrive()
{
    try {
        throw SysError();
    } catch (const std::runtime_error&) {
        return true;
    }
    return false;
}

// Lives in the second library and is called through the first.
bool diagnostics_are_printed()
{
    char text[] = "a line of the program's own";
    bm_dump_message(text);
    return true;
}

} // namespace

int main()
{
    BM bm;
    const bool fresh = bm.get_smode() == BM_SYNCH_TIME && bm_bad_format_events == 0 && ZRK4_DAQ_BM_DEBUG == 0;
    return fresh && exceptions_arrive() && system_errors_arrive() && diagnostics_are_printed() ? 0 : 1;
}
