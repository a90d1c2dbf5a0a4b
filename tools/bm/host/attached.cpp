#include "host/attached.h"

#include <algorithm>
#include <cctype>
#include <sstream>

#include <sys/stat.h>
#include <unistd.h>

#include "host/host_files.h"

namespace bm {
namespace {

/// A System V segment shows in the mappings under its key, with its id in the place of an inode.
std::set<int> segments_in(const std::string& maps, const std::set<int>& wanted)
{
    std::set<int> seen;
    std::istringstream lines(maps);
    for (std::string line; std::getline(lines, line);) {
        if (line.find("/SYSV") == std::string::npos) continue;
        std::istringstream fields(line);
        std::string range, rights, offset, device;
        int inode = -1;
        if (fields >> range >> rights >> offset >> device >> inode && wanted.count(inode) != 0) seen.insert(inode);
    }
    return seen;
}

/// Segments of another namespace may have the same ids.
bool shares_our_namespace(const std::string& place)
{
    struct stat ours {};
    struct stat theirs {};
    return stat("/proc/self/ns/ipc", &ours) == 0 && stat(host_path(place + "/ns/ipc").c_str(), &theirs) == 0 &&
           ours.st_dev == theirs.st_dev && ours.st_ino == theirs.st_ino;
}

bool is_number(const std::string& name)
{
    return !name.empty() && std::all_of(name.begin(), name.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
}

std::string without_newline(std::string text)
{
    while (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
}

} // namespace

std::vector<attached_process> attached_to(const std::set<int>& segments)
{
    std::vector<attached_process> all;
    for (const std::string& name : host_directory("/proc")) {
        if (!is_number(name) || name == std::to_string(getpid())) continue;
        const std::string place = "/proc/" + name;
        if (!shares_our_namespace(place)) continue;
        attached_process one;
        one.segments = segments_in(host_file(place + "/maps").value_or(""), segments);
        if (one.segments.empty()) continue;
        one.pid = std::stoi(name);
        one.command = without_newline(host_file(place + "/comm").value_or(""));
        struct stat entry {};
        if (stat(host_path(place).c_str(), &entry) == 0) one.uid = entry.st_uid;
        all.push_back(one);
    }
    return all;
}

} // namespace bm
