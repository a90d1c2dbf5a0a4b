#include "plan.h"

#include <algorithm>
#include <fstream>
#include <iostream>
#include <set>
#include <utility>

#include "runner.h"

namespace sweep {
namespace {

constexpr int SAMPLE_STEP = 4;

// From so many readers on, but for a role that takes less.
std::vector<setting> all_settings(int readers_max, int readers_min)
{
    std::vector<setting> all;
    for (const bool wide : {false, true}) {
        for (const bool by_id : {false, true}) {
            for (int readers = std::min(readers_min, readers_max); readers <= readers_max; ++readers)
                all.push_back({wide, by_id, readers});
        }
    }
    return all;
}

class plan {
  public:
    plan(plan_options options, const std::string& record, int jobs) : options_(std::move(options)), runner_(jobs)
    {
        std::ifstream old(record);
        for (std::string line; std::getline(old, line);) {
            if (const auto r = result_of(line)) known_.insert(name_of(r->at));
        }
        record_.open(record, std::ios::app);
        stories_.open(record + ".stories", std::ios::app);
    }

    int run()
    {
        if (!record_) {
            std::cerr << "kill_sweep: the record cannot be written\n";
            return 2;
        }
        size_t turn = 0;
        for (const role& r : options_.instructions ? all_regions() : all_roles()) {
            if (!options_.role.empty() && r.name != options_.role) continue;
            const std::vector<setting> settings =
                options_.instructions ? all_settings(std::min(2, r.readers_max), 2) : all_settings(r.readers_max, 1);
            turn = (turn + 5) % settings.size();
            for (size_t i = 0; i < settings.size(); ++i) {
                // A sample has two settings of each role: one, and the one that is its opposite in everything.
                if (!options_.sample || i == turn || i == settings.size() - 1 - turn) add_variant(r, settings[i]);
            }
        }
        runner_.run();
        std::cerr << '\r' << done_ << " points\n";
        return record_.good() ? 0 : 2;
    }

  private:
    // Once to the end, which shows the calls, or the instructions; then once for each of them.
    void add_variant(const role& r, const setting& in)
    {
        const point whole{r.name, in, options_.instructions ? moment::at : moment::before, 0};
        runner_.add(whole, [this](const trial_end& end) {
            write(end);
            int index = 0;
            for (const point& at : points_in(end)) {
                const bool chosen = !options_.sample || ++index % SAMPLE_STEP == 1;
                if (chosen && known_.count(name_of(at)) == 0)
                    runner_.add(at, [this](const trial_end& one) { write(one); });
            }
        });
    }

    static std::vector<point> points_in(const trial_end& whole)
    {
        std::vector<point> points;
        const auto add = [&](moment when, long number) {
            points.push_back(whole.what.at);
            points.back().when = when;
            points.back().number = number;
        };
        for (const long offset : whole.instructions) add(moment::at, offset);
        for (const int number : swept_calls(whole.calls)) {
            add(moment::before, number);
            add(moment::after, number);
        }
        return points;
    }

    void write(const trial_end& end)
    {
        record_ << line_of(end.what) << std::endl;
        if (end.what.what == outcome::not_back || !end.what.broken.empty())
            stories_ << "==== " << name_of(end.what.at) << '\n' << end.story << std::endl;
        if (++done_ % 50 == 0) std::cerr << '\r' << done_ << " points" << std::flush;
    }

    plan_options options_;
    runner runner_;
    std::set<std::string> known_;
    std::ofstream record_;
    std::ofstream stories_; // what the processes of a point that did not end well have printed
    int done_ = 0;
};

} // namespace

int run_plan(const plan_options& options, const std::string& record, int jobs)
{
    return plan(options, record, jobs).run();
}

} // namespace sweep
