/// @file
/// Lines of a record as what they say.
#ifndef ZRK4_PROOF_FIELDS_H
#define ZRK4_PROOF_FIELDS_H

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <map>
#include <string>

namespace proof {

/// One line, "kind key=value ...".
class record_line {
  public:
    explicit record_line(const std::string& line);
    const std::string& kind() const { return kind_; }
    /// "" and 0 when there is no such key.
    std::string text(const std::string& key) const;
    uint64_t number(const std::string& key) const;

  private:
    std::string kind_;
    std::map<std::string, std::string> fields_;
};

void for_each_line(std::istream& record, const std::function<void(const record_line&)>& visit);

} // namespace proof

#endif
