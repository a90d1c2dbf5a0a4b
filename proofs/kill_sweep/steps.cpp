#include "steps.h"

#include <cerrno>
#include <cstddef>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>

#include <sys/sem.h>
#include <sys/syscall.h>
#include <sys/user.h>

#include "record.h"

namespace sweep {
namespace {

constexpr const char* LIBRARY = "/libZRK4bm.so";

/// Where the library lies in a process.
struct library_place {
    uint64_t low = 0;
    uint64_t high = 0;

    explicit library_place(pid_t process)
    {
        std::ifstream maps("/proc/" + std::to_string(process) + "/maps");
        for (std::string line; std::getline(maps, line);) {
            if (line.find(LIBRARY) == std::string::npos) continue;
            std::istringstream range(line);
            uint64_t begin = 0;
            uint64_t end = 0;
            char dash = 0;
            range >> std::hex >> begin >> dash >> end;
            if (low == 0) low = begin;
            high = end;
        }
        if (low == 0) throw std::runtime_error("the library is not in the process");
    }
    bool holds(uint64_t address) const { return address >= low && address < high; }
};

user_regs_struct registers_of(pid_t thread)
{
    user_regs_struct registers{};
    ptrace(PTRACE_GETREGS, thread, nullptr, &registers);
    return registers;
}

uint64_t word_at(pid_t thread, uint64_t address)
{
    errno = 0;
    const long word = ptrace(PTRACE_PEEKTEXT, thread, reinterpret_cast<void*>(address), nullptr);
    return errno == 0 ? static_cast<uint64_t>(word) : 0;
}

/// Locks that the thread holds: semaphores that it took with undo.
class lock_count {
  public:
    explicit lock_count(pid_t thread) : thread_(thread) {}

    void enter(uint64_t nr, uint64_t operations)
    {
        change_ = 0;
        if (nr != SYS_semtimedop && nr != SYS_semop) return;
        const uint64_t word = word_at(thread_, operations);
        const auto by = static_cast<int16_t>(word >> 16);
        const auto flags = static_cast<int16_t>(word >> 32);
        if ((flags & SEM_UNDO) != 0) change_ = -by;
    }
    void leave(int64_t answer)
    {
        if (answer == 0) held_ += change_;
        change_ = 0;
    }
    bool any() const { return held_ > 0; }

  private:
    pid_t thread_;
    int change_ = 0;
    int held_ = 0;
};

/// Steps through the code from the taking of a lock to the giving of the last one.
class locked_walk {
  public:
    locked_walk(traced_thread& victim, lock_count& locks) : victim_(victim), locks_(locks), library_(victim.process())
    {
    }

    /// Until no lock is held any more. @return false when the thread has ended.
    bool run()
    {
        while (locks_.any()) {
            const user_regs_struct now = registers_of(victim_.thread());
            if (library_.holds(now.rip) && seen_.insert(now.rip).second)
                offsets.push_back(static_cast<long>(now.rip - library_.low));
            const bool call = makes_call(now.rip);
            if (call) locks_.enter(now.rax, now.rsi);
            if (!victim_.go(PTRACE_SINGLESTEP)) return false;
            if (call) locks_.leave(static_cast<int64_t>(registers_of(victim_.thread()).rax));
        }
        return true;
    }

    std::vector<long> offsets;

  private:
    bool makes_call(uint64_t address)
    {
        const auto known = calls_.find(address);
        if (known != calls_.end()) return known->second;
        return calls_[address] = (word_at(victim_.thread(), address) & 0xffff) == 0x050f;
    }

    traced_thread& victim_;
    lock_count& locks_;
    library_place library_;
    std::set<uint64_t> seen_;
    std::map<uint64_t, bool> calls_;
};

// A breakpoint of this one thread: the process's other threads must not meet it.
void break_at(pid_t thread, uint64_t address)
{
    constexpr long EXECUTION_OF_FIRST = 1;
    if (ptrace(PTRACE_POKEUSER, thread, offsetof(user, u_debugreg[0]), address) != 0 ||
        ptrace(PTRACE_POKEUSER, thread, offsetof(user, u_debugreg[7]), EXECUTION_OF_FIRST) != 0)
        throw std::runtime_error("no breakpoint can be had");
}

void no_break(pid_t thread) { ptrace(PTRACE_POKEUSER, thread, offsetof(user, u_debugreg[7]), 0L); }

/// Goes through the calls of a span and keeps the count of locks.
/// @param at_stop  for every other stop inside the span and after every call; false: that was all
/// @return false when the thread has ended
template <class AtStop> bool through_span(traced_thread& victim, const span& in, lock_count& locks, AtStop at_stop)
{
    int marks = 0;
    while (victim.go(PTRACE_SYSCALL)) {
        if (!victim.at_call()) {
            if (marks > 0 && !at_stop()) return true;
            continue;
        }
        const __ptrace_syscall_info info = victim.call_info();
        if (info.op == PTRACE_SYSCALL_INFO_ENTRY) {
            if (static_cast<long>(info.entry.nr) == in.from && ++marks > in.from_count) return true;
            locks.enter(info.entry.nr, info.entry.args[1]);
        } else {
            locks.leave(info.exit.rval);
            if (marks > 0 && !at_stop()) return true;
        }
    }
    return false;
}

} // namespace

std::vector<long> locked_instructions(traced_thread& victim, const span& in)
{
    lock_count locks(victim.thread());
    locked_walk walk(victim, locks);
    through_span(victim, in, locks, [&] { return walk.run(); });
    victim.let_go();
    return walk.offsets;
}

trace kill_at_instruction(traced_thread& victim, const span& in, long offset)
{
    lock_count locks(victim.thread());
    const uint64_t address = library_place(victim.process()).low + static_cast<uint64_t>(offset);
    break_at(victim.thread(), address);
    trace seen;
    const bool lives = through_span(victim, in, locks, [&] {
        seen.killed = victim.at_trap() && locks.any() && registers_of(victim.thread()).rip == address;
        return !seen.killed;
    });
    if (lives && !seen.killed) {
        no_break(victim.thread());
        victim.let_go();
        seen.status = LIVES;
    } else {
        seen.status = victim.end(seen.killed);
    }
    return seen;
}

} // namespace sweep
