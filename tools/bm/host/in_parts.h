/// @file
/// A walk over thousands of slots, divided among the processors: most of it is waiting for the kernel to map pages.
#ifndef ZRK4_TOOL_IN_PARTS_H
#define ZRK4_TOOL_IN_PARTS_H

#include <algorithm>
#include <atomic>
#include <future>
#include <thread>
#include <vector>

namespace bm {

/// Calls work(first, last) for pieces of the whole range, side by side where that is worth a thread. Who is done with a
/// piece takes the next: a thread that the kernel starts late holds nobody up. Each thread calls a copy of `work` of its
/// own. What it throws reaches the caller.
/// @return what the calls returned, in the order of the range
template <class Result, class Work> std::vector<Result> in_parts(int first, int last, Work work)
{
    constexpr int PIECE = 128, WORTH_A_THREAD = 512, MOST = 4;
    std::vector<Result> all(static_cast<size_t>(std::max(1, (last - first + PIECE - 1) / PIECE)));
    std::atomic<size_t> next = 0;
    const auto take_pieces = [&](Work own) {
        for (size_t piece = next++; piece < all.size(); piece = next++) {
            const int begin = first + static_cast<int>(piece) * PIECE;
            all[piece] = own(begin, std::min(begin + PIECE, last));
        }
    };
    const int processors = std::clamp(static_cast<int>(std::thread::hardware_concurrency()), 1, MOST);
    std::vector<std::future<void>> others;
    for (int thread = 1; thread < std::min(processors, (last - first) / WORTH_A_THREAD); ++thread)
        others.push_back(std::async(std::launch::async, take_pieces, work));
    take_pieces(work);
    for (std::future<void>& each : others) each.get();
    return all;
}

} // namespace bm

#endif
