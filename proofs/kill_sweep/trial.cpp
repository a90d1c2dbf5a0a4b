#include "trial.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <system_error>

#include <sys/mman.h>
#include <unistd.h>

#include "roles.h"
#include "steps.h"
#include "stillness.h"

namespace sweep {

const char* volatile trial_phase = "starts";

namespace {

constexpr int PERIODS = 12;

board& make_board()
{
    void* at = mmap(nullptr, sizeof(board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (at == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "mmap");
    return *new (at) board();
}

std::string joined(const std::vector<std::string>& texts)
{
    std::string all;
    for (const std::string& text : texts) all += (all.empty() ? "" : " | ") + text;
    return all;
}

class trial {
  public:
    explicit trial(const point& at) : role_(*role_named(at.role)), board_(make_board()), stage_(at, board_)
    {
        end_.what.at = at;
    }

    trial_end run()
    {
        try {
            kill_victim();
            go_on();
            judge();
            go_home();
        } catch (const std::exception& e) {
            stage_.say_broken(e.what());
        }
        stage_.check_claims();
        // A buffer with two owners is nobody's.
        if (board_.taken_twice > 0 || board_.wrong_blocks > 0) end_.what.what = outcome::not_back;
        end_.what.broken = joined(stage_.broken());
        end_.host_stood_still = stillness::seen();
        for (const auto& m : stage_.cast()) end_.story += "---- " + m->name() + '\n' + m->output();
        return end_;
    }

  private:
    void kill_victim()
    {
        trial_phase = "sets up";
        member& victim = role_.set_up(stage_);
        const pid_t thread = role_.main_thread ? victim.pid() : victim.other_thread();
        traced_thread traced(victim.pid(), thread, role_.main_thread ? -1 : role_.counted.to);
        trial_phase = "follows the victim";
        role_.begin(stage_, victim);
        const trace seen = follow(traced, victim);
        board_.hold_from = NEVER;
        end_.calls = seen.calls;
        end_.what.call = seen.last;
        end_.what.status = seen.status;
        killed_ = seen.killed;
        if (killed_) victim.is_dead();
        trial_phase = "goes on without the victim";
        if (!killed_ && role_.main_thread) victim.hear();
        victim.slowest = 0; // it was slowed down, and is no survivor
        // What the check finds at once, it must be able to say without a repair.
        if (killed_ && end_.what.at.when == moment::at) stage_.check(false);
        role_.after(stage_, victim);
    }

    trace follow(traced_thread& traced, member& victim)
    {
        const point& at = end_.what.at;
        if (at.when != moment::at)
            return follow_calls(traced, role_.counted, at.when, at.number, [&] { role_.at_first(stage_, victim); });
        if (at.number != 0) return kill_at_instruction(traced, role_.counted, at.number);
        end_.instructions = locked_instructions(traced, role_.counted);
        trace whole;
        whole.status = LIVES;
        return whole;
    }

    void go_on()
    {
        stage_.whole_events(2);
        stage_.replace_dead();
        stage_.whole_events(3);
        stage_.wait_periods(PERIODS);
    }

    // The monitor goes on, and holds a lock for some microseconds of its period: what is missing is so in every look.
    std::vector<std::string> count() const
    {
        std::vector<std::string> missing;
        for (int look = 0; look < 5; ++look) {
            missing = missing_from(stage_.as_expected());
            if (missing.empty()) break;
            usleep(3000);
        }
        return missing;
    }

    // What is back before anything was repaired, the monitor brought back.
    void judge()
    {
        trial_phase = "judges";
        const bool repaired_before = stage_.repaired();
        std::vector<std::string> missing = count();
        if (!killed_ && !missing.empty()) {
            // Nobody died: the monitor spares a live writer's event for twenty periods, in whole seconds.
            stage_.wait_periods(2 * PERIODS);
            missing = count();
        }
        std::vector<std::string> findings = missing;
        const bool all_back = missing.empty();
        const checked mended = stage_.check(true);
        if (!all_back && mended.saw_nothing) stage_.say_broken("the check saw nothing of what is missing");
        if (all_back && mended.by_command() && !mended.saw_nothing)
            stage_.say_broken("bm check sees damage where nothing is missing");
        end_.what.command = mended.statuses;
        if (!all_back) missing = count();
        findings.insert(findings.end(), stage_.found().begin(), stage_.found().end());
        for (const std::string& text : missing) findings.push_back("still missing: " + text);
        end_.what.findings = joined(findings);
        end_.what.what = missing.empty() ? outcome::repair : outcome::not_back;
        if (all_back && !repaired_before) end_.what.what = killed_ ? outcome::monitor : outcome::ended;
        if (!missing.empty() && all_undecided(missing, mended)) end_.what.what = outcome::undecidable;
        if (mended.left > 0) stage_.say_broken("the repair left " + std::to_string(mended.left) + " findings");
    }

    // A text of a missing buffer begins with the buffer.
    static bool all_undecided(const std::vector<std::string>& missing, const checked& mended)
    {
        return std::all_of(missing.begin(), missing.end(), [&](const std::string& text) {
            return mended.undecided.count(text.substr(0, text.find(" is out"))) != 0;
        });
    }

    void go_home()
    {
        trial_phase = "goes home";
        stage_.whole_events(2);
        if (end_.what.what == outcome::monitor || end_.what.what == outcome::repair || end_.what.what == outcome::ended)
            stage_.use_all_buffers();
        end_.what.lost = stage_.lost_events();
        stage_.everybody_leaves();
        for (const std::string& left : leftovers()) stage_.say_broken(left);
    }

    const role& role_;
    board& board_;
    stage stage_;
    trial_end end_;
    bool killed_ = false;
};

} // namespace

trial_end run_trial(const point& at) { return trial(at).run(); }

} // namespace sweep
