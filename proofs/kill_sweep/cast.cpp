#include "cast.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "stillness.h"

namespace sweep {
namespace {

constexpr int PATIENCE_MS = 10'000;

int wait_for(pid_t pid)
{
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {}
    return status;
}

[[noreturn]] void be_the_member(int line, int output, const setting& in, uint32_t first, int number, bool show,
                                board& common)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    try {
        act(line, in, first, number, show, common);
    } catch (...) {
        _exit(3); // this is a fork: what stands behind it belongs to the parent
    }
    _exit(0);
}

} // namespace

std::string text_of_status(int status)
{
    if (WIFSIGNALED(status)) return "signal " + std::to_string(WTERMSIG(status));
    return "exit " + std::to_string(WEXITSTATUS(status));
}

const char* text_of(order what)
{
    constexpr const char* NAMES[] = {"become_master",
                                     "become_small_master",
                                     "join",
                                     "make_data",
                                     "attach_data",
                                     "subscribe_reader",
                                     "crowd",
                                     "subscribe_writer",
                                     "unsubscribe_reader",
                                     "unsubscribe_writer",
                                     "send",
                                     "write_two",
                                     "make_two",
                                     "use_two",
                                     "use_data",
                                     "take_one",
                                     "give_back",
                                     "fill",
                                     "find",
                                     "enter",
                                     "free_slot",
                                     "return_foreign",
                                     "put_back",
                                     "leave",
                                     "end"};
    return NAMES[static_cast<int>(what)];
}

member::member(std::string name, const setting& in, uint32_t first, int number, bool show, board& common)
    : name_(std::move(name)), number_(number)
{
    int ends[2];
    output_ = memfd_create("output", 0);
    if (output_ < 0 || socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) != 0)
        throw std::system_error(errno, std::generic_category(), name_);
    line_ = ends[0];
    pid_ = fork();
    if (pid_ < 0) throw std::system_error(errno, std::generic_category(), name_);
    if (pid_ == 0) {
        close(ends[0]);
        be_the_member(ends[1], output_, in, first, number, show, common);
    }
    close(ends[1]);
}

member::~member()
{
    kill_now();
    close(line_);
    close(output_);
}

void member::kill_now()
{
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    wait_for(pid_);
    pid_ = -1;
}

pid_t member::other_thread() const
{
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid_) + "/task")) {
        const pid_t thread = std::stoi(task.path().filename());
        if (thread != pid_) return thread;
    }
    return 0;
}

void member::stop_at_rest()
{
    const std::string call = "/proc/" + std::to_string(pid_) + "/task/" + std::to_string(other_thread()) + "/syscall";
    for (int waited = 0;; ++waited) {
        long number = -1;
        std::ifstream(call) >> number;
        if (number == SYS_recvfrom) break;
        if (waited == PATIENCE_MS) fail("does not come to rest");
        usleep(1000);
    }
    // All its threads stand still only when the kernel says so: until then it would still take what is sent to it.
    kill(pid_, SIGSTOP);
    int status = 0;
    while (waitpid(pid_, &status, WUNTRACED) < 0 && errno == EINTR) {}
    if (!WIFSTOPPED(status)) fail("does not stop");
}

void member::tell(order what, int a, bool marked)
{
    last_ = what;
    const command c{what, a, marked ? 1 : 0};
    if (::send(line_, &c, sizeof c, MSG_NOSIGNAL) != static_cast<ssize_t>(sizeof c)) fail("is gone");
}

reply member::hear()
{
    pollfd waiting{line_, POLLIN, 0};
    constexpr int LOOK_MS = 10;
    int ready = 0;
    for (int waited = 0; ready <= 0 && waited < PATIENCE_MS; waited += LOOK_MS) {
        const int64_t begin = stillness::begin();
        ready = poll(&waiting, 1, LOOK_MS);
        stillness::waited(begin, int64_t{LOOK_MS} * 1000);
    }
    if (ready <= 0) fail("hangs");
    reply r{};
    if (recv(line_, &r, sizeof r, 0) != static_cast<ssize_t>(sizeof r)) fail("crashed");
    if (r.micros > slowest) {
        slowest = r.micros;
        slowest_order = text_of(last_);
    }
    return r;
}

reply member::ask(order what, int a)
{
    tell(what, a);
    return hear();
}

void member::end()
{
    if (pid_ <= 0) return;
    ask(order::end);
    // It still takes its manager apart, which joins its threads.
    int status = 0;
    for (int waited = 0; waitpid(pid_, &status, WNOHANG) == 0; ++waited) {
        if (waited == PATIENCE_MS) fail("hangs");
        usleep(1000);
    }
    pid_ = -1;
    if (status != 0) throw stuck(name_ + " ended badly, " + text_of_status(status));
}

void member::fail(const std::string& what)
{
    std::string status;
    int seen = 0;
    if (pid_ > 0 && waitpid(pid_, &seen, WNOHANG) == pid_) {
        status = ", " + text_of_status(seen);
        pid_ = -1;
    }
    throw stuck(name_ + ' ' + what + " in " + text_of(last_) + status);
}

std::string member::output() const
{
    std::string text(static_cast<size_t>(lseek(output_, 0, SEEK_CUR)), '\0');
    const ssize_t got = pread(output_, text.data(), text.size(), 0);
    text.resize(got < 0 ? 0 : static_cast<size_t>(got));
    return text;
}

} // namespace sweep
