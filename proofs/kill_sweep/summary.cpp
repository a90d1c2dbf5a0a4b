#include "summary.h"

#include <algorithm>
#include <iomanip>
#include <istream>
#include <ostream>

namespace sweep {
namespace {

// A point that did not come to its end has no status: it counts as one that was to be killed.
bool lives(const result& r) { return r.status == LIVES; }

// A victim that ended in another way than by the kill proves nothing about a kill, and where nobody was killed nothing
// may be missing.
bool is_broken(const result& r)
{
    return !r.broken.empty() || (lives(r) ? r.what != outcome::ended : r.status != KILLED);
}

int words_in(const std::string& text)
{
    int words = 0;
    bool inside = false;
    for (const char c : text) {
        if (c != ' ' && !inside) ++words;
        inside = c != ' ';
    }
    return words;
}

void count(totals& t, const result& r)
{
    t.broken += is_broken(r) ? 1 : 0;
    t.lost += words_in(r.lost);
    if (lives(r)) {
        ++t.ended;
        return;
    }
    ++t.points;
    t.commanded += r.command.empty() ? 0 : 1;
    t.attention += r.command.empty() || r.command[0] == '0' ? 0 : 1;
    t.monitor += r.what == outcome::monitor ? 1 : 0;
    t.repair += r.what == outcome::repair ? 1 : 0;
    t.undecidable += r.what == outcome::undecidable ? 1 : 0;
    t.not_back += r.what == outcome::not_back ? 1 : 0;
}

void print_row(std::ostream& os, const std::string& name, const totals& t)
{
    os << std::left << std::setw(18) << name << std::right;
    for (const int n : {t.points, t.monitor, t.repair, t.undecidable, t.not_back, t.broken, t.lost, t.ended})
        os << std::setw(12) << n;
    os << '\n';
}

} // namespace

summary summary::of(std::istream& record)
{
    summary s;
    std::map<std::string, result> last;
    for (std::string line; std::getline(record, line);) {
        if (const auto r = result_of(line)) {
            last[name_of(r->at)] = *r;
        } else {
            ++s.unreadable_;
        }
    }
    for (const auto& [name, r] : last) s.add(r);
    return s;
}

void summary::add(const result& r)
{
    count(all_, r);
    count(by_role_[r.at.role], r);
    if (r.what == outcome::not_back || is_broken(r)) bad_.push_back(r);
}

bool summary::good() const { return all_.points > 0 && all_.not_back == 0 && all_.broken == 0 && unreadable_ == 0; }

void summary::print(std::ostream& os) const
{
    os << std::left << std::setw(18) << "role" << std::right;
    for (const char* title :
         {"points", "monitor", "repair", "undecidable", "not back", "broken", "lost events", "unkilled"})
        os << std::setw(12) << title;
    os << '\n';
    for (const auto& [role, t] : by_role_) print_row(os, role, t);
    print_row(os, "all", all_);
    for (const result& r : bad_)
        os << name_of(r.at) << ' ' << r.call << ", " << r.status << ", " << text_of(r.what) << ": " << r.broken
           << (r.broken.empty() || r.findings.empty() ? "" : " | ") << r.findings << '\n';
    if (unreadable_ > 0) os << "lines that cannot be read: " << unreadable_ << '\n';
    if (all_.commanded > 0)
        os << "looked at by the command: " << all_.commanded << ", in need of attention: " << all_.attention << '\n';
    os << "kill points: " << all_.points << ", back by the monitor: " << all_.monitor
       << ", back by repair: " << all_.repair << ", undecidable: " << all_.undecidable
       << ", not back: " << all_.not_back << '\n';
}

} // namespace sweep
