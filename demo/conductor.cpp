#include "conductor.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <system_error>

#include <poll.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

namespace demo {
namespace {

constexpr size_t MASTER = 0, FIRST_READER = 1, FIRST_WRITER = FIRST_READER + READERS;
constexpr int SET_UP_MS = 20'000, LEAVE_MS = 10'000, DRAIN_MS = 10'000, AFTER_FAILURE_MS = 1'000;
constexpr int64_t LEAD_US = 50'000; ///< from the word to go to the first tick

int64_t ns_from_now(int ms) { return monotonic_ns() + ms * int64_t{1'000'000}; }

sigset_t watched_signals()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGINT, SIGTERM, SIGCHLD}) sigaddset(&set, signal);
    struct sigaction hang_up {};
    sigaction(SIGHUP, nullptr, &hang_up);
    if (hang_up.sa_handler != SIG_IGN) sigaddset(&set, SIGHUP); // with nohup the run outlives its terminal
    return set;
}

bool child_has_ended()
{
    siginfo_t info{};
    return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid != 0;
}

} // namespace

signal_watch::signal_watch()
{
    const sigset_t set = watched_signals();
    sigprocmask(SIG_BLOCK, &set, nullptr);
    fd_ = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
    if (fd_ < 0) throw std::system_error(errno, std::generic_category(), "signalfd");
}

signal_watch::~signal_watch() { close(fd_); }

int signal_watch::taken() const
{
    signalfd_siginfo info{};
    return read(fd_, &info, sizeof info) == sizeof info ? static_cast<int>(info.ssi_signo) : 0;
}

conductor::conductor(const settings& how, const std::string& prefix)
    : how_(how), record_(int64_t{how.seconds} * TICKS_PER_SECOND), context_{how, prefix, record_}
{
    // The buffer managers of the children take the names of their slot partitions from the environment.
    setenv("ZRK4_CLI_SHM_NAME", partition_name(context_, "CLIENT_SLOTS").c_str(), 1);
    setenv("ZRK4_EV_SHM_NAME", partition_name(context_, "EVENT_SLOTS").c_str(), 1);
}

// Where something was thrown, nobody has left in order, and the partitions may lie in the host's namespace.
conductor::~conductor()
{
    processes_.clear();
    remove_leftovers(partitions());
}

run_figures conductor::run()
{
    set_up();
    if (!failed()) measure();
    drain();
    dismiss(FIRST_READER, processes_.size());
    const std::vector<partition_balance> balance = read_balance(partitions());
    dismiss(MASTER, FIRST_READER);
    for (const std::string& name : remove_leftovers(partitions())) fail("partition " + name + " was left behind");
    run_figures figures = take_stock();
    figures.partitions = balance;
    return figures;
}

void conductor::start(const char* kind, const std::string& name, const role& body)
{
    if (failed()) return;
    processes_.emplace_back(std::string(kind) + name, body);
    meet(processes_.size() - 1, processes_.size(), line_end::READY, SET_UP_MS);
}

// Readers before writers: an event admits the readers that are there when it begins.
void conductor::set_up()
{
    start("master", "", [this](line_end& line) { return be_master(context_, line); });
    for (size_t i = 0; i < READERS; ++i)
        start("reader ", readers()[i].name, [this, i](line_end& line) { return be_reader(context_, i, line); });
    for (size_t i = 0; i < writers().size(); ++i)
        start("writer ", writers()[i].name, [this, i](line_end& line) { return be_writer(context_, i, line); });
    start("run control", "", [this](line_end& line) { return be_run_control(context_, line); });
}

void conductor::measure()
{
    record_.head().clock = tick_clock::starting_in(LEAD_US);
    tell(FIRST_READER, processes_.size(), line_end::GO);
    meet(FIRST_WRITER, processes_.size(), line_end::FINISHED, how_.seconds * 1000 + SET_UP_MS);
}

// The last events are still on their way; when they are over, all buffers but the clients' slots are back.
void conductor::drain()
{
    std::vector<expected_partition> watched = partitions();
    watched.erase(watched.begin()); // the clients are still there
    const timespec pause{0, 2'000'000};
    const int64_t until = ns_from_now(failed() ? AFTER_FAILURE_MS : DRAIN_MS);
    while (!all_whole(read_balance(watched)) && monotonic_ns() < until) nanosleep(&pause, nullptr);
}

void conductor::tell(size_t from, size_t to, char letter)
{
    for (size_t i = from; i < std::min(to, processes_.size()); ++i) processes_[i].line().say(letter);
}

void conductor::dismiss(size_t from, size_t to)
{
    tell(from, to, line_end::LEAVE);
    for (size_t i = from; i < std::min(to, processes_.size()); ++i) {
        const std::string wrong = processes_[i].ended(LEAVE_MS);
        if (!wrong.empty()) fail(wrong);
    }
}

run_figures conductor::take_stock()
{
    run_figures figures = count(record_);
    figures.interrupted = interrupted_;
    figures.failures = failures_;
    return figures;
}

bool conductor::meet(size_t from, size_t to, char letter, int patience_ms)
{
    patient_until_ns_ = ns_from_now(patience_ms);
    for (size_t i = from; i < to; ++i) {
        if (hears(processes_[i], letter)) continue;
        record_.head().gate.close();
        fail(processes_[i].name() + " did not get as far as it should");
        return false;
    }
    return true;
}

bool conductor::hears(const process& one, char letter)
{
    while (monotonic_ns() < patient_until_ns_) {
        pollfd watched[] = {{one.line().fd(), POLLIN, 0}, {signals_.fd(), POLLIN, 0}};
        const int64_t left_ms = (patient_until_ns_ - monotonic_ns()) / 1'000'000 + 1;
        poll(watched, 2, static_cast<int>(std::max<int64_t>(left_ms, 0)));
        while (const int signal = signals_.taken()) on_signal(signal);
        if (watched[0].revents != 0) return one.line().hear(0) == letter;
    }
    return false;
}

void conductor::on_signal(int signal)
{
    if (signal == SIGCHLD && !child_has_ended()) return; // stopped or continued by somebody: it catches up
    record_.head().gate.close();
    if (signal != SIGCHLD) {
        interrupted_ = true;
        return;
    }
    // Nobody leaves before it is told to. What the dead one held may keep the others from coming to an end.
    one_died_ = true;
    patient_until_ns_ = std::min(patient_until_ns_, ns_from_now(AFTER_FAILURE_MS));
}

std::vector<expected_partition> conductor::partitions() const
{
    std::vector<expected_partition> all{{partition_name(context_, "CLIENT_SLOTS"), true},
                                        {partition_name(context_, "EVENT_SLOTS"), true}};
    for (const writer_plan& writer : writers()) all.push_back({partition_name(context_, writer.partition), false});
    all.push_back({partition_name(context_, RUN_PARTITION), false});
    return all;
}

} // namespace demo
