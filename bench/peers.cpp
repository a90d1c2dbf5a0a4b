#include "peers.h"

#include "peers/adders.h"

namespace bench {

const std::vector<peer>& all_peers()
{
    static const std::vector<peer> all = [] {
        std::vector<peer> found;
        add_stream(found);
        add_wake_ups(found);
#ifdef ZRK4_BENCH_ZEROMQ
        add_zeromq(found);
#endif
#ifdef ZRK4_BENCH_BOOST
        add_boost(found);
#endif
#ifdef ZRK4_BENCH_ICEORYX
        add_iceoryx(found);
#endif
        return found;
    }();
    return all;
}

const std::vector<std::string>& missing_peers()
{
    static const std::vector<std::string> missing{
#ifndef ZRK4_BENCH_ZEROMQ
        "ZeroMQ (libzmq3-dev)",
#endif
#ifndef ZRK4_BENCH_BOOST
        "Boost.Interprocess (libboost-dev)",
#endif
#ifndef ZRK4_BENCH_ICEORYX
        "iceoryx (libiceoryx-posh-dev)",
#endif
    };
    return missing;
}

} // namespace bench
