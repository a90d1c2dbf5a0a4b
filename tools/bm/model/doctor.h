/// @file
/// Whether a host is fit for an exchange, line by line.
#ifndef ZRK4_TOOL_DOCTOR_H
#define ZRK4_TOOL_DOCTOR_H

#include <optional>
#include <string>
#include <vector>

#include "cli/options.h"
#include "host/partition.h"
#include "model/kernel_plan.h"

namespace bm {

enum class fitness {
    good,
    warning, ///< works, and may lose data or come to grief later
    bad,     ///< does not work
    unknown  ///< could not be found out
};
const char* word_of(fitness how);

struct doctor_line {
    std::string what;
    fitness how = fitness::unknown;
    std::string found, needed, why;
    std::string mend; ///< a command; empty where nothing is to be mended
};
using doctor_lines = std::vector<doctor_line>;

/// Semaphores, sets, segments, memory, receive buffers.
doctor_lines kernel_lines(const sizing& plan, const kernel_settings& now, bool already_made);
/// Keys and strangers at them, layout versions.
doctor_lines partition_lines(const std::vector<partition>& all, const kernel_needs& needs, bool already_made);
/// RemoveIPC of logind, for user `uid`.
doctor_line logind_line(unsigned uid);
/// Whether "localhost" is 127.0.0.1.
doctor_line localhost_line();
/// Clock of this host against the time mask.
doctor_line clock_line(unsigned long time_mask_us);
/// Who takes part: users, masters, what readers have lost. None of them where there is no exchange yet.
doctor_lines exchange_lines(const std::vector<partition>& all, const common_options& common);

/// The last RemoveIPC of a text of the form of logind.conf; empty when it has none.
std::optional<bool> remove_ipc_in(const std::string& text);
/// A word with 64 bits of signals: whether a thread that blocks them is one of the library's own.
bool is_library_thread(uint64_t blocked);

} // namespace bm

#endif
