/// @file
/// One run from the first process to the last count.
#ifndef ZRK4_SOAK_CONDUCTOR_H
#define ZRK4_SOAK_CONDUCTOR_H

#include <string>

#include "crew.h"
#include "watch.h"

namespace soak {

/// This process only forks, kills and watches; it has no buffer manager, and attaches the partitions when nobody is
/// started any more.
class conductor {
  public:
    conductor(const settings& how, const record& log);
    ~conductor();
    conductor(const conductor&) = delete;
    conductor& operator=(const conductor&) = delete;
    void run();

  private:
    void set_up();
    void disturb();
    void carry_out(const action& what);
    void pause(int ms);
    void drain();
    void take_stock();

    const settings& how_;
    common* all_;
    context context_;
    crew crew_;
    watch watch_;
    int kills_ = 0;
};

} // namespace soak

#endif
