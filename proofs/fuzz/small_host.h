/// @file
/// A buffer manager with slot partitions of its own, of a few slots each, and nobody else in them.
#ifndef ZRK4_FUZZ_SMALL_HOST_H
#define ZRK4_FUZZ_SMALL_HOST_H

#include "BM.h"
#include "target.h"

namespace fuzz {

/// Master without a monitor: nothing happens by itself.
class small_host : public BM {
  public:
    static constexpr int CLIENT_SLOTS = 4; ///< numbers 1 to 4
    static constexpr int EVENT_SLOTS = 1;
    static constexpr int CLIENTS = 4, BLOCKS = 3;

    small_host()
    {
        master = true;
        set_nclients(CLIENTS);
        set_nblocks(BLOCKS);
        set_rate(1);
        set_ncl_slots(CLIENT_SLOTS);
        set_nev_slots(EVENT_SLOTS);
        set_evid_64bit_mode(true); // the longer records: slots have room for either
        expect(!init(), "the slot partitions can be made");
    }
    using BM::cl_buf;
    using BM::ev_buf;
    using BM::evid64bitmode;
    using BM::qid;
    using BM::reader_go;
    using BM::smode;
};

} // namespace fuzz

#endif
