#include "options.h"

#include <cstdlib>

#include <getopt.h>

namespace bench {

const char* const USAGE =
    "usage: bm_bench [--rounds N] [--first-round N] [--turns N] [--seconds S] [--processors A[,B]]\n"
    "                [--only PREFIX,...] [--record FILE] [--short]\n"
    "       bm_bench --trace library|strict|best [--scenario NAME] [--events N]\n"
    "  --rounds       how often everything is measured, each time beside its counterparts (5)\n"
    "  --first-round  the number of the first one (1): a run may be made in pieces\n"
    "  --turns        how often in a round, whose figure is their median (5)\n"
    "  --seconds      length of one measurement, 0.001 to 20 (0.15)\n"
    "  --processors   the two to run on (the first two that are allowed)\n"
    "  --only         scenarios whose names begin so\n"
    "  --record       file that the figures are added to, a line each (standard output)\n"
    "  --short        one short round: shows that everything runs, its figures mean nothing\n"
    "  --trace        one program alone, N events (100) on one processor, to count its calls with strace; of a "
    "scenario,\n"
    "                 or in the shape \"shape/WRITERS/READERS/BLOCKS\" (shape/1/1/1)\n";

namespace {

// @return nothing unless all of `text` is a number between the two.
std::optional<double> number(const std::string& text, double lowest, double highest)
{
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !(value >= lowest && value <= highest)) return std::nullopt;
    return value;
}

bool set_processors(options& o, const std::string& text)
{
    constexpr double MOST = 1023;
    const size_t comma = text.find(',');
    const auto first = number(text.substr(0, comma), 0, MOST);
    if (!first) return false;
    o.processors = {static_cast<int>(*first)};
    if (comma == std::string::npos) return true;
    const auto second = number(text.substr(comma + 1), 0, MOST);
    if (second) o.processors.push_back(static_cast<int>(*second));
    return second.has_value();
}

template <class Value> bool set_number(Value& to, const std::string& text, double lowest, double highest)
{
    const auto value = number(text, lowest, highest);
    if (value) to = static_cast<Value>(*value);
    return value.has_value();
}

bool set_option(options& o, int letter, const std::string& text)
{
    switch (letter) {
    case 'r':
        return set_number(o.rounds, text, 1, 1000);
    case 'u':
        return set_number(o.turns, text, 1, 100);
    case 's':
        return set_number(o.seconds, text, 0.001, 20);
    case 'p':
        return set_processors(o, text);
    case 'f':
        return set_number(o.first_round, text, 1, 1000);
    case 'w':
        o.record = text;
        return !text.empty();
    case 'o':
        o.only = text;
        return !text.empty();
    case 'n':
        o.scenario = text;
        return !text.empty();
    case 'q':
        o.rounds = o.turns = 1;
        o.seconds = 0.02;
        return true;
    case 't':
        o.trace = text;
        return text == "library" || text == "strict" || text == "best";
    case 'e':
        return set_number(o.events, text, 2, 100'000);
    default:
        return false;
    }
}

} // namespace

std::optional<options> parse(int argc, char** argv)
{
    static const option known[] = {{"rounds", required_argument, nullptr, 'r'},
                                   {"turns", required_argument, nullptr, 'u'},
                                   {"seconds", required_argument, nullptr, 's'},
                                   {"processors", required_argument, nullptr, 'p'},
                                   {"first-round", required_argument, nullptr, 'f'},
                                   {"record", required_argument, nullptr, 'w'},
                                   {"only", required_argument, nullptr, 'o'},
                                   {"scenario", required_argument, nullptr, 'n'},
                                   {"short", no_argument, nullptr, 'q'},
                                   {"trace", required_argument, nullptr, 't'},
                                   {"events", required_argument, nullptr, 'e'},
                                   {nullptr, 0, nullptr, 0}};
    options o;
    optind = 0; // from the start, also when called again
    for (int letter = 0; (letter = getopt_long(argc, argv, "", known, nullptr)) != -1;) {
        if (!set_option(o, letter, optarg == nullptr ? "" : optarg)) return std::nullopt;
    }
    if (optind != argc) return std::nullopt;
    return o;
}

} // namespace bench
