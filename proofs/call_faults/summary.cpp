#include "summary.h"

#include <cstdlib>
#include <sstream>

#include "fields.h"

namespace call_faults {
namespace {

using proof::record_line;

int whole_number(const record_line& line, const std::string& key) { return std::atoi(line.text(key).c_str()); }

bool is_about(const record_line& line, const std::string& call)
{
    return line.text("where").find(":" + call + ":") != std::string::npos;
}

// A program that ends because something was refused takes along what it had in its hands: one buffer or slot. A master
// that ends in the middle of its init leaves a partition whose control record was not taken yet: one more is free.
bool lost_too_much(const record_line& line)
{
    const int missing = whole_number(line, "missing");
    return whole_number(line, "gave_up") != 0 ? missing < -1 || missing > 1 : missing != 0;
}

// What the failing call itself was to remove is still there.
bool left_too_much(const record_line& line)
{
    const int explained = is_about(line, "semctl") || is_about(line, "shmctl") ? 1 : 0;
    return whole_number(line, "left") > explained;
}

// Every datagram that was not dropped came, once.
bool datagrams_went_astray(const record_line& line)
{
    const std::string where = line.text("where");
    if (where.rfind("writer:datagram:drop:", 0) != 0) return false;
    return whole_number(line, "heard") + whole_number(line, "kept_back") != whole_number(line, "sent");
}

void count_point(figures& seen, const record_line& line)
{
    ++seen.points;
    seen.met += line.number("met");
    const bool crashed = line.number("crashed") != 0;
    const bool hung = line.number("hung") != 0 || line.number("stuck") != 0;
    const bool wrong = line.number("strange") != 0 || datagrams_went_astray(line);
    const bool leaked = lost_too_much(line) || left_too_much(line);
    seen.crashed += crashed ? 1 : 0;
    seen.hung += hung ? 1 : 0;
    seen.wrong += wrong ? 1 : 0;
    seen.leaked += leaked ? 1 : 0;
    if (crashed || hung || wrong || leaked) seen.bad.push_back(line.text("where") + " victim " + line.text("victim"));
}

} // namespace

figures figures_of(std::istream& record)
{
    figures seen;
    proof::for_each_line(record, [&](const record_line& line) {
        if (line.kind() == "point") count_point(seen, line);
        if (line.kind() == "run") seen.planned = line.number("points");
        if (line.kind() == "end") seen.complete = true;
        if (line.kind() == "broken") seen.bad.push_back("not looked at: " + line.text("folder") + line.text("status"));
    });
    return seen;
}

std::string last_line(const figures& seen)
{
    std::ostringstream out;
    out << "points: " << seen.points << ", met: " << seen.met << ", crashed: " << seen.crashed
        << ", hung: " << seen.hung << ", wrong: " << seen.wrong << ", leaked: " << seen.leaked;
    return out.str();
}

std::string complaints(const figures& seen)
{
    std::ostringstream out;
    if (!seen.complete) out << "the sweep did not come to its end\n";
    if (seen.points == 0 || seen.met == 0) out << "no call has failed\n";
    if (seen.points != seen.planned) out << seen.planned << " points were planned\n";
    for (const std::string& one : seen.bad) out << "bad: " << one << '\n';
    return out.str();
}

} // namespace call_faults
