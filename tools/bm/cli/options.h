/// @file
/// Options that every command takes.
#ifndef ZRK4_TOOL_OPTIONS_H
#define ZRK4_TOOL_OPTIONS_H

#include <optional>
#include <string>

namespace bm {

/// Generation of the event records.
enum class records { of_2010 = 2010, of_2024 = 2024 };

struct common_options {
    bool json = false;
    bool color = false;            ///< whether the text may have colours
    std::string clients;           ///< name of the client-slot partition
    std::string events;            ///< name of the event-slot partition
    std::optional<records> form{}; ///< as asked for; empty: what the event slots show
};

/// What was given on the command line, before the environment fills the gaps.
struct given_options {
    bool json = false;
    bool no_color = false;
    std::string names;
    int records = 0;
};

/// @throws failure with exit_status::usage when --names is no pair
common_options resolved(const given_options& given);

} // namespace bm

#endif
