#include "run_bm.h"

#include <cstdio>
#include <cstdlib>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bm::test {
namespace {

/// A file without a name that a child writes and we read.
class catcher {
  public:
    catcher() : file_(std::tmpfile()) {}
    ~catcher() { std::fclose(file_); }
    catcher(const catcher&) = delete;
    catcher& operator=(const catcher&) = delete;

    int fd() const { return fileno(file_); }
    std::string text() const
    {
        std::string all;
        char room[4096];
        for (off_t at = 0;;) {
            const ssize_t got = pread(fd(), room, sizeof room, at);
            if (got <= 0) return all;
            all.append(room, static_cast<size_t>(got));
            at += got;
        }
    }

  private:
    std::FILE* file_;
};

double seconds_of(const timeval& t) { return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6; }

[[noreturn]] void become(const std::string& program, const std::vector<std::string>& arguments,
                         const std::vector<std::string>& environment)
{
    for (const std::string& each : environment) {
        const size_t equals = each.find('=');
        setenv(each.substr(0, equals).c_str(), each.substr(equals + 1).c_str(), 1);
    }
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (const std::string& each : arguments) argv.push_back(const_cast<char*>(each.c_str()));
    argv.push_back(nullptr);
    execvp(program.c_str(), argv.data());
    _exit(127);
}

} // namespace

std::string words_of(const std::string& text)
{
    std::string all;
    for (const char c : text) {
        if (c != ' ' || (!all.empty() && all.back() != ' ')) all += c;
    }
    return all;
}

const char* bm_command() { return BM_COMMAND; }

outcome run_bm(const std::vector<std::string>& arguments, const std::vector<std::string>& environment)
{
    return run_program(BM_COMMAND, arguments, environment);
}

outcome run_program(const std::string& program, const std::vector<std::string>& arguments,
                    const std::vector<std::string>& environment)
{
    const catcher out, err;
    const pid_t pid = fork();
    if (pid == 0) {
        alarm(30); // bounded, whatever it waits for
        dup2(out.fd(), STDOUT_FILENO);
        dup2(err.fd(), STDERR_FILENO);
        become(program, arguments, environment);
    }
    int status = 0;
    rusage used{};
    wait4(pid, &status, 0, &used);
    return {WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status), out.text(), err.text(),
            seconds_of(used.ru_utime) + seconds_of(used.ru_stime)};
}

nlohmann::json outcome::document() const
{
    const nlohmann::json parsed = nlohmann::json::parse(out, nullptr, /*allow_exceptions=*/false);
    EXPECT_FALSE(parsed.is_discarded()) << "no JSON:\n" << out << err;
    return parsed.is_discarded() ? nlohmann::json::object() : parsed;
}

} // namespace bm::test
