#include "checker.h"

#include <chrono>

#include "bm_check.h"
#ifdef ZRK4_SWEEP_COMMAND
#include "command.h"
#endif

namespace sweep {
namespace {

// The host is at rest but for its monitor: what moves does so for microseconds.
constexpr std::chrono::milliseconds OBSERVATION{300};

std::string command; // empty: the library checks

const char* text_of(bm_verdict verdict)
{
    switch (verdict) {
    case bm_verdict::repaired:
        return "repaired: ";
    case bm_verdict::undecidable:
        return "undecidable: ";
    default:
        return "broken: ";
    }
}

checked check_with_library(bool wide, bool repair)
{
    bm_check_request request;
    request.repair = repair;
    request.remove_orphan_sets = repair;
    request.list_held = true;
    request.records_2024 = wide;
    request.observe = OBSERVATION;
    const bm_check_report report = bm_check(request);
    checked seen;
    for (const bm_finding& f : report.findings) {
        seen.lines.push_back(text_of(f.verdict) + f.text);
        if (f.verdict == bm_verdict::undecidable)
            seen.undecided.insert(f.partition + ": buffer " + std::to_string(f.number));
        if (f.verdict == bm_verdict::broken) ++seen.left;
    }
    for (const bm_checked_partition& p : report.partitions) {
        if (p.state == bm_check_state::looked_at && p.text.empty()) continue;
        seen.lines.push_back("not looked at: " + p.name + ' ' + p.text);
        ++seen.left;
    }
    seen.saw_nothing = seen.lines.empty();
    return seen;
}

} // namespace

bool check_by(const std::string& path)
{
#ifdef ZRK4_SWEEP_COMMAND
    command = path;
    return true;
#else
    return path.empty();
#endif
}

checked check_host(bool wide, bool repair)
{
#ifdef ZRK4_SWEEP_COMMAND
    if (!command.empty()) return check_with_command(command, wide, repair);
#endif
    return check_with_library(wide, repair);
}

} // namespace sweep
