#include "fields.h"

#include <istream>
#include <sstream>

namespace proof {

record_line::record_line(const std::string& line)
{
    std::istringstream words(line);
    words >> kind_;
    for (std::string word; words >> word;) {
        const size_t sign = word.find('=');
        fields_[word.substr(0, sign)] = sign == std::string::npos ? "" : word.substr(sign + 1);
    }
}

std::string record_line::text(const std::string& key) const
{
    const auto at = fields_.find(key);
    return at == fields_.end() ? "" : at->second;
}

uint64_t record_line::number(const std::string& key) const
{
    const std::string digits = text(key);
    return digits.empty() ? 0 : std::stoull(digits);
}

void for_each_line(std::istream& record, const std::function<void(const record_line&)>& visit)
{
    for (std::string line; std::getline(record, line);) visit(record_line(line));
}

} // namespace proof
