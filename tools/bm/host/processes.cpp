#include "host/processes.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>

#include <fmt/format.h>
#include <sys/stat.h>

#include "cli/output.h"
#include "process_life.h"

namespace bm {
namespace {

life life_of(const zrk4::impl::process_stat& seen)
{
    switch (seen.state) {
    case 'X':
        return life::dead;
    case 'Z': // a first thread that has ended shows so while the others go on
        return seen.threads > 1 ? life::alive : life::zombie;
    case 'T':
    case 't':
        return life::stopped;
    default:
        return life::alive;
    }
}

} // namespace

const char* word_of(life state)
{
    switch (state) {
    case life::alive:
        return "alive";
    case life::stopped:
        return "stopped";
    case life::zombie:
        return "zombie";
    case life::other_user:
        return "other user";
    case life::younger:
        return "other process";
    default:
        return "dead";
    }
}

std::string process::text() const
{
    const std::string name = command.empty() ? "" : " " + printable(command);
    return state == life::alive ? fmt::format("{}{}", pid, name) : fmt::format("{}{} ({})", pid, name, word_of(state));
}

process processes::ask(pid_t pid)
{
    process one;
    one.pid = pid;
    if (pid > 0 && (kill(pid, 0) == 0 || errno == EPERM)) one.state = life::alive;
    return one;
}

process processes::look(pid_t pid) const
{
    process one = ask(pid);
    if (one.state == life::dead) return one;
    const auto seen = zrk4::impl::stat_of(pid);
    if (!seen) return ask(pid); // it may have ended between the two looks
    one.command = seen->command;
    one.began = zrk4::impl::start_of(*seen);
    one.state = life_of(*seen);
    struct stat entry {};
    if (stat(fmt::format("/proc/{}", pid).c_str(), &entry) != 0) return one;
    one.uid = entry.st_uid;
    if (owner_ != 0 && one.uid != owner_ && one.state != life::dead) one.state = life::other_user;
    return one;
}

const process& processes::of(pid_t pid)
{
    const auto known = known_.find(pid);
    return known != known_.end() ? known->second : known_.emplace(pid, look(pid)).first->second;
}

const process& processes::asked(pid_t pid)
{
    const auto known = asked_.find(pid);
    return known != asked_.end() ? known->second : asked_.emplace(pid, ask(pid)).first->second;
}

process processes::owner_of(pid_t pid, int64_t when)
{
    constexpr int64_t UNSURE = 20'000; // starts are told in ticks
    process one = of(pid);
    if (when != 0 && one.began > when + UNSURE && one.state != life::dead) one.state = life::younger;
    return one;
}

} // namespace bm
