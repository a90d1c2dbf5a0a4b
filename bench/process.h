/// @file
/// Child processes and the line on which the conductor of a measurement and each of them meet.
#ifndef ZRK4_BENCH_PROCESS_H
#define ZRK4_BENCH_PROCESS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <type_traits>

#include <sys/types.h>

namespace bench {

/// One end of a two-way line of records. Every send arrives whole.
class line_end {
  public:
    explicit line_end(int fd) : fd_(fd) {}
    ~line_end();
    line_end(line_end&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
    line_end& operator=(line_end&&) = delete;

    template <class Record> void say(const Record& record) const
    {
        static_assert(std::is_trivially_copyable_v<Record>);
        send_bytes(&record, sizeof record);
    }
    template <class Record> Record hear() const
    {
        static_assert(std::is_trivially_copyable_v<Record>);
        Record record;
        receive_bytes(&record, sizeof record);
        return record;
    }
    /// A word without content: "ready" from the child, "go on" to it.
    void nod() const { say('n'); }
    void await_nod() const { hear<char>(); }
    /// Waits, at most a minute, for the other end to be closed. @return whether it was.
    bool hung_up() const;

  private:
    /// @throws std::runtime_error  the other end is gone, or silent for a minute
    void send_bytes(const void* from, size_t bytes) const;
    void receive_bytes(void* to, size_t bytes) const;

    int fd_;
};

/// A child process. It is killed where it is not ended, and dies with its parent.
class process {
  public:
    using role = std::function<void(line_end&)>;

    /// @param processor  the one processor that the child and all its threads run on
    /// @throws std::system_error
    process(const std::string& name, int processor, const role& body);
    ~process();
    process(const process&) = delete;
    process& operator=(const process&) = delete;

    /// The following throw std::runtime_error, with the name of the child, when it does not do its part.
    template <class Record> Record hear() const
    {
        return named([&] { return line_.hear<Record>(); });
    }
    template <class Record> void say(const Record& record) const
    {
        named([&] { line_.say(record); });
    }
    void nod() const { say('n'); }
    void await_nod() const { hear<char>(); }
    /// Lets the child go on to its end and waits for it.
    void end();
    /// Processor time that it has used so far.
    int64_t processor_time_ns() const;
    /// Kills it, and does not wait: until it is reaped it counts as alive.
    void kill() const;
    void reap();

  private:
    struct made {
        pid_t pid;
        int line;
        int output;
    };
    static made start(int processor, const role& body, const std::string& name);
    process(std::string name, made what)
        : name_(std::move(name)), pid_(what.pid), line_(what.line), output_(what.output)
    {
    }
    template <class Work> auto named(Work work) const
    {
        try {
            return work();
        } catch (const std::runtime_error& e) {
            fail(e.what());
        }
    }
    [[noreturn]] void fail(const std::string& why) const;

    std::string name_;
    pid_t pid_;
    line_end line_;
    int output_; ///< what the child writes to standard output; of interest only when it fails
};

} // namespace bench

#endif
