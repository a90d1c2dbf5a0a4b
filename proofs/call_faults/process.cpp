#include "process.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host.h"

namespace call_faults {

bool end_of_process::crashed() const { return !hung && WIFSIGNALED(status); }
int end_of_process::code() const { return WIFEXITED(status) ? WEXITSTATUS(status) : -1; }
std::string end_of_process::words() const
{
    if (hung) return "hung";
    return WIFSIGNALED(status) ? "signal:" + std::to_string(WTERMSIG(status)) : "exit:" + std::to_string(code());
}

namespace {

[[noreturn]] void become(const std::string& program, const std::string& role, bool careless, int line, int shared_fd,
                         const std::string& log, const environment& extra)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int out = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    dup2(out, STDOUT_FILENO);
    dup2(out, STDERR_FILENO);
    // High ones first: the two may lie crosswise.
    const int high_line = fcntl(line, F_DUPFD, 10);
    const int high_shared = fcntl(shared_fd, F_DUPFD, 10);
    dup2(high_line, LINE_FD);
    dup2(high_shared, SHARED_FD);
    for (int fd = SHARED_FD + 1; fd < 64; ++fd) close(fd);
    for (const auto& [name, value] : extra) setenv(name.c_str(), value.c_str(), 1);
    execl(program.c_str(), program.c_str(), role.c_str(), careless ? "careless" : nullptr, nullptr);
    _exit(2);
}

} // namespace

process::process(const std::string& program, const std::string& role, bool careless, int shared_fd,
                 const std::string& log, const environment& extra)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        throw std::system_error(errno, std::generic_category(), "socketpair");
    pid_ = fork();
    if (pid_ == 0) become(program, role, careless, ends[1], shared_fd, log, extra);
    close(ends[1]);
    line_ = ends[0];
    if (pid_ < 0) throw std::system_error(errno, std::generic_category(), "fork");
}

process::~process()
{
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    if (line_ >= 0) close(line_);
}

void process::say(char letter) const { send(line_, &letter, 1, MSG_NOSIGNAL); }

bool process::hear(char letter, int patience_ms) const
{
    pollfd one{line_, POLLIN, 0};
    char heard = 0;
    return poll(&one, 1, patience_ms) == 1 && recv(line_, &heard, 1, 0) == 1 && heard == letter;
}

end_of_process process::ended(int patience_ms)
{
    const int fd = static_cast<int>(syscall(SYS_pidfd_open, pid_, 0));
    pollfd one{fd, POLLIN, 0};
    end_of_process how;
    how.hung = poll(&one, 1, patience_ms) != 1;
    close(fd);
    if (how.hung) kill(pid_, SIGKILL);
    waitpid(std::exchange(pid_, -1), &how.status, 0);
    return how;
}

} // namespace call_faults
