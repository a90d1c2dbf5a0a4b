/// @file
/// The command while it runs, for what does not end by itself.
#ifndef ZRK4_TOOL_TEST_BACKGROUND_BM_H
#define ZRK4_TOOL_TEST_BACKGROUND_BM_H

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include "run_bm.h"

namespace bm::test {

/// Killed and reaped at the end, whatever happened.
class background_bm {
  public:
    explicit background_bm(std::vector<std::string> arguments, const std::vector<std::string>& environment = {})
    {
        int out[2] = {-1, -1}, err[2] = {-1, -1};
        if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) std::abort();
        pid_ = fork();
        if (pid_ == 0) {
            alarm(50);
            dup2(out[1], STDOUT_FILENO);
            dup2(err[1], STDERR_FILENO);
            for (const std::string& each : environment)
                setenv(each.substr(0, each.find('=')).c_str(), each.substr(each.find('=') + 1).c_str(), 1);
            std::vector<char*> argv{const_cast<char*>("bm")};
            for (std::string& each : arguments) argv.push_back(each.data());
            argv.push_back(nullptr);
            execv(bm_command(), argv.data());
            _exit(127);
        }
        close(out[1]);
        close(err[1]);
        out_ = out[0];
        err_ = err[0];
    }
    ~background_bm()
    {
        if (pid_ > 0) end(SIGKILL);
        if (out_ >= 0) close(out_);
        close(err_);
    }
    background_bm(const background_bm&) = delete;
    background_bm& operator=(const background_bm&) = delete;

    pid_t pid() const { return pid_; }
    /// Reads until `text` stands in the output. @return whether it came within 20 seconds.
    bool says(const std::string& text) { return hears(out_, seen_out, text); }
    /// @return whether anything more came within 20 seconds
    bool hears_more() { return more(out_, seen_out, 20000); }
    bool complains(const std::string& text) { return hears(err_, seen_err, text); }
    /// From now on nobody reads what it says, as behind `| head`.
    void stop_listening()
    {
        close(out_);
        out_ = -1;
    }
    /// Sends a signal and waits. @return the exit status, 128 + n when signal n ended it.
    int end(int signal = SIGTERM)
    {
        kill(pid_, signal);
        return wait();
    }
    int wait()
    {
        while (out_ >= 0 && more(out_, seen_out, 20000)) {}
        while (more(err_, seen_err, 0)) {}
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    }

    std::string seen_out, seen_err;

  private:
    static bool more(int fd, std::string& into, int patience_ms)
    {
        pollfd watched{fd, POLLIN, 0};
        char room[4096];
        if (poll(&watched, 1, patience_ms) <= 0) return false;
        const ssize_t got = read(fd, room, sizeof room);
        if (got <= 0) return false;
        into.append(room, static_cast<size_t>(got));
        return true;
    }
    static bool hears(int fd, std::string& into, const std::string& text)
    {
        while (into.find(text) == std::string::npos) {
            if (!more(fd, into, 20000)) return false;
        }
        return true;
    }

    pid_t pid_ = -1;
    int out_ = -1, err_ = -1;
};

/// A small exchange: its master runs as long as the object lives.
class running_master {
  public:
    explicit running_master(const std::string& form = "2024", std::vector<std::string> more = {})
        : master_(with(form, std::move(more)))
    {
        up_ = master_.says("ready: ");
    }
    ~running_master() { master_.end(); }
    bool up() const { return up_; }
    background_bm& process() { return master_; }

  private:
    static std::vector<std::string> with(const std::string& form, std::vector<std::string> more)
    {
        std::vector<std::string> all{"master", "--forced", "--clients", "4",         "--blocks",
                                     "4",      "--rate",   "4",         "--records", form};
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }
    background_bm master_;
    bool up_ = false;
};

} // namespace bm::test

#endif
