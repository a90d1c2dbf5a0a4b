#include "capacity.h"

#include <algorithm>

#include <unistd.h>

#include "bm_check.h"

namespace soak {

std::vector<stock> all_stock(bool with_clients)
{
    std::vector<stock> all;
    all.reserve(WRITERS + 2);
    for (int w = 0; w < WRITERS; ++w) all.push_back(proof::stock_of(data_name(w), false));
    all.push_back(proof::stock_of("ZRK4_EVENT_SLOTS", true));
    if (with_clients) all.push_back(proof::stock_of("ZRK4_CLIENT_SLOTS", true));
    return all;
}

std::vector<stock> settled_stock(bool with_clients, int quiet_ms, int patience_ms)
{
    const auto ms = [](int64_t n) { return n * int64_t{1'000'000}; };
    const int64_t until = monotonic_ns() + ms(patience_ms);
    std::vector<stock> last = all_stock(with_clients);
    int64_t since = monotonic_ns();
    while (monotonic_ns() < std::min(until, since + ms(quiet_ms))) {
        usleep(20'000);
        std::vector<stock> now = all_stock(with_clients);
        if (now != last) since = monotonic_ns();
        last = std::move(now);
    }
    return last;
}

void tell(const record& log, const std::vector<stock>& all)
{
    for (const stock& one : all) {
        const char* name = one.partition.c_str();
        log.line("stock", "partition=%s buffers=%d free=%d countable=%d", name, one.buffers,
                 one.buffers - static_cast<int>(one.out.size()), one.countable);
        for (const proof::buffer_out& buffer : one.out) {
            log.line("lost", "partition=%s buffer=%d owner=%d status=%d", name, buffer.number, buffer.owner,
                     buffer.status);
        }
        for (int i = 0; i < one.uncounted(); ++i) log.line("lost", "partition=%s count", name);
        if (one.uncounted() < 0) log.line("wrong", "what=counts-too-many partition=%s by=%d", name, -one.uncounted());
    }
}

void repair(const record& log, const settings& how)
{
    bm_check_request request;
    request.repair = true;
    request.records_2024 = how.wide;
    request.observe = std::chrono::seconds(2); // nobody but the master is there any more
    const bm_check_report report = bm_check(request);
    for (const bm_finding& found : report.findings) {
        log.line("finding", "invariant=%d partition=%s number=%d pid=%lld text=%s", found.invariant,
                 found.partition.c_str(), found.number, static_cast<long long>(found.pid), found.text.c_str());
    }
    if (!report.complete()) log.line("wrong", "what=not-all-was-looked-at");
    log.line("repair", "findings=%zu repaired=%zu", report.findings.size(), report.count(bm_verdict::repaired));
}

} // namespace soak
