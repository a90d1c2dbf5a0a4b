/// @file
/// What survivors need, and whether they get on.
#ifndef ZRK4_SOAK_WATCH_H
#define ZRK4_SOAK_WATCH_H

#include <array>

#include "crew.h"

namespace soak {

/// What a process holds now.
struct holdings {
    int descriptors = -1; ///< -1: it cannot be asked
    int mappings = -1;
    long private_kb = -1; ///< memory of its own; what it shares is counted by nobody
};
holdings holdings_of(pid_t pid);
/// Whether `later` is more than a process may have come to hold since `first`.
bool is_more(const holdings& first, const holdings& later);

/// Looks at the members now and then. Every finding is a line of the record.
class watch {
  public:
    static constexpr int PATIENCE_MS = 5000; ///< without an event, or with a member that gets nothing done

    watch(const context& run, const crew& who) : run_(run), who_(who) {}
    void look();
    /// The longest time without an event so far.
    int64_t longest_gap_ms() const { return longest_gap_ns_ / 1'000'000; }
    /// Lines on those lives that were followed; call it before the members go.
    void tell() const;
    /// The member is about to end: tells what its life needed.
    void tell(int member) const;

  private:
    struct followed {
        int life = 0;
        int64_t since_ns = 0;
        holdings first, most;
        int more = 0; ///< looks in a row that found it holding more
        bool hang_told = false;
    };

    void look_at_gap();
    void look_at(int member);
    void look_at_progress(int member);
    void look_at_holdings(followed& one, int member) const;

    const context& run_;
    const crew& who_;
    std::array<followed, MEMBERS> followed_;
    int64_t longest_gap_ns_ = 0;
    int64_t told_gap_from_ns_ = 0;
    int64_t next_look_ns_ = 0;
};

} // namespace soak

#endif
