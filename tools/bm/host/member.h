/// @file
/// This process as a member of the exchange.
#ifndef ZRK4_TOOL_MEMBER_H
#define ZRK4_TOOL_MEMBER_H

#include <cstdio>
#include <string>
#include <string_view>

#include "BM.h"
#include "cli/arguments.h"
#include "cli/options.h"
#include "cli/output.h"

namespace bm {

/// What all members of an exchange have in common.
struct member_options {
    std::string mode = "time";
    unsigned long time_mask = 20000;
};

void declare_member(arguments& app, member_options& options);

/// Puts the names into the environment, from which a BM takes them. Before the first BM is made.
void name_slot_partitions(const common_options& common);
/// Sets a BM up as the options say, before its init. Without --records: as the used event slots show, else the 2010 ones.
void configure(BM& member, const common_options& common, const member_options& options);
/// Joins an exchange whose master is there. @throws failure
void join(BM& member, const common_options& common);

/// Event type by its number or its name ("NORMAL", "EV_NORMAL"). @throws failure with exit_status::usage
ZRK4_EVTYPE event_type(const std::string& text);

/// Standard output for the operator alone, while the library's own lines go to standard error.
class operator_output {
  public:
    operator_output();
    ~operator_output();
    operator_output(const operator_output&) = delete;
    operator_output& operator=(const operator_output&) = delete;

    void print(std::string_view text) const;
    void print_line(const json& document) const;

  private:
    std::FILE* out_;
};

} // namespace bm

#endif
