#include "raw_record.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <istream>
#include <sstream>
#include <stdexcept>

namespace bench {

std::string to_text(const figure_line& line)
{
    char value[32];
    std::snprintf(value, sizeof value, "%.9g", line.value);
    return std::to_string(line.round) + '\t' + line.scenario + '\t' + line.subject + '\t' + line.figure + '\t' + value;
}

namespace {

figure_line parsed(const std::string& text)
{
    std::istringstream words(text);
    figure_line line;
    std::string value;
    char* end = nullptr;
    if (words >> line.round >> line.scenario >> line.subject >> line.figure >> value) {
        line.value = std::strtod(value.c_str(), &end);
        std::string more;
        if (*end == '\0' && std::isfinite(line.value) && line.round >= 0 && !(words >> more)) return line;
    }
    throw std::runtime_error("no line of a record: " + text);
}

} // namespace

void record::read(std::istream& in)
{
    const std::string machine = "machine\t";
    for (std::string text; std::getline(in, text);) {
        if (text.rfind(machine, 0) == 0) {
            const std::string told = text.substr(machine.size());
            if (std::find(machines_.begin(), machines_.end(), told) == machines_.end()) machines_.push_back(told);
        } else if (!text.empty()) {
            add(parsed(text));
        }
    }
}

void record::add(const figure_line& line)
{
    lines_.push_back(line);
    values_[{line.scenario, line.subject, line.figure}][line.round] = line.value;
}

std::optional<double> record::value(int round, const std::string& scenario, const std::string& subject,
                                    const std::string& figure) const
{
    const auto all = values_.find({scenario, subject, figure});
    if (all == values_.end()) return std::nullopt;
    auto at = all->second.find(round);
    if (at == all->second.end()) at = all->second.find(0);
    if (at == all->second.end()) return std::nullopt;
    return at->second;
}

std::vector<int> record::sizes(const std::string& prefix) const
{
    std::set<int> found;
    for (const figure_line& line : lines_) {
        if (line.scenario.rfind(prefix, 0) == 0) found.insert(std::atoi(line.scenario.c_str() + prefix.size()));
    }
    return {found.begin(), found.end()};
}

std::vector<int> record::rounds(const std::string& scenario, const std::string& subject,
                                const std::string& figure) const
{
    std::vector<int> found;
    const auto all = values_.find({scenario, subject, figure});
    if (all == values_.end()) return found;
    for (const auto& [round, value] : all->second) found.push_back(round);
    return found;
}

} // namespace bench
