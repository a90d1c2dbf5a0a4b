#include "summary.h"

#include <istream>
#include <sstream>

namespace soak {
namespace {

using fields = std::map<std::string, std::string>;

fields fields_of(std::istringstream& line)
{
    fields found;
    for (std::string word; line >> word;) {
        const size_t sign = word.find('=');
        found[word.substr(0, sign)] = sign == std::string::npos ? "" : word.substr(sign + 1);
    }
    return found;
}

uint64_t number(const fields& of, const std::string& key)
{
    const auto at = of.find(key);
    return at == of.end() ? 0 : std::stoull(at->second);
}

std::string text(const fields& of, const std::string& key)
{
    const auto at = of.find(key);
    return at == of.end() ? "" : at->second;
}

void count(figures& seen, const std::string& kind, const fields& of)
{
    if (kind == "kill" && text(of, "status") == "signal:9") ++seen.kills;
    if (kind == "blocks") seen.blocks += number(of, "n");
    if (kind == "lost") ++seen.lost;
    if (kind == "repair") seen.repaired = true;
    if (kind == "end") seen.complete = true;
    if (kind != "wrong") return;
    ++seen.wrong;
    ++seen.what[text(of, "what")];
}

} // namespace

figures figures_of(std::istream& record)
{
    figures seen;
    for (std::string line; std::getline(record, line);) {
        std::istringstream words(line);
        std::string kind;
        words >> kind;
        count(seen, kind, fields_of(words));
    }
    return seen;
}

std::string last_line(const figures& seen)
{
    std::ostringstream out;
    out << "kills: " << seen.kills << ", blocks: " << seen.blocks << ", wrong: " << seen.wrong
        << ", lost: " << seen.lost;
    return out.str();
}

std::string complaints(const figures& seen)
{
    std::ostringstream out;
    if (!seen.complete) out << "the run did not come to its end\n";
    if (seen.kills == 0) out << "nobody was killed\n";
    if (seen.blocks == 0) out << "no block arrived\n";
    for (const auto& [what, times] : seen.what) out << "wrong: " << what << ", " << times << " times\n";
    const uint64_t allowed = seen.repaired ? 0 : seen.kills;
    if (seen.lost > allowed) out << "lost " << seen.lost << " buffers, at most " << allowed << " can be explained\n";
    return out.str();
}

} // namespace soak
