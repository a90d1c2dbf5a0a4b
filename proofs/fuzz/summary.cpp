#include "summary.h"

#include <algorithm>
#include <charconv>
#include <istream>
#include <sstream>

#include "fields.h"

namespace fuzz {
namespace {

template <class Number> bool read_number(const std::string& text, Number& number)
{
    const char* const end = text.data() + text.size();
    const auto [behind, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && behind == end && !text.empty();
}

one_run run_of(const proof::record_line& line)
{
    one_run run;
    run.date = line.text("date");
    run.target = line.text("target");
    run.corpus = line.text("corpus");
    const bool numbers = read_number(line.text("status"), run.status) && read_number(line.text("units"), run.units);
    run.readable = numbers && !run.date.empty() && !run.target.empty() && !run.corpus.empty();
    return run;
}

bool is_finding(const one_run& run) { return !run.readable || run.status != 0; }

} // namespace

std::vector<one_run> runs_of(std::istream& record)
{
    std::vector<one_run> runs;
    proof::for_each_line(record, [&](const proof::record_line& line) {
        if (line.kind() == "run") runs.push_back(run_of(line));
    });
    return runs;
}

std::string last_line(const std::vector<one_run>& runs)
{
    uint64_t units = 0;
    for (const one_run& run : runs) units += run.units;
    std::ostringstream out;
    out << "runs: " << units << ", findings: " << std::count_if(runs.begin(), runs.end(), is_finding);
    return out.str();
}

std::string complaints(const std::vector<one_run>& runs)
{
    std::ostringstream out;
    if (runs.empty()) out << "no fuzzer ran\n";
    for (const one_run& run : runs) {
        if (!run.readable) {
            out << run.target << ": its record is not complete\n";
        } else if (run.status != 0) {
            out << run.target << ": ended with status " << run.status << "\n";
        } else if (run.units == 0) {
            out << run.target << ": executed nothing\n";
        }
    }
    return out.str();
}

std::string ledger_rows(const std::vector<one_run>& runs)
{
    std::ostringstream out;
    for (const one_run& run : runs) {
        if (is_finding(run)) continue;
        out << run.date << '\t' << run.target << '\t' << run.corpus << '\t' << run.units << '\n';
    }
    return out.str();
}

} // namespace fuzz
