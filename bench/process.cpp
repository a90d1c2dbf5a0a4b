#include "process.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <exception>
#include <system_error>
#include <utility>

#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "machine.h"

namespace bench {
namespace {

constexpr int PATIENCE_MS = 60'000;
constexpr int BY_EXCEPTION = 3;

int status_of(const process::role& body, line_end line, int processor, const std::string& name)
{
    try {
        run_on(processor);
        body(line);
        return 0;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "bm_bench: %s: %s\n", name.c_str(), e.what());
        std::fflush(stdout); // before the line goes, and with it the interest in what was said
        return BY_EXCEPTION;
    }
}

[[noreturn]] void throw_failed(const char* call) { throw std::system_error(errno, std::generic_category(), call); }

bool readable(int fd)
{
    pollfd one{fd, POLLIN, 0};
    int ready = 0;
    do {
        ready = poll(&one, 1, PATIENCE_MS);
    } while (ready < 0 && errno == EINTR);
    return ready > 0;
}

} // namespace

line_end::~line_end()
{
    if (fd_ >= 0) close(fd_);
}

void line_end::send_bytes(const void* from, size_t bytes) const
{
    if (send(fd_, from, bytes, MSG_NOSIGNAL) != static_cast<ssize_t>(bytes))
        throw std::runtime_error("the other end of the line is gone");
}

void line_end::receive_bytes(void* to, size_t bytes) const
{
    if (!readable(fd_)) throw std::runtime_error("no word for a minute");
    if (recv(fd_, to, bytes, 0) != static_cast<ssize_t>(bytes)) throw std::runtime_error("ended too early");
}

bool line_end::hung_up() const
{
    char word = 0;
    return readable(fd_) && recv(fd_, &word, sizeof word, 0) <= 0;
}

process::made process::start(int processor, const role& body, const std::string& name)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) throw_failed("socketpair");
    const int output = memfd_create("output", MFD_CLOEXEC);
    std::fflush(nullptr); // what is in the buffers would be written twice
    const pid_t parent = getpid();
    const pid_t pid = output < 0 ? -1 : fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) _exit(BY_EXCEPTION); // it died before it could be watched
        close(ends[0]);
        dup2(output, STDOUT_FILENO);
        const int status = status_of(body, line_end(ends[1]), processor, name);
        std::fflush(nullptr);
        _exit(status);
    }
    close(ends[1]);
    if (pid > 0) return {pid, ends[0], output};
    throw_failed("fork");
}

process::process(const std::string& name, int processor, const role& body) : process(name, start(processor, body, name))
{
}

process::~process()
{
    close(output_);
    if (pid_ < 0) return;
    kill();
    reap();
}

int64_t process::processor_time_ns() const
{
    clockid_t clock{};
    timespec t{};
    if (clock_getcpuclockid(pid_, &clock) != 0 || clock_gettime(clock, &t) != 0) return 0;
    return int64_t{t.tv_sec} * 1'000'000'000 + t.tv_nsec;
}

void process::kill() const { ::kill(pid_, SIGKILL); }

void process::reap() { waitpid(std::exchange(pid_, -1), nullptr, 0); }

void process::fail(const std::string& why) const
{
    std::string said(4096, '\0');
    const ssize_t length = pread(output_, said.data(), said.size(), 0);
    said.resize(length > 0 ? static_cast<size_t>(length) : 0);
    throw std::runtime_error(name_ + ": " + why + (said.empty() ? "" : "; it said:\n" + said));
}

// The kernel closes the line of a process that ends.
void process::end()
{
    nod();
    const bool in_time = line_.hung_up();
    if (!in_time) kill();
    int status = 0;
    waitpid(std::exchange(pid_, -1), &status, 0);
    if (!in_time || !WIFEXITED(status) || WEXITSTATUS(status) != 0) fail("did not end well");
}

} // namespace bench
