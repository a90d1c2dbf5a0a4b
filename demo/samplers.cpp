#include "samplers.h"

#include <cerrno>
#include <map>
#include <stdexcept>

#include <fcntl.h>
#include <unistd.h>

#include "plan.h"

namespace demo {

proc_file::proc_file(const char* path) : fd_(open(path, O_RDONLY | O_CLOEXEC)), text_(16384)
{
    if (fd_ < 0) error_ = errno;
}

proc_file::~proc_file()
{
    if (fd_ >= 0) close(fd_);
}

// These files give a page or so per call, and their end only by a call that gives nothing.
bool proc_file::read_more(size_t& filled)
{
    if (filled == text_.size()) text_.resize(2 * text_.size());
    const ssize_t n = pread(fd_, text_.data() + filled, text_.size() - filled, static_cast<off_t>(filled));
    if (n < 0) error_ = errno;
    if (n > 0) filled += static_cast<size_t>(n);
    return n > 0;
}

std::string_view proc_file::read()
{
    if (fd_ < 0) return {};
    error_ = 0;
    size_t filled = 0;
    while (read_more(filled)) {}
    return {text_.data(), filled};
}

namespace {

class processor_sampler : public sampler {
  public:
    void sample(block_writer& block) override { processor_channels(stat_.read(), block); }

  private:
    proc_file stat_{"/proc/stat"};
};

class memory_sampler : public sampler {
  public:
    void sample(block_writer& block) override { memory_channels(meminfo_.read(), block); }

  private:
    proc_file meminfo_{"/proc/meminfo"};
};

class pressure_sampler : public sampler {
  public:
    void sample(block_writer& block) override
    {
        put("processors", processors_, block);
        put("memory", memory_, block);
        put("disks", disks_, block);
    }

  private:
    // A kernel without these counters gives the channels without a value, and says so in their error code.
    static void put(const char* name, proc_file& from, block_writer& block)
    {
        const std::string_view text = from.read();
        pressure_channel(name, text, from.error(), block);
    }

    proc_file processors_{"/proc/pressure/cpu"}, memory_{"/proc/pressure/memory"}, disks_{"/proc/pressure/io"};
};

class network_sampler : public sampler {
  public:
    void sample(block_writer& block) override { network_channels(dev_.read(), block); }

  private:
    proc_file dev_{"/proc/net/dev"};
};

class disk_sampler : public sampler {
  public:
    void sample(block_writer& block) override
    {
        disk_channels(
            diskstats_.read(), [this](const std::string& name) { return is_whole(name); }, block);
    }

  private:
    // Asked once per device: the answer costs a call into the file system, and a device does not change its kind.
    bool is_whole(const std::string& name)
    {
        const auto [at, fresh] = whole_.try_emplace(name, false);
        if (fresh) at->second = access(("/sys/block/" + name).c_str(), F_OK) == 0;
        return at->second;
    }

    proc_file diskstats_{"/proc/diskstats"};
    std::map<std::string, bool> whole_;
};

} // namespace

std::unique_ptr<sampler> sampler_for(const std::string& block)
{
    if (block == PROCESSORS) return std::make_unique<processor_sampler>();
    if (block == MEMORY) return std::make_unique<memory_sampler>();
    if (block == PRESSURE) return std::make_unique<pressure_sampler>();
    if (block == NETWORK) return std::make_unique<network_sampler>();
    if (block == DISKS) return std::make_unique<disk_sampler>();
    throw std::logic_error("nobody samples block " + block);
}

} // namespace demo
