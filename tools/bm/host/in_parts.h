/// @file
/// A walk over thousands of slots, divided among the processors: most of it is waiting for the kernel to map pages.
#ifndef ZRK4_TOOL_IN_PARTS_H
#define ZRK4_TOOL_IN_PARTS_H

#include <algorithm>
#include <future>
#include <thread>
#include <vector>

namespace bm {

/// Calls work(first, last) for pieces of the whole range, side by side where that is worth a thread. What it throws
/// reaches the caller.
/// @return what the calls returned, in the order of the range
template <class Result, class Work> std::vector<Result> in_parts(int first, int last, Work work)
{
    constexpr int WORTH_A_THREAD = 512, MOST = 4;
    const int processors = std::clamp(static_cast<int>(std::thread::hardware_concurrency()), 1, MOST);
    const int parts = std::clamp((last - first) / WORTH_A_THREAD, 1, processors);
    const auto begin_of = [&](int part) { return first + (last - first) / parts * part; };
    std::vector<std::future<Result>> others;
    for (int part = 1; part < parts; ++part) {
        others.push_back(
            std::async(std::launch::async, work, begin_of(part), part + 1 == parts ? last : begin_of(part + 1)));
    }
    std::vector<Result> all;
    all.push_back(work(first, parts == 1 ? last : begin_of(1)));
    for (std::future<Result>& each : others) all.push_back(each.get());
    return all;
}

} // namespace bm

#endif
