// bm top: what bm stat tells and more, over the whole terminal.
#include <unistd.h>

#include "cli/failure.h"
#include "cli/screen.h"
#include "commands/commands.h"
#include "commands/stat_lines.h"
#include "host/end_signals.h"
#include "model/top_view.h"

namespace bm {
namespace {

/// Looks again and again while keys are taken.
class top_loop {
  public:
    top_loop(const common_options& common, const pace& pace)
        : pace_(pace), samples_(common, sampler::detail::rows), seen_(&samples_.look()), terminal_(common.color)
    {
    }

    void run()
    {
        auto next = pace::clock::now() + pace_.step();
        for (;;) {
            terminal_.draw(view_.lines(*seen_, terminal_.rows()));
            if (!take_key_until(next)) return;
            if (pace::clock::now() < next) continue;
            next = pace::clock::now() + pace_.step();
            if (!view_.frozen) look();
        }
    }

  private:
    /// @return whether to go on
    bool take_key_until(pace::clock::time_point when)
    {
        int key = terminal_.key(); // what came with the one before is no longer to be waited for
        if (key == screen::NO_KEY) {
            if (ends_.within(pace::until(when), STDIN_FILENO) != 0) return false;
            key = terminal_.key();
        }
        return key == screen::NO_KEY || view_.take(key);
    }
    // A master that starts again makes another exchange: until then there is none.
    void look()
    {
        try {
            seen_ = &samples_.look();
        } catch (const failure& gone) {
            if (gone.status() != exit_status::not_found) throw;
            static const moment NOTHING;
            seen_ = &NOTHING;
        }
    }

    const end_signals ends_;
    const pace pace_;
    sampler samples_;
    const moment* seen_;
    top_view view_;
    screen terminal_; // behind the first look: what that throws is printed on a terminal as it was
};

exit_status top(const common_options& common, const pace& pace)
{
    if (common.json || !screen::available()) return print_stat_lines(common, pace);
    top_loop(common, pace).run();
    return exit_status::fine;
}

} // namespace

void add_top(command_line& line)
{
    line.add<pace>("top", "the same and more, over the whole terminal; without one as stat", declare_pace, top);
}

} // namespace bm
