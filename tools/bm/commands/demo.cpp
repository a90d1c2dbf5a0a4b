// bm demo: a master, two writers and two readers of this command's own, under names that nobody else has.
#include <chrono>
#include <csignal>
#include <random>
#include <thread>

#include <fmt/format.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include "BM_int.h"
#include "bm_check.h"
#include "cli/failure.h"
#include "cli/output.h"
#include "commands/commands.h"
#include "host/crew.h"
#include "host/end_signals.h"
#include "host/partition.h"

namespace bm {
namespace {

struct demo_options {
    double seconds = 10;
    bool faults = false;
    unsigned seed = 0;
};

constexpr int RATE = 20;

/// One of the parts: what it is called and how it is started.
struct part {
    std::string name;
    std::vector<std::string> arguments;
};

struct tally {
    int64_t written = 0, read = 0, broken = 0, repaired = 0;
    int kills = 0;
    bool balanced = true, interrupted = false;
};

class demo {
  public:
    demo(const common_options& common, const demo_options& options)
        : common_(common),
          options_(options),
          prefix_(fmt::format("BM_DEMO.{}.", getpid())),
          names_(prefix_ + "CLIENTS," + prefix_ + "EVENTS"),
          random_(options.seed)
    {
    }
    demo(const demo&) = delete;
    demo& operator=(const demo&) = delete;
    ~demo()
    {
        crew_.clear();
        remove_partitions();
    }

    tally run(const end_signals& ends)
    {
        say(fmt::format("{} s at {} events/s, two writers, two readers{}", options_.seconds, RATE,
                        options_.faults ? "; one of them is killed every two seconds" : ""));
        start(master());
        if (crew_[0].line(20000).empty())
            throw failure(exit_status::failed, "the master does not start").help("bm doctor");
        for (const part& each : {writer("ADC"), writer("TDC")}) start(each);
        wait_for_writers();
        for (const part& each : {reader("A", "ADC,TDC"), reader("B", "ADC")}) start(each);
        const auto until = clock::now() + std::chrono::duration<double>(options_.seconds);
        auto strike = clock::now() + std::chrono::seconds(2);
        while (clock::now() < until && !all_.interrupted) {
            all_.interrupted = ends.within(std::chrono::milliseconds(100)) != 0;
            if (options_.faults && clock::now() > strike && clock::now() + std::chrono::seconds(1) < until) {
                kill_one();
                strike = clock::now() + std::chrono::seconds(2);
            }
        }
        finish();
        return all_;
    }

  private:
    using clock = std::chrono::steady_clock;

    void say(const std::string& text) const
    {
        if (!common_.json) print(text + "\n");
    }
    std::vector<std::string> with_names(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.end(), {"--names", names_, "--records", "2024"});
        return arguments;
    }
    part master() const
    {
        return {"master", with_names({"master", "--forced", "--clients", "8", "--blocks", "8", "--rate", "20"})};
    }
    part writer(const std::string& name) const
    {
        return {"writer " + name,
                with_names({"write", "--json", "--name", name, "--rate", std::to_string(RATE), "--size", "64k",
                            "--buffers", "256", "--patience", "15", "--partition", prefix_ + name})};
    }
    part reader(const std::string& name, const std::string& blocks) const
    {
        return {"reader " + name, with_names({"read", "--json", "--blocks", blocks, "--patience", "0"})};
    }
    void start(const part& what)
    {
        plan_.push_back(what);
        crew_.emplace_back(what.arguments);
    }

