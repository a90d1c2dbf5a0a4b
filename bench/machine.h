/// @file
/// The machine that is measured on: its processors, its name, its load.
#ifndef ZRK4_BENCH_MACHINE_H
#define ZRK4_BENCH_MACHINE_H

#include <cstdint>
#include <string>
#include <vector>

namespace bench {

/// Processors that this process may run on.
std::vector<int> allowed_processors();
/// Keeps this process, and all that it starts from now on, on one processor. @throws std::system_error
void run_on(int processor);
/// An IPC namespace of this process's own: nothing of a run is seen outside, or stays. @return false where none can be
/// had.
bool enter_ipc_namespace();

/// A place for shared memory of this process's own, which goes with it; without one, what a killed peer leaves stays.
void enter_own_shared_memory();

/// Lays an empty folder over one, for this process and those that it starts from now on, as long as it lives. Does nothing
/// where enter_own_shared_memory could not.
class covered_folder {
  public:
    explicit covered_folder(const char* path);
    ~covered_folder();
    covered_folder(const covered_folder&) = delete;
    covered_folder& operator=(const covered_folder&) = delete;

  private:
    const char* path_; ///< null: nothing lies over it
};

struct machine {
    std::string processor;
    int processors = 0;
    bool virtual_machine = false;
    std::string kernel;
    int64_t memory_mib = 0;
};
machine this_machine();
/// One line, with the processors that are used.
std::string in_words(const machine& m, const std::vector<int>& used);
/// Processes that wanted to run, averaged over the last minute.
double load();

/// Monotonic time, the same for all processes.
int64_t now_ns();
/// Processor time that this process has used. Asks the kernel.
int64_t processor_time_ns();

} // namespace bench

#endif
