/// @file
/// A buffer manager whose monitor a test looks into.
#ifndef ZRK4_TEST_MONITORING_BM_H
#define ZRK4_TEST_MONITORING_BM_H

#include "reader_host.h"

namespace zrk4::test {

class monitoring_bm : public open_bm {
  public:
    using BM::master;
    using BM::mperiod;
    using BM::pid;
};

} // namespace zrk4::test

#endif
