#include "machine.h"

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <system_error>

#include <sched.h>
#include <sys/ipc.h>
#include <sys/mount.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace bench {

std::vector<int> allowed_processors()
{
    cpu_set_t set;
    CPU_ZERO(&set);
    std::vector<int> processors;
    if (sched_getaffinity(0, sizeof set, &set) != 0) return processors;
    for (int i = 0; i < CPU_SETSIZE; ++i) {
        if (CPU_ISSET(i, &set)) processors.push_back(i);
    }
    return processors;
}

void run_on(int processor)
{
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(processor, &set);
    if (sched_setaffinity(0, sizeof set, &set) != 0)
        throw std::system_error(errno, std::generic_category(), "processor " + std::to_string(processor));
}

namespace {

// An ordinary user gets the namespace inside a user namespace. Who is unknown there cannot make files in a place for
// shared memory that belongs to it.
bool unshare_as_ordinary_user()
{
    const std::string user = std::to_string(getuid());
    const std::string group = std::to_string(getgid());
    if (unshare(CLONE_NEWUSER | CLONE_NEWIPC) != 0) return false;
    std::ofstream("/proc/self/setgroups") << "deny";
    std::ofstream("/proc/self/uid_map") << user << ' ' << user << " 1";
    std::ofstream("/proc/self/gid_map") << group << ' ' << group << " 1";
    return true;
}

} // namespace

bool enter_ipc_namespace()
{
    if (unshare(CLONE_NEWIPC) != 0 && !unshare_as_ordinary_user()) return false;
    // The first segment of a namespace gets number 0, with which a partition of buffers cannot be used.
    const int segment = shmget(IPC_PRIVATE, 1, 0600);
    return segment >= 0 && shmctl(segment, IPC_RMID, nullptr) == 0;
}

namespace {

bool own_mounts = false;

bool lay_over(const char* path) { return own_mounts && mount("tmpfs", path, "tmpfs", 0, nullptr) == 0; }

} // namespace

void enter_own_shared_memory()
{
    own_mounts = unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    lay_over("/dev/shm");
}

covered_folder::covered_folder(const char* path) : path_(lay_over(path) ? path : nullptr) {}

covered_folder::~covered_folder()
{
    if (path_ != nullptr) umount2(path_, MNT_DETACH);
}

namespace {

// The value of the first line "name : value" whose name begins with `name`.
std::string value_in(const char* file, const std::string& name)
{
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line);) {
        const size_t colon = line.find(':');
        if (line.rfind(name, 0) != 0 || colon == std::string::npos) continue;
        const size_t begin = line.find_first_not_of(" \t", colon + 1);
        return begin == std::string::npos ? std::string() : line.substr(begin);
    }
    return {};
}

} // namespace

machine this_machine()
{
    machine m;
    m.processor = value_in("/proc/cpuinfo", "model name");
    m.virtual_machine = (value_in("/proc/cpuinfo", "flags") + ' ').find(" hypervisor ") != std::string::npos;
    m.processors = static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN));
    m.memory_mib = std::strtoll(value_in("/proc/meminfo", "MemTotal").c_str(), nullptr, 10) / 1024;
    utsname names{};
    if (uname(&names) == 0) m.kernel = std::string(names.sysname) + ' ' + names.release;
    return m;
}

std::string in_words(const machine& m, const std::vector<int>& used)
{
    std::string text = m.processor + ", " + std::to_string(m.processors) + " processors" +
                       (m.virtual_machine ? " (virtual machine)" : "") + ", used:";
    for (const int p : used) text += ' ' + std::to_string(p);
    return text + "; " + std::to_string(m.memory_mib) + " MiB; " + m.kernel;
}

double load()
{
    double average = 0;
    return getloadavg(&average, 1) == 1 ? average : -1;
}

namespace {

int64_t time_of(clockid_t clock)
{
    timespec t{};
    clock_gettime(clock, &t);
    return int64_t{t.tv_sec} * 1'000'000'000 + t.tv_nsec;
}

} // namespace

int64_t now_ns() { return time_of(CLOCK_MONOTONIC); }
int64_t processor_time_ns() { return time_of(CLOCK_PROCESS_CPUTIME_ID); }

} // namespace bench
