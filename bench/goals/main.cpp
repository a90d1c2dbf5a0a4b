// Judges a record: prints its tables and, last, how many goals it meets.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

#include "report.h"

namespace {

using namespace bench;

constexpr char USAGE[] = "usage: bm_goals [--json FILE] [--expect-missed N,...] RECORD...\n"
                         "  --json           also write figures and verdicts to a file\n"
                         "  --expect-missed  succeed only if these goals are all missed, by what was measured\n";

struct options {
    std::string json;
    std::string expect_missed;
    std::vector<std::string> records;
};

bool parse(int argc, char** argv, options& o)
{
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        std::string* const value = word == "--json" ? &o.json : word == "--expect-missed" ? &o.expect_missed : nullptr;
        if (value == nullptr) {
            if (word.rfind("--", 0) == 0) return false;
            o.records.push_back(word);
        } else if (++i < argc) {
            *value = argv[i];
        } else {
            return false;
        }
    }
    return !o.records.empty();
}

record read_all(const std::vector<std::string>& names)
{
    record r;
    for (const std::string& name : names) {
        std::ifstream file(name);
        if (!file) throw std::runtime_error("cannot read " + name);
        r.read(file);
    }
    return r;
}

// One that was not measured is missed, too, but shows nothing.
bool fell(const goal& g, const record& r)
{
    for (const bound& b : g.bounds) {
        const judgement j = judge(b, r);
        if (!j.values.empty() && !j.met) return true;
    }
    return false;
}

bool all_fell(const record& r, const std::string& numbers)
{
    bool all = true;
    std::istringstream list(numbers);
    for (std::string number; std::getline(list, number, ',');) {
        for (const goal& g : all_goals()) {
            if (std::to_string(g.number) != number) continue;
            const bool one = fell(g, r);
            std::printf("goal %d %s\n", g.number, one ? "fell, as it must" : "DID NOT FALL");
            all = all && one;
        }
    }
    return all;
}

} // namespace

int main(int argc, char** argv)
{
    options o;
    if (!parse(argc, argv, o)) {
        std::fputs(USAGE, stderr);
        return 2;
    }
    try {
        const record r = read_all(o.records);
        std::fputs(text_report(r, all_goals()).c_str(), stdout);
        if (!o.json.empty()) std::ofstream(o.json) << json_report(r, all_goals());
        const bool as_expected = o.expect_missed.empty() || all_fell(r, o.expect_missed);
        std::fputs(last_line(r, all_goals()).c_str(), stdout);
        return as_expected ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "bm_goals: %s\n", e.what());
        return EXIT_FAILURE;
    }
}
