// Gates and slot locks: free, or in the hands of a process that lives.
#include "check_run.h"
#include "process_life.h"

namespace zrk4::impl {
namespace {

std::string name_of_lock(int semaphore)
{
    return semaphore == gbl_gate ? "the gate" : worded("lock %d", semaphore - gbl_nsems);
}

pid_t last_user(const raw_partition& part, int semaphore)
{
    return static_cast<pid_t>(semctl(part.semid(), semaphore, GETPID));
}

// The kernel undoes a dying process's holds before it shows it as dead: what stands after that was never undone. An id
// of 0 is a process that cannot be seen from here.
bool left_behind(const raw_partition& part, int semaphore, pid_t holder)
{
    return holder > 0 && !is_running(holder) && part.value(semaphore) == 0 && last_user(part, semaphore) == holder;
}

void check_lock(check_run& run, const raw_partition& part, int semaphore)
{
    const std::string lock = name_of_lock(semaphore);
    const int number = semaphore == gbl_gate ? -1 : semaphore - gbl_nsems;
    const int value = part.value(semaphore);
    const pid_t holder = last_user(part, semaphore);
    std::string text;
    if (value > 1) {
        text = worded("%s stands at %d: that many may hold it at once", lock.c_str(), value);
    } else if (value == 0 && left_behind(part, semaphore, holder)) {
        text = worded("%s is held by process %d, which is gone", lock.c_str(), holder);
    } else {
        return;
    }
    const bool mended = run.request.repair && change_count(part, semaphore, 1 - value);
    run.found(8, part.name(), number, value > 1 ? 0 : holder, text, mended);
}

} // namespace

void check_locks(check_run& run, const raw_partition& part)
{
    std::vector<unsigned short> values;
    if (!part.read_semaphores(values)) return;
    for (int i = 0; i < static_cast<int>(values.size()); ++i) {
        if ((i == gbl_gate || i >= gbl_nsems) && values[static_cast<size_t>(i)] != 1) check_lock(run, part, i);
    }
}

} // namespace zrk4::impl
