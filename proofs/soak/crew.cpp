#include "crew.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <system_error>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace soak {
namespace {

std::string words(int status)
{
    if (WIFSIGNALED(status)) return "signal:" + std::to_string(WTERMSIG(status));
    return "exit:" + std::to_string(WEXITSTATUS(status));
}

int reap(pid_t pid)
{
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {}
    return status;
}

// What the last life of every role has said stays to be read.
void redirect_output(const std::string& path)
{
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0644);
    if (fd < 0) return;
    dup2(fd, STDOUT_FILENO);
    dup2(fd, STDERR_FILENO);
    close(fd);
}

int status_of(const context& run, int member)
{
    try {
        if (is_writer(member)) return be_writer(run, member - FIRST_WRITER);
        return is_reader(member) ? be_reader(run, member - FIRST_READER) : be_master(run);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "soak: %s\n", e.what());
        return 9;
    }
}

} // namespace

crew::~crew()
{
    for (const life& one : lives_) {
        if (one.pid > 0) ::kill(one.pid, SIGKILL);
    }
    for (const life& one : lives_) {
        if (one.pid > 0) reap(one.pid);
    }
}

void crew::be(int member, pid_t parent) const
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(9);
    std::signal(SIGINT, SIG_IGN); // a terminal sends it to all; the end of the run is the parent's to tell
    redirect_output(run_.how.folder + "/" + name_of(member) + ".log");
    const int status = status_of(run_, member);
    std::fflush(nullptr);
    _exit(status);
}

void crew::start(int member)
{
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid == 0) be(member, parent);
    if (pid < 0) throw std::system_error(errno, std::generic_category(), "fork");
    at(member) = {pid, at(member).number + 1, monotonic_ns(), 0};
    run_.log.line("start", "role=%s pid=%d life=%d", name_of(member).c_str(), pid, at(member).number);
}

bool crew::kill(int member)
{
    life& one = at(member);
    ::kill(one.pid, SIGKILL);
    const int status = reap(one.pid);
    const bool by_us = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
    if (by_us) {
        run_.log.line("kill", "role=%s pid=%d life=%d status=%s", name_of(member).c_str(), one.pid, one.number,
                      words(status).c_str());
    } else {
        note_wrong_end(member, status);
    }
    one.pid = -1;
    return by_us;
}

void crew::stop(int member, int ms)
{
    life& one = at(member);
    ::kill(one.pid, SIGSTOP);
    one.goes_on_ns = monotonic_ns() + ms * int64_t{1'000'000};
    run_.log.line("stop", "role=%s pid=%d ms=%d", name_of(member).c_str(), one.pid, ms);
}

void crew::let_go_on(bool all)
{
    for (int m = 0; m < MEMBERS; ++m) {
        life& one = at(m);
        if (one.goes_on_ns == 0 || one.pid < 0 || (!all && monotonic_ns() < one.goes_on_ns)) continue;
        ::kill(one.pid, SIGCONT);
        one.goes_on_ns = 0;
        one.began_ns = monotonic_ns(); // its patience counts from here
        run_.log.line("go-on", "role=%s pid=%d", name_of(m).c_str(), one.pid);
    }
}

void crew::look_for_the_dead()
{
    for (int m = 0; m < MEMBERS; ++m) {
        life& one = at(m);
        int status = 0;
        if (one.pid < 0 || waitpid(one.pid, &status, WNOHANG) != one.pid) continue;
        note_wrong_end(m, status);
        one.pid = -1;
        start(m);
    }
}

void crew::note_wrong_end(int member, int status)
{
    run_.log.line("wrong", "what=ended role=%s pid=%d status=%s", name_of(member).c_str(), at(member).pid,
                  words(status).c_str());
}

void crew::dismiss(int from, int to, int patience_ms)
{
    const int64_t until = monotonic_ns() + patience_ms * int64_t{1'000'000};
    for (int m = from; m < to; ++m) {
        life& one = at(m);
        if (one.pid < 0) continue;
        int status = 0;
        while (waitpid(one.pid, &status, WNOHANG) != one.pid) {
            if (monotonic_ns() > until) {
                run_.log.line("wrong", "what=does-not-leave role=%s pid=%d", name_of(m).c_str(), one.pid);
                ::kill(one.pid, SIGKILL);
                status = reap(one.pid);
                break;
            }
            usleep(2000);
        }
        if (!WIFSIGNALED(status) || WTERMSIG(status) != SIGKILL) {
            if (status != 0) note_wrong_end(m, status);
        }
        one.pid = -1;
    }
}

} // namespace soak
