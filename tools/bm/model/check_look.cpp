#include "model/check_look.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <set>

#include <fmt/format.h>
#include <sys/shm.h>
#include <unistd.h>

namespace bm {
namespace {

bool closed_to_us(const segment& one)
{
    const void* at = shmat(one.id, nullptr, 0);
    if (at == reinterpret_cast<const void*>(-1)) return errno == EACCES || errno == EPERM;
    shmdt(at);
    return false;
}

std::string owner_of(const segment& one)
{
    return fmt::format("user {}, mode {:04o}", user_text(one.uid), one.mode & 0777U);
}

bool any_is(const check_look& look, bm_check_state state)
{
    return std::any_of(look.report.partitions.begin(), look.report.partitions.end(),
                       [&](const bm_checked_partition& p) { return p.state == state; });
}

tone tone_of(bm_verdict verdict)
{
    if (verdict == bm_verdict::broken) return tone::bad;
    return verdict == bm_verdict::repaired ? tone::good : tone::warning;
}

std::string findings_text(const check_look& look, bool color)
{
    table found({{"VERDICT"}, {"RULE", table::right}, {"PARTITION"}, {"PID", table::right}, {"WHAT"}});
    std::set<int> rules;
    for (const bm_finding& f : look.report.findings) {
        rules.insert(f.invariant);
        found.row({word_of(f.verdict), fmt::format("{}", f.invariant),
                   f.partition.empty() ? "-" : printable(f.partition), f.pid == 0 ? "-" : fmt::format("{}", f.pid),
                   printable(f.text)},
                  tone_of(f.verdict));
    }
    if (found.empty()) return "";
    std::string text = found.text(color) + "\n";
    for (const int rule : rules) text += fmt::format("rule {}: {}\n", rule, statement(rule));
    return text;
}

std::string partitions_text(const check_look& look)
{
    std::string text;
    for (const bm_checked_partition& p : look.report.partitions) {
        if (p.state == bm_check_state::looked_at && p.text.empty()) continue;
        text += fmt::format("{}: {}: {}\n", printable(p.name), word_of(p.state), printable(p.text));
    }
    for (const segment& one : look.closed)
        text += fmt::format("segment {} at key {}: closed to user {}: it belongs to {}; try: sudo bm check\n", one.id,
                            one.key, user_text(geteuid()), owner_of(one));
    return text;
}

size_t looked_at(const check_look& look)
{
    return static_cast<size_t>(
        std::count_if(look.report.partitions.begin(), look.report.partitions.end(),
                      [](const bm_checked_partition& p) { return p.state == bm_check_state::looked_at; }));
}

} // namespace

exit_status check_look::status() const
{
    if (report.count(bm_verdict::broken) + report.count(bm_verdict::undecidable) != 0) return exit_status::attention;
    if (!closed.empty()) return exit_status::attention;
    if (any_is(*this, bm_check_state::busy)) return exit_status::timed_out;
    if (any_is(*this, bm_check_state::missing)) return exit_status::not_found;
    return report.complete() ? exit_status::fine : exit_status::attention;
}

check_look look_at_host(const bm_check_request& request, const std::vector<std::string>& names)
{
    check_look look;
    if (names.empty()) look.report = bm_check(request);
    for (const std::string& name : names) {
        const bm_check_report one = bm_check_partition(name.c_str(), request);
        look.report.findings.insert(look.report.findings.end(), one.findings.begin(), one.findings.end());
        for (const bm_checked_partition& p : one.partitions) {
            if (p.name == name) look.report.partitions.push_back(p);
        }
    }
    for (const segment& one : segments_of_partitions()) {
        if (closed_to_us(one)) look.closed.push_back(one);
    }
    return look;
}

const char* statement(int invariant)
{
    static constexpr std::array<const char*, 11> WORDS{
        "",
        "a queue reaches its tail, without cycle or repetition",
        "a buffer is flagged queued exactly when it is in a queue",
        "the count of free buffers is the length of the free queue",
        "every buffer is queued, held by a live process, or in an event; every client lives; no event waits for the "
        "dead",
        "no buffer stands in two entries of event slots",
        "an event slot's control entry is used exactly when the slot is handed out",
        "the counters of clients and of users equal a recount",
        "gates and locks are free or held by a live process",
        "no half-made segment and no semaphore set without a partition is left",
        "buffer 0 of both slot partitions, the control record, is handed out",
    };
    return invariant > 0 && invariant < static_cast<int>(WORDS.size()) ? WORDS[static_cast<size_t>(invariant)] : "?";
}

const char* word_of(bm_verdict verdict)
{
    if (verdict == bm_verdict::broken) return "broken";
    return verdict == bm_verdict::repaired ? "repaired" : "undecidable";
}

const char* word_of(bm_check_state state)
{
    switch (state) {
    case bm_check_state::looked_at:
        return "looked at";
    case bm_check_state::missing:
        return "missing";
    case bm_check_state::other_version:
        return "other version";
    case bm_check_state::other_records:
        return "other records";
    case bm_check_state::busy:
        return "busy";
    default:
        return "damaged";
    }
}

json to_json(const char* command, const check_look& look)
{
    json all = document(command);
    all["findings"] = json::array();
    for (const bm_finding& f : look.report.findings) {
        all["findings"].push_back({{"rule", f.invariant},
                                   {"statement", statement(f.invariant)},
                                   {"verdict", word_of(f.verdict)},
                                   {"partition", f.partition},
                                   {"number", f.number},
                                   {"pid", f.pid},
                                   {"text", f.text}});
    }
    all["partitions"] = json::array();
    for (const bm_checked_partition& p : look.report.partitions)
        all["partitions"].push_back({{"name", p.name}, {"id", p.shmid}, {"state", word_of(p.state)}, {"text", p.text}});
    all["closed"] = json::array();
    for (const segment& one : look.closed)
        all["closed"].push_back({{"id", one.id}, {"key", one.key}, {"owner", user_text(one.uid)}});
    for (const bm_verdict verdict : {bm_verdict::broken, bm_verdict::repaired, bm_verdict::undecidable})
        all[word_of(verdict)] = look.report.count(verdict);
    return all;
}

std::string text_of(const check_look& look, bool color)
{
    std::string text = findings_text(look, color) + partitions_text(look);
    text += fmt::format("{} partitions looked at: {} broken, {} repaired, {} undecidable\n", looked_at(look),
                        look.report.count(bm_verdict::broken), look.report.count(bm_verdict::repaired),
                        look.report.count(bm_verdict::undecidable));
    return text;
}

} // namespace bm
