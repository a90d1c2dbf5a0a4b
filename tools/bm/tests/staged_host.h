/// @file
/// Files of a host that a test makes up, for what the command reads below /proc and /etc.
#ifndef ZRK4_TOOL_TEST_STAGED_HOST_H
#define ZRK4_TOOL_TEST_STAGED_HOST_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace bm::test {

/// A directory that goes with the object.
class scratch_directory {
  public:
    scratch_directory()
    {
        std::string name = std::filesystem::temp_directory_path() / "bm_test.XXXXXX";
        if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no scratch directory");
        path_ = name;
    }
    ~scratch_directory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    scratch_directory(const scratch_directory&) = delete;
    scratch_directory& operator=(const scratch_directory&) = delete;

    const std::filesystem::path& path() const { return path_; }

  private:
    std::filesystem::path path_;
};

/// A host with a stock kernel's limits, to be made worse.
class staged_host {
  public:
    staged_host()
    {
        put("/proc/sys/kernel/sem", "32000\t1024000000\t500\t32000\n");
        put("/proc/sys/kernel/shmmax", "18446744073692774399\n");
        put("/proc/sys/kernel/shmall", "18446744073692774399\n");
        put("/proc/sys/kernel/shmmni", "4096\n");
        put("/proc/sys/kernel/shm_rmid_forced", "0\n");
        put("/proc/sys/net/core/rmem_max", "8388608\n");
        put("/proc/sys/net/core/rmem_default", "212992\n");
        put("/proc/meminfo", "MemTotal: 8000000 kB\nMemAvailable: 6000000 kB\nSwapFree: 0 kB\n");
        put("/etc/systemd/logind.conf", "[Login]\nRemoveIPC=no\n");
    }
    void put(const std::string& path, const std::string& text) const
    {
        const std::filesystem::path whole = root_.path().string() + path;
        std::filesystem::create_directories(whole.parent_path());
        std::ofstream(whole) << text;
    }
    void remove(const std::string& path) const { std::filesystem::remove(root_.path().string() + path); }
    /// For the environment of the command.
    std::string variable() const { return "BM_HOST_ROOT=" + root_.path().string(); }

  private:
    scratch_directory root_;
};

} // namespace bm::test

#endif
