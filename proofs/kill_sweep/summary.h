/// @file
/// What a record says, added up.
#ifndef ZRK4_SWEEP_SUMMARY_H
#define ZRK4_SWEEP_SUMMARY_H

#include <iosfwd>
#include <map>
#include <string>
#include <vector>

#include "record.h"

namespace sweep {

struct totals {
    int points = 0; ///< at which a process was killed
    int monitor = 0;
    int repair = 0;
    int undecidable = 0;
    int not_back = 0;
    int ended = 0;     ///< runs of a role in which nobody was killed
    int broken = 0;    ///< lines with a claim that did not hold, among them that the victim was killed
    int lost = 0;      ///< events
    int commanded = 0; ///< points at which the operator's command checked and repaired
    int attention = 0; ///< of these, that it found something at
};

class summary {
  public:
    /// Takes all lines of a record; a later line of the same point replaces an earlier one.
    static summary of(std::istream& record);

    const totals& all() const { return all_; }
    const std::map<std::string, totals>& by_role() const { return by_role_; }
    int unreadable() const { return unreadable_; }
    /// The table, the points that did not end well, and the last line.
    void print(std::ostream& os) const;
    /// Points there are, all lines could be read, everything came back and every claim held.
    bool good() const;

  private:
    void add(const result& r);

    totals all_;
    std::map<std::string, totals> by_role_;
    std::vector<result> bad_;
    int unreadable_ = 0;
};

} // namespace sweep

#endif
