/// @file
/// The host's own counters as channels of server blocks, read from /proc.
#ifndef ZRK4_DEMO_SAMPLERS_H
#define ZRK4_DEMO_SAMPLERS_H

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "blocks.h"

namespace demo {

/// A file of /proc, kept open and read again from its start for every sample.
class proc_file {
  public:
    explicit proc_file(const char* path);
    ~proc_file();
    proc_file(const proc_file&) = delete;
    proc_file& operator=(const proc_file&) = delete;
    /// The whole text as it is now, valid until the next call; empty when it cannot be read.
    std::string_view read();
    /// errno of the last open or read that failed, else 0.
    int error() const { return error_; }

  private:
    bool read_more(size_t& filled);

    int fd_;
    int error_ = 0;
    std::vector<char> text_;
};

/// Fills one block of each event with what it measures at that moment.
class sampler {
  public:
    virtual ~sampler() = default;
    virtual void sample(block_writer& block) = 0;
};
/// @param block  one of the block names of the plan @throws std::logic_error for any other
std::unique_ptr<sampler> sampler_for(const std::string& block);

// ---- the texts of /proc, as channels ----

/// "cpu" (all together), "cpu0" ...: ticks of USER_HZ spent {in programs, in the kernel, waiting for disks, idle};
/// "context switches" and "forks" since the start of the host, "running" now.
void processor_channels(std::string_view proc_stat, block_writer& block);
/// One channel per quantity, in KiB.
void memory_channels(std::string_view proc_meminfo, block_writer& block);
/// {some, full}: microseconds in which some, or all, of the work that wanted resource `name` stood still.
void pressure_channel(const char* name, std::string_view proc_pressure, int error, block_writer& block);
/// "total" (without the loopback) and one channel per interface: {bytes in, packets in, bytes out, packets out}.
void network_channels(std::string_view proc_net_dev, block_writer& block);
/// "total" and one channel per disk that has been used: {reads, sectors read, writes, sectors written}.
/// @param whole  whether a device is a disk of its own and not a part of another
void disk_channels(std::string_view proc_diskstats, const std::function<bool(const std::string&)>& whole,
                   block_writer& block);

} // namespace demo

#endif
