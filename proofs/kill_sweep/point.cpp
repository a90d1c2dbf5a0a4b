#include "point.h"

#include <cstdlib>
#include <sstream>
#include <vector>

namespace sweep {

const char* text_of(moment m)
{
    switch (m) {
    case moment::before:
        return "before";
    case moment::after:
        return "after";
    default:
        return "at";
    }
}

std::string variant_of(const point& p)
{
    return p.role + (p.in.wide ? ":2024" : ":2010") + (p.in.by_id ? ":evid:" : ":time:") + std::to_string(p.in.readers);
}

std::string name_of(const point& p)
{
    std::ostringstream text;
    text << variant_of(p) << ':' << text_of(p.when) << ':';
    if (p.when == moment::at) text << "0x" << std::hex;
    text << p.number;
    return text.str();
}

namespace {

std::vector<std::string> fields_of(const std::string& text)
{
    std::vector<std::string> fields;
    std::istringstream in(text);
    for (std::string field; std::getline(in, field, ':');) fields.push_back(field);
    return fields;
}

// The whole text must be the number.
std::optional<long> number_of(const std::string& text)
{
    char* end = nullptr;
    const long value = std::strtol(text.c_str(), &end, 0);
    if (text.empty() || *end != '\0' || value < 0) return std::nullopt;
    return value;
}

std::optional<moment> moment_named(const std::string& text)
{
    for (const moment m : {moment::before, moment::after, moment::at}) {
        if (text == text_of(m)) return m;
    }
    return std::nullopt;
}

} // namespace

std::optional<point> point_named(const std::string& name)
{
    const std::vector<std::string> fields = fields_of(name);
    if (fields.size() != 6 || fields[0].empty()) return std::nullopt;
    const bool known = (fields[1] == "2010" || fields[1] == "2024") && (fields[2] == "time" || fields[2] == "evid");
    const auto readers = number_of(fields[3]);
    const auto when = moment_named(fields[4]);
    const auto number = number_of(fields[5]);
    if (!known || !readers || *readers < 1 || *readers > 3 || !when || !number) return std::nullopt;
    return point{fields[0], {fields[1] == "2024", fields[2] == "evid", static_cast<int>(*readers)}, *when, *number};
}

} // namespace sweep