    // A reader that is there before a writer finds holes in the place of the blocks that nobody brings yet.
    void wait_for_writers() const
    {
        const auto until = clock::now() + std::chrono::seconds(20);
        while (writers() < 2) {
            if (clock::now() > until) throw failure(exit_status::failed, "the writers do not start").help("bm doctor");
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }
    int writers() const
    {
        for (const partition& each : partitions_of_host()) {
            zrk4_client_ctrl_block control{};
            if (each.name != prefix_ + "CLIENTS" || each.state != partition_state::sound || !each.offset(0)) continue;
            const read_only_segment mapped(each.where.id);
            return mapped.copy(*each.offset(0), control) ? control.cliwriter : 0;
        }
        return 0;
    }

    // The one that is killed is never the master: its partitions would outlive the run.
    void kill_one()
    {
        const size_t which = std::uniform_int_distribution<size_t>(1, crew_.size() - 1)(random_);
        const pid_t gone = crew_[which].pid();
        crew_[which].send(SIGKILL);
        crew_[which].ended(5000);
        ++all_.kills;
        crew_[which] = crew_member(plan_[which].arguments);
        say(fmt::format("killed {} (process {}); started again as {}", plan_[which].name, gone, crew_[which].pid()));
    }

    // The writers first, together: each waits until all of its buffers are back, also from events that the killed hold.
    void finish()
    {
        say("the writers stop, and wait for their buffers");
        if (options_.faults) mend();
        for (const size_t i : {1U, 2U}) crew_[i].send(SIGTERM);
        for (const size_t i : {1U, 2U}) all_.written += ended(i, "blocks");
        for (const size_t i : {3U, 4U}) crew_[i].send(SIGTERM);
        for (const size_t i : {3U, 4U}) all_.read += ended(i, "events");
        if (options_.faults) mend(); // use counts of the killed can be told when nobody is left
        const bm_check_report left = checked(false);
        all_.broken = static_cast<int64_t>(left.count(bm_verdict::broken));
        for (const bm_finding& f : left.findings)
            say(fmt::format("left: {}: {}", printable(f.partition), printable(f.text)));
        crew_[0].send(SIGTERM);
        if (crew_[0].ended(10000) != 0) all_.balanced = false;
    }
    int64_t ended(size_t which, const char* member)
    {
        const int status = crew_[which].ended(20000);
        const std::string text = crew_[which].rest();
        const auto document = json::parse(text, nullptr, false);
        if (document.is_discarded()) {
            all_.balanced = false;
            say(fmt::format("{}: ended with {} and without a balance", plan_[which].name, status));
            return 0;
        }
        if (!document["balanced"].get<bool>() && !excused(document)) all_.balanced = false;
        say(fmt::format("{}: {} {}{}", plan_[which].name, document[member].get<int64_t>(), member,
                        document["balanced"].get<bool>() ? ", the balance is right" : ", " + faults_in(document)));
        return document[member].get<int64_t>();
    }
    /// A killed writer's blocks never came: holes and gaps are what a reader then must see. Damage never is.
    bool excused(const json& document) const
    {
        return options_.faults && all_.kills > 0 && document["schema"] == "bm.read" && document["damaged"] == 0 &&
               document["repeated"] == 0;
    }
    static std::string faults_in(const json& document)
    {
        std::string text;
        for (const char* what : {"holes", "damaged", "lost", "repeated", "refused", "out"}) {
            if (document.contains(what) && document[what].get<int64_t>() != 0)
                text += fmt::format("{}{} {}", text.empty() ? "" : ", ", document[what].get<int64_t>(), what);
        }
        return text;
    }

    bm_check_report checked(bool repair) const
    {
        bm_check_request request;
        request.clients = prefix_ + "CLIENTS";
        request.events = prefix_ + "EVENTS";
        request.data = {prefix_ + "ADC", prefix_ + "TDC"};
        request.records_2024 = true;
        request.repair = repair;
        request.observe = std::chrono::milliseconds(1000);
        return bm_check(request);
    }
    /// What the monitor cannot see, as buffers that a killed writer had taken and not handed over.
    void mend()
    {
        const bm_check_report report = checked(true);
        all_.repaired += static_cast<int64_t>(report.count(bm_verdict::repaired));
        for (const bm_finding& f : report.findings) {
            if (f.verdict == bm_verdict::repaired)
                say(fmt::format("repaired: {}: {}", printable(f.partition), printable(f.text)));
        }
    }
    void remove_partitions() const
    {
        for (const partition& each : partitions_of_host()) {
            if (each.name.compare(0, prefix_.size(), prefix_) != 0) continue;
            if (each.state == partition_state::sound) semctl(each.control().gbl_semid, 0, IPC_RMID);
            shmctl(each.where.id, IPC_RMID, nullptr);
        }
    }

    const common_options& common_;
    const demo_options& options_;
    const std::string prefix_, names_;
    std::mt19937 random_;
    std::vector<part> plan_;
    std::vector<crew_member> crew_; // the master, two writers, two readers
    tally all_;
};

json to_json(const tally& all)
{
    json one = document("demo");
    one["blocks_written"] = all.written;
    one["events_read"] = all.read;
    one["kills"] = all.kills;
    one["repaired"] = all.repaired;
    one["broken"] = all.broken;
    one["balanced"] = all.balanced;
    one["interrupted"] = all.interrupted;
    return one;
}

exit_status run(const common_options& common, const demo_options& options)
{
    const end_signals ends;
    tally all;
    {
        demo show(common, options);
        all = show.run(ends);
    }
    const bool right = all.balanced && all.broken == 0 && all.written > 0 && all.read > 0;
    if (common.json) {
        print_document(to_json(all));
    } else {
        print(fmt::format("{} kills; the monitor took back what the dead held, the check mended {}: {}\n", all.kills,
                          all.repaired, right ? "everything is accounted for" : "something is missing"));
    }
    return right ? exit_status::fine : exit_status::attention;
}

} // namespace

void add_demo(command_line& line)
{
    line.add<demo_options>(
        "demo", "a whole exchange for a few seconds, under names of its own",
        [](arguments& app, demo_options& options) {
            app.option("--seconds", options.seconds, "length of the run (10)").check(between(1.0, 3600.0));
            app.flag("--faults", options.faults, "kill writers and readers at random, and show the recovery");
            app.option("--seed", options.seed, "of the choice who is killed (0)");
        },
        run);
}

} // namespace bm
