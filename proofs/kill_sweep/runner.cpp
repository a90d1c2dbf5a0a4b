#include "runner.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <sstream>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

namespace sweep {
namespace {

constexpr int TRIES = 5; // of a point during which the host stood still
constexpr unsigned PATIENCE_S = 40;
constexpr int64_t PATIENCE_MS = 60'000; // if even that fails

int64_t now_ms()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// Root needs the first call only; an ordinary user gets the namespaces inside a user namespace. The kernel frees those of
// ended processes in the background, and their number is limited.
bool enter_namespaces()
{
    constexpr int OWN = CLONE_NEWIPC | CLONE_NEWPID | CLONE_NEWNS;
    for (int tries = 0; tries < 500; ++tries) {
        if (unshare(OWN) == 0 || unshare(CLONE_NEWUSER | OWN) == 0) return true;
        if (errno != ENOSPC) return false;
        usleep(10'000);
    }
    return false;
}

// A /proc of the namespace, by which threads are found and processes told apart. An event takes segment id 0 for "no
// buffer", and the kernel's first ids are 0: they are used up.
void furnish()
{
    mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
    if (mount("proc", "/proc", "proc", 0, nullptr) != 0)
        throw std::system_error(errno, std::generic_category(), "/proc");
    shmctl(shmget(IPC_PRIVATE, 1, 0600), IPC_RMID, nullptr);
    semctl(semget(IPC_PRIVATE, 1, 0600), 0, IPC_RMID);
}

std::string text_of(const trial_end& e)
{
    std::ostringstream text;
    text << line_of(e.what) << '\n' << (e.host_stood_still ? "late" : "in time") << '\n';
    for (const call& c : e.calls) text << c.nr << ' ' << c.answer << ' ';
    text << '\n';
    for (const long offset : e.instructions) text << offset << ' ';
    text << '\n' << e.story;
    return text.str();
}

trial_end from_text(const point& at, const std::string& said)
{
    trial_end e;
    std::istringstream in(said);
    std::string line;
    std::getline(in, line);
    if (const auto r = result_of(line)) {
        e.what = *r;
    } else {
        e.what.at = at;
        e.what.broken = "the point did not come to its end";
    }
    std::getline(in, line);
    e.host_stood_still = line == "late";
    std::getline(in, line);
    std::istringstream calls(line);
    for (call c; calls >> c.nr >> c.answer;) e.calls.push_back(c);
    std::getline(in, line);
    std::istringstream offsets(line);
    for (long offset = 0; offsets >> offset;) e.instructions.push_back(offset);
    e.story.assign(std::istreambuf_iterator<char>(in), {});
    return e;
}

void write_all(int fd, const std::string& text)
{
    for (size_t done = 0; done < text.size();) {
        const ssize_t wrote = write(fd, text.data() + done, text.size() - done);
        if (wrote < 0) return;
        done += static_cast<size_t>(wrote);
    }
}

/// For a point that hangs: its line but for the last words, and where it goes.
std::string hanging_line;
int hanging_to = -1;

void say_where_it_hangs(int)
{
    const char* phase = trial_phase;
    if (write(hanging_to, hanging_line.data(), hanging_line.size()) > 0 &&
        write(hanging_to, phase, std::strlen(phase)) > 0 && write(hanging_to, "\t\t\t\n", 4) > 0)
        _exit(1);
    _exit(2);
}

void watch_for_hanging(const point& at, int fd)
{
    result hangs;
    hangs.at = at;
    hangs.broken = "hangs while it ";
    hanging_line = line_of(hangs);
    hanging_line.resize(hanging_line.size() - 3); // three empty columns
    hanging_to = fd;
    signal(SIGALRM, say_where_it_hangs);
    alarm(PATIENCE_S);
}

// The first process of the namespaces: when it ends, the kernel ends all others in them.
[[noreturn]] void be_the_first(const point& at, int fd)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    std::string text;
    try {
        furnish();
        watch_for_hanging(at, fd);
        text = text_of(run_trial(at));
    } catch (const std::exception& e) {
        trial_end failed;
        failed.what.at = at;
        failed.what.broken = e.what();
        text = text_of(failed);
    }
    write_all(fd, text);
    _exit(0);
}

[[noreturn]] void be_the_guard(const point& at, int fd)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    signal(SIGPIPE, SIG_IGN);
    if (!enter_namespaces()) {
        trial_end failed;
        failed.what.at = at;
        failed.what.broken = std::string("no namespaces: ") + std::strerror(errno);
        write_all(fd, text_of(failed));
        _exit(1);
    }
    const pid_t first = fork();
    if (first == 0) be_the_first(at, fd);
    close(fd);
    waitpid(first, nullptr, 0);
    _exit(0);
}

} // namespace

runner::~runner()
{
    for (const auto& [fd, one] : running_) {
        kill(one.pid, SIGKILL);
        waitpid(one.pid, nullptr, 0);
        close(fd);
    }
}

void runner::start_one()
{
    job next = std::move(waiting_.front());
    waiting_.pop_front();
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
    const pid_t pid = fork();
    if (pid < 0) throw std::system_error(errno, std::generic_category(), "fork");
    if (pid == 0) {
        close(ends[0]);
        be_the_guard(next.at, ends[1]);
    }
    close(ends[1]);
    running_.emplace(ends[0], running{std::move(next), pid, {}, now_ms() + PATIENCE_MS});
}

void runner::run()
{
    while (!waiting_.empty() || !running_.empty()) {
        while (!waiting_.empty() && static_cast<int>(running_.size()) < limit_) start_one();
        collect();
    }
}

void runner::collect()
{
    std::vector<pollfd> fds;
    for (const auto& [fd, one] : running_) fds.push_back({fd, POLLIN, 0});
    poll(fds.data(), fds.size(), 1000);
    for (const pollfd& p : fds) {
        running& one = running_.at(p.fd);
        char piece[65536];
        const ssize_t got = p.revents != 0 ? read(p.fd, piece, sizeof piece) : -1;
        if (got > 0) one.said.append(piece, static_cast<size_t>(got));
        if (got < 0 && now_ms() > one.deadline_ms) kill(one.pid, SIGKILL);
        if (got == 0) finish(p.fd);
    }
}

void runner::finish(int fd)
{
    running one = std::move(running_.at(fd));
    running_.erase(fd);
    close(fd);
    waitpid(one.pid, nullptr, 0);
    trial_end end = from_text(one.what.at, one.said);
    if (end.host_stood_still && ++one.what.tries < TRIES) {
        waiting_.push_back(std::move(one.what));
        return;
    }
    if (end.host_stood_still)
        end.what.broken += (end.what.broken.empty() ? "" : " | ") + std::string("the host stood still");
    one.what.when_done(end);
}

} // namespace sweep
