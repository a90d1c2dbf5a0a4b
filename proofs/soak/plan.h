/// @file
/// Who is killed or stopped, and when: a function of the seed alone, so that a run can be made again.
#ifndef ZRK4_SOAK_PLAN_H
#define ZRK4_SOAK_PLAN_H

#include <cstdint>
#include <random>
#include <string>

namespace soak {

inline constexpr int WRITERS = 4, READERS = 6, MEMBERS = 1 + WRITERS + READERS;
inline constexpr int MASTER = 0, FIRST_WRITER = 1, FIRST_READER = FIRST_WRITER + WRITERS;

inline bool is_writer(int member) { return member >= FIRST_WRITER && member < FIRST_READER; }
inline bool is_reader(int member) { return member >= FIRST_READER && member < MEMBERS; }
std::string name_of(int member);

struct action {
    enum kind { KILL, STOP };
    int delay_ms; ///< after the action before it
    kind what;
    int victim;
    int stop_ms; ///< how long a stopped one stands still
};

/// The actions of a run, one after the other.
///
/// For the length of a watch one writer and one reader, and in every other watch the master, are spared: somebody must
/// live long enough for a leak to show. Who is spared goes round.
class plan {
  public:
    static constexpr int SHORTEST_MS = 20, LONGEST_MS = 500, LONGEST_STOP_MS = 600;

    /// @param watch  actions in a watch, at least 1
    plan(uint64_t seed, int watch) : random_(seed), watch_(watch) {}
    action next();
    /// Actions of a run of this length in a watch.
    static int watch_of(int seconds);

  private:
    int between(int low, int high);
    bool spared(int member) const;

    std::mt19937_64 random_;
    int watch_;
    int made_ = 0;
};

} // namespace soak

#endif
