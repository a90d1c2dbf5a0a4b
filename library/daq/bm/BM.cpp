// Construction and configuration.
#include "BM.h"

#include <cstdlib>

#include "bm_core.h"
#include "own_pid.h"
#include "text_later.h"

using namespace zrk4::impl;

int ZRK4_DAQ_BM_DEBUG = 0;
int bm_bad_format_events = 0;

namespace {

const char* name_from_environment(const char* variable, const char* otherwise)
{
    const char* value = std::getenv(variable);
    return value != nullptr ? value : otherwise;
}

} // namespace

BM::BM()
    : mpid(own_pid()),
      clname(name_from_environment("ZRK4_CLI_SHM_NAME", "ZRK4_CLIENT_SLOTS")),
      evname(name_from_environment("ZRK4_EV_SHM_NAME", "ZRK4_EVENT_SLOTS")),
      own(std::make_unique<bm_private>())
{
    const text_later texts;
    __atomic_store_n(&bm_bad_format_events, 0, __ATOMIC_RELAXED);
    uint32_t address = 0;
    localhost_address(address);
}

void BM::event_handler(void* /*head*/, zrk4_client_sblock_data* /*first*/) {}

bool BM::set_master(bool m)
{
    if (m == master) return false;
    if (m ? start_monitor() : stop_monitor()) return true;
    master = m;
    return false;
}

void BM::set_forced(bool f) { forced = f; }

int BM::set_nclients(int n)
{
    if (clid < 0 && evid < 0) ncli = n;
    return ncli;
}

int BM::set_nblocks(int n)
{
    if (clid < 0 && evid < 0) nsbl = n;
    return nsbl;
}

int BM::set_rate(int n)
{
    if (clid < 0 && evid < 0) evrate = n;
    return evrate;
}

int BM::set_ncl_slots(int n)
{
    if (clid >= 0) return cl_buf->getBufferCount();
    clslots = n;
    return n;
}

int BM::set_nev_slots(int n)
{
    if (evid >= 0) return ev_buf->getBufferCount();
    evslots = n;
    return n;
}

void BM::set_monitoring_period(int microseconds)
{
    // Between the two: the thread reads it.
    if (master) stop_monitor();
    mperiod = static_cast<uint64_t>(microseconds);
    if (master) start_monitor();
}

void BM::set_time_mask(unsigned long microseconds) { time_mask = microseconds; }

bool BM::set_smode(int mode)
{
    if (mode != BM_SYNCH_TIME && mode != BM_SYNCH_EVID) return true;
    smode = mode;
    return false;
}

int BM::get_smode() { return smode; }

bool BM::set_evid_64bit_mode(bool m)
{
    if (evid == -1) evid64bitmode = m;
    return evid64bitmode;
}

bool BM::get_evid_64bit_mode() { return evid64bitmode; }

void BM::set_ev_handler(EV_HANDLER_FUN f) { user_cb = f; }
