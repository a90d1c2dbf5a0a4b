#include "host/segments.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <string>

#include "C_shm_int.h"
#include "cli/failure.h"
#include "host/host_files.h"

namespace bm {
namespace {

constexpr char LIST[] = "/proc/sysvipc/shm";

// Columns of the list: key shmid perms size cpid lpid nattch uid gid cuid cgid atime dtime ctime rss swap
constexpr size_t COLUMNS = 14;
enum column { KEY, ID, MODE, BYTES, CREATOR, LAST, ATTACHED, USER, GROUP, C_USER, C_GROUP, A_TIME, D_TIME, C_TIME };

std::optional<std::array<int64_t, COLUMNS>> numbers_of(std::string_view line)
{
    std::array<int64_t, COLUMNS> all{};
    const char* at = line.data();
    const char* const end = line.data() + line.size();
    for (size_t c = 0; c < COLUMNS; ++c) {
        while (at != end && *at == ' ') ++at;
        const auto [next, error] = std::from_chars(at, end, all[c], c == MODE ? 8 : 10);
        if (error != std::errc()) return {};
        at = next;
    }
    return all;
}

segment segment_of(const std::array<int64_t, COLUMNS>& row)
{
    segment one;
    one.key = static_cast<int>(row[KEY]);
    one.id = static_cast<int>(row[ID]);
    one.mode = static_cast<unsigned>(row[MODE]);
    one.bytes = static_cast<uint64_t>(row[BYTES]);
    one.creator = static_cast<pid_t>(row[CREATOR]);
    one.attached = static_cast<long>(row[ATTACHED]);
    one.uid = static_cast<uid_t>(row[USER]);
    one.changed = row[C_TIME];
    return one;
}

} // namespace

std::vector<segment> parse_segments(std::string_view text)
{
    std::vector<segment> all;
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        const auto row = numbers_of(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
        if (row && (*row)[KEY] >= SHM_KEY_FIRST && (*row)[KEY] <= SHM_KEY_LAST) all.push_back(segment_of(*row));
    }
    std::sort(all.begin(), all.end(), [](const segment& a, const segment& b) { return a.key < b.key; });
    return all;
}

std::vector<segment> segments_of_partitions()
{
    const std::optional<std::string> text = file_text(LIST);
    if (!text) {
        throw failure(exit_status::failed, std::string("the kernel's list of segments cannot be read: ") + LIST)
            .needed("/proc, mounted and readable")
            .help("mount -t proc proc /proc");
    }
    return parse_segments(*text);
}

} // namespace bm
