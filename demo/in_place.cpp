#include "in_place.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>

namespace demo {

// "7f31c0-7f31c8 rw-s 00000000 00:01 5   /SYSV00000022 (deleted)": for a segment the inode number is its id.
std::vector<attached_segments::extent> attached_segments::parse(std::istream& maps)
{
    std::vector<extent> found;
    for (std::string line; std::getline(maps, line);) {
        if (line.find(" /SYSV") == std::string::npos) continue;
        std::istringstream fields(line);
        extent one{};
        char dash = 0;
        std::string mode, offset, device;
        fields >> std::hex >> one.begin >> dash >> one.end >> mode >> offset >> device >> std::dec >> one.shmid;
        if (fields) found.push_back(one);
    }
    return found;
}

bool attached_segments::known(const char* at, size_t count, int shmid) const
{
    const auto first = reinterpret_cast<uintptr_t>(at);
    return std::any_of(extents_.begin(), extents_.end(), [&](const extent& one) {
        return one.shmid == shmid && first >= one.begin && first < one.end && count <= one.end - first;
    });
}

// The list is read again when something is not in it: partitions are attached as their first block comes by.
bool attached_segments::hold(const char* at, size_t count, int shmid)
{
    if (known(at, count, shmid)) return true;
    std::ifstream maps("/proc/self/maps");
    extents_ = parse(maps);
    return known(at, count, shmid);
}

} // namespace demo
