#include "summary.h"

#include <sstream>
#include <utility>

#include "fields.h"

namespace soak {
namespace {

void count(figures& seen, const proof::record_line& line)
{
    const std::string& kind = line.kind();
    if (kind == "kill" && line.text("status") == "signal:9") ++seen.kills;
    if (kind == "blocks") seen.blocks += line.number("n");
    if (kind == "lost") ++seen.lost;
    if (kind == "repair") {
        seen.repaired = true;
        seen.lost_before = std::exchange(seen.lost, 0);
    }
    if (kind == "end") seen.complete = true;
    if (kind != "wrong") return;
    ++seen.wrong;
    ++seen.what[line.text("what")];
}

} // namespace

figures figures_of(std::istream& record)
{
    figures seen;
    proof::for_each_line(record, [&](const proof::record_line& line) { count(seen, line); });
    return seen;
}

std::string last_line(const figures& seen)
{
    std::ostringstream out;
    out << "kills: " << seen.kills << ", blocks: " << seen.blocks << ", wrong: " << seen.wrong
        << ", lost: " << seen.lost;
    return out.str();
}

std::string complaints(const figures& seen)
{
    std::ostringstream out;
    if (!seen.complete) out << "the run did not come to its end\n";
    if (seen.kills == 0) out << "nobody was killed\n";
    if (seen.blocks == 0) out << "no block arrived\n";
    for (const auto& [what, times] : seen.what) out << "wrong: " << what << ", " << times << " times\n";
    if (!seen.repaired) out << "nothing was repaired in the end\n";
    const uint64_t without_repair = seen.repaired ? seen.lost_before : seen.lost;
    if (without_repair > seen.kills)
        out << "lost " << without_repair << " buffers, at most " << seen.kills << " can be explained\n";
    if (seen.repaired && seen.lost > 0) out << "lost " << seen.lost << " buffers for good: the repair left them\n";
    return out.str();
}

} // namespace soak
