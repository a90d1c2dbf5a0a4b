// bm top: what bm stat tells and more, over the whole terminal.
#include <algorithm>

#include "cli/failure.h"
#include "cli/interrupt.h"
#include "cli/screen.h"
#include "commands/commands.h"
#include "commands/stat_lines.h"
#include "model/top_view.h"

namespace bm {
namespace {

struct top_options {
    double seconds = 1;
    int count = 0;
};

/// Looks again and again while keys are taken.
class top_loop {
  public:
    top_loop(const common_options& common, double seconds)
        : seconds_(seconds), samples_(common), seen_(samples_.look()), terminal_(common.color)
    {
    }

    void run()
    {
        double next = interrupt_watch::steady_now() + seconds_;
        for (;;) {
            terminal_.draw(view_.lines(seen_, terminal_.rows()));
            const double left = next - interrupt_watch::steady_now();
            const int key = terminal_.key(static_cast<int>(std::max(0.0, left) * 1000) + 1);
            if (interrupt_watch::interrupted() || (key != screen::NO_KEY && !view_.take(key))) return;
            if (interrupt_watch::steady_now() < next) continue;
            next = interrupt_watch::steady_now() + seconds_;
            if (!view_.frozen) look();
        }
    }

  private:
    // A master that starts again makes another exchange: until then there is none.
    void look()
    {
        try {
            seen_ = samples_.look();
        } catch (const failure& gone) {
            if (gone.status() != exit_status::not_found) throw;
            seen_ = {};
        }
    }

    double seconds_;
    sampler samples_;
    moment seen_;
    top_view view_;
    screen terminal_; // behind the first look: what that throws is printed on a terminal as it was
};

exit_status top(const common_options& common, const top_options& options)
{
    if (common.json || !screen::available()) return print_stat_lines(common, options.seconds, options.count);
    const interrupt_watch watch;
    top_loop(common, options.seconds).run();
    return exit_status::fine;
}

} // namespace

void add_top(command_line& line)
{
    line.add<top_options>(
        "top", "the same and more, over the whole terminal; without one as stat",
        [](CLI::App& app, top_options& options) {
            app.add_option("-i,--interval", options.seconds, "seconds between two looks (1)")
                ->check(CLI::Range(0.05, 3600.0));
            app.add_option("-n,--count", options.count, "without a terminal: lines, then end")
                ->check(CLI::NonNegativeNumber);
        },
        top);
}

} // namespace bm
