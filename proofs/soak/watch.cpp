#include "watch.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>

namespace soak {
namespace {

constexpr int64_t MS = 1'000'000;
constexpr int64_t SETTLED_NS = 3000 * MS; ///< age at which a process has all that it needs
constexpr int64_t WORTH_TELLING_NS = 3000 * MS;

template <class Iterator> int count(const std::string& folder)
{
    std::error_code error;
    int found = 0;
    for (Iterator at(folder, error); !error && at != Iterator(); at.increment(error)) ++found;
    return error ? -1 : found;
}

int lines_of(const std::string& path)
{
    std::ifstream in(path);
    int lines = 0;
    for (std::string line; std::getline(in, line);) ++lines;
    return lines > 0 ? lines : -1;
}

long private_kb_of(const std::string& path)
{
    std::ifstream in(path);
    for (std::string word; in >> word;) {
        long kb = -1;
        if (word == "RssAnon:" && in >> kb) return kb;
    }
    return -1;
}

} // namespace

holdings holdings_of(pid_t pid)
{
    const std::string folder = "/proc/" + std::to_string(pid);
    return {count<std::filesystem::directory_iterator>(folder + "/fd"), lines_of(folder + "/maps"),
            private_kb_of(folder + "/status")};
}

bool is_more(const holdings& first, const holdings& later)
{
    constexpr int SPARE_MAPPINGS = 8; // an arena of the allocator is two, a thread's stack as well
    constexpr long SPARE_KB = 1024;
    return later.descriptors > first.descriptors || later.mappings > first.mappings + SPARE_MAPPINGS ||
           later.private_kb > first.private_kb + SPARE_KB;
}

void watch::look()
{
    look_at_gap();
    if (monotonic_ns() < next_look_ns_) return;
    next_look_ns_ = monotonic_ns() + 500 * MS;
    for (int m = 0; m < MEMBERS; ++m) look_at(m);
}

void watch::look_at_gap()
{
    const int64_t last = run_.all.delivered_ns;
    if (last == 0) return;
    const int64_t gap = monotonic_ns() - last;
    longest_gap_ns_ = std::max(longest_gap_ns_, gap);
    if (gap < PATIENCE_MS * MS || told_gap_from_ns_ == last) return;
    told_gap_from_ns_ = last;
    run_.log.line("wrong", "what=standstill ms=%lld", static_cast<long long>(gap / MS));
}

void watch::look_at(int member)
{
    const life& now = who_.of(member);
    followed& one = followed_[static_cast<size_t>(member)];
    if (one.life != now.number) one = {now.number, monotonic_ns(), {}, {}, 0, false};
    if (now.pid < 0 || now.goes_on_ns != 0) return;
    look_at_progress(member);
    look_at_holdings(one, member);
}

void watch::look_at_progress(int member)
{
    const life& now = who_.of(member);
    followed& one = followed_[static_cast<size_t>(member)];
    const int64_t since = std::max<int64_t>(run_.all.member[member].beat_ns, now.began_ns);
    const int64_t idle = monotonic_ns() - since;
    if (idle < PATIENCE_MS * MS || one.hang_told) return;
    one.hang_told = true;
    run_.log.line("wrong", "what=hangs role=%s pid=%d ms=%lld", name_of(member).c_str(), now.pid,
                  static_cast<long long>(idle / MS));
}

// Twice in a row: a process opens a file for a moment when it looks up a host name.
void watch::look_at_holdings(followed& one, int member) const
{
    if (monotonic_ns() - one.since_ns < SETTLED_NS) return;
    const holdings now = holdings_of(who_.of(member).pid);
    if (now.descriptors < 0 || now.private_kb < 0) return;
    if (one.first.descriptors < 0) one.first = one.most = now;
    one.more = is_more(one.first, now) ? one.more + 1 : 0;
    if (one.more == 2) {
        run_.log.line("wrong", "what=holds-more role=%s pid=%d descriptors=%d..%d mappings=%d..%d private_kb=%ld..%ld",
                      name_of(member).c_str(), who_.of(member).pid, one.first.descriptors, now.descriptors,
                      one.first.mappings, now.mappings, one.first.private_kb, now.private_kb);
    }
    one.most = {std::max(one.most.descriptors, now.descriptors), std::max(one.most.mappings, now.mappings),
                std::max(one.most.private_kb, now.private_kb)};
}

void watch::tell() const
{
    for (int m = 0; m < MEMBERS; ++m) tell(m);
}

void watch::tell(int member) const
{
    const followed& one = followed_[static_cast<size_t>(member)];
    const int64_t age = monotonic_ns() - one.since_ns;
    if (one.life != who_.of(member).number) return; // so young that nobody has looked at it
    if (one.first.descriptors < 0 || age < SETTLED_NS + WORTH_TELLING_NS) return;
    run_.log.line("held", "role=%s seconds=%.1f descriptors=%d..%d mappings=%d..%d private_kb=%ld..%ld",
                  name_of(member).c_str(), static_cast<double>(age) / 1e9, one.first.descriptors, one.most.descriptors,
                  one.first.mappings, one.most.mappings, one.first.private_kb, one.most.private_kb);
}

} // namespace soak
