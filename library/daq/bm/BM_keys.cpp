// What tells one event from another: the readers of a block's head, and time.
#include "BM.h"

#include <cmath>

#include "block_form.h"
#include "bm_core.h"
#include "event_key.h"

using namespace zrk4::impl;

char* get_bname_known(char* block)
{
    return is_2024(block) ? reinterpret_cast<zrk4_serv_block_head_2024*>(block)->server
                          : reinterpret_cast<zrk4_serv_block_head_2010*>(block)->server;
}

time_stamp* get_key_known(char* block)
{
    return is_2024(block) ? &reinterpret_cast<zrk4_serv_block_head_2024*>(block)->time
                          : &reinterpret_cast<zrk4_serv_block_head_2010*>(block)->time;
}

int64_t get_len_known(char* block) { return view_block(block).ltotal; }
int get_trg_known(char* block) { return view_block(block).tmask; }
int get_sts_known(char* block) { return view_block(block).status; }
int64_t get_evid_known(char* block) { return view_block(block).mpulse; }

namespace {

template <class Function> void replace(std::map<int, Function>& readers, int type, Function f)
{
    if (f != nullptr) readers[type] = f;
}

// Single precision on purpose: the seconds are rounded to float before the microseconds are added.
float coarse_microseconds(const time_stamp& t)
{
    return static_cast<float>(static_cast<double>(static_cast<float>(t.timeup)) * 1e6 + t.timelow);
}

} // namespace

void BM::set_get_name_func(int type, GET_NAME_FUN f) { replace(get_bname_f, type, f); }
void BM::set_get_key_func(int type, GET_KEY_FUN f) { replace(get_key_f, type, f); }
void BM::set_get_length_func(int type, GET_LEN_FUN f) { replace(get_len_f, type, f); }
void BM::set_get_trg_func(int type, GET_TRG_FUN f) { replace(get_trg_f, type, f); }
void BM::set_get_sts_func(int type, GET_STS_FUN f) { replace(get_sts_f, type, f); }
void BM::set_get_evid_func(int type, GET_EVID_FUN f) { replace(get_evid_f, type, f); }

void bm_core::set_default_readers(BM& bm)
{
    for (int type = 0; type < ZRK4_EV_EVMAX; ++type) {
        bm.set_get_name_func(type, get_bname_known);
        bm.set_get_key_func(type, get_key_known);
        bm.set_get_length_func(type, get_len_known);
        bm.set_get_trg_func(type, get_trg_known);
        bm.set_get_sts_func(type, get_sts_known);
        bm.set_get_evid_func(type, get_evid_known);
    }
}

head_readers bm_core::head_readers_of(const BM& bm, int evtype)
{
    return {.name = reader_of(bm.get_bname_f, evtype),
            .key = reader_of(bm.get_key_f, evtype),
            .length = reader_of(bm.get_len_f, evtype),
            .trigger = reader_of(bm.get_trg_f, evtype),
            .status = reader_of(bm.get_sts_f, evtype),
            .id = reader_of(bm.get_evid_f, evtype)};
}

void BM::get_cur_time(time_stamp* tm) { *tm = time_now(); }

void BM::get_time_diff(time_stamp* tms, time_stamp* tme, time_stamp* tmdiff)
{
    const float difference = coarse_microseconds(*tme) - coarse_microseconds(*tms);
    const float seconds = std::trunc(difference / 1000000.0F);
    const float rest = difference - seconds * 1000000.0F;
    tmdiff->timeup = static_cast<uint32_t>(static_cast<int64_t>(seconds));
    tmdiff->timelow = static_cast<uint32_t>(static_cast<int64_t>(rest));
}

bool BM::time_expired(time_stamp* tms, time_stamp* tme, time_stamp* tmd)
{
    return in_microseconds(*tms) - in_microseconds(*tme) >= in_microseconds(*tmd);
}

bool BM::ev_keys_eq(time_stamp* tm1, time_stamp* tm2) { return !key_range(*tm1, time_mask).contains(*tm2); }
