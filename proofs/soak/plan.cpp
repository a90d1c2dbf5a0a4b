#include "plan.h"

#include <algorithm>

namespace soak {

std::string name_of(int member)
{
    if (is_writer(member)) return "writer-" + std::to_string(member - FIRST_WRITER);
    if (is_reader(member)) return "reader-" + std::to_string(member - FIRST_READER);
    return "master";
}

int plan::watch_of(int seconds)
{
    constexpr int WATCHES = 3, SHORTEST = 40, LONGEST = 2000;
    const int actions = seconds * 1000 / ((SHORTEST_MS + LONGEST_MS) / 2);
    return std::clamp(actions / WATCHES, SHORTEST, LONGEST);
}

// Not a distribution of the standard library: their results differ from one to the next.
int plan::between(int low, int high)
{
    return low + static_cast<int>(random_() % static_cast<uint64_t>(high - low + 1));
}

bool plan::spared(int member) const
{
    const int watch = made_ / watch_;
    if (member == MASTER) return watch % 2 == 1;
    return member == FIRST_WRITER + watch % WRITERS || member == FIRST_READER + watch % READERS;
}

action plan::next()
{
    action made{between(SHORTEST_MS, LONGEST_MS), between(1, 10) <= 7 ? action::KILL : action::STOP, MASTER,
                between(SHORTEST_MS, LONGEST_STOP_MS)};
    do {
        made.victim = between(0, MEMBERS - 1);
    } while (spared(made.victim));
    ++made_;
    return made;
}

} // namespace soak
