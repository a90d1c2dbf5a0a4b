/// @file
/// The last line of a call of the fuzzers, derived from its record.
///
/// The record has a line for every fuzzer that ran: `run date=D target=T corpus=HASH status=N units=N`; `units` are the
/// inputs that it executed, out of its own final statistics, `status` what it ended with.
#ifndef ZRK4_FUZZ_SUMMARY_H
#define ZRK4_FUZZ_SUMMARY_H

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace fuzz {

struct one_run {
    std::string date;
    std::string target;
    std::string corpus;
    int status = -1;
    uint64_t units = 0;
    bool readable = false; ///< the line has all that it should have
};

std::vector<one_run> runs_of(std::istream& record);
/// "runs: N, findings: N". A fuzzer that did not end with 0 has found something.
std::string last_line(const std::vector<one_run>& runs);
/// Why the call was not as it has to be, a line for each reason; empty when it was.
std::string complaints(const std::vector<one_run>& runs);
/// What is added to the ledger: date, target, corpus and units of every run without a finding.
std::string ledger_rows(const std::vector<one_run>& runs);

} // namespace fuzz

#endif
