/// @file
/// Event building over channels that copy: one from every writer to every reader.
#ifndef ZRK4_BENCH_EXCHANGE_BY_COPIES_H
#define ZRK4_BENCH_EXCHANGE_BY_COPIES_H

#include <memory>
#include <vector>

#include "exchange_by_messages.h"

namespace bench {

/// All of a run, made by the conductor and inherited.
template <class Channel> using channels = std::vector<std::unique_ptr<Channel>>;
template <class Channel> Channel& channel_of(const channels<Channel>& all, const plan& p, int writer, int reader)
{
    return *all[static_cast<size_t>(writer) * static_cast<size_t>(p.readers) + static_cast<size_t>(reader)];
}

template <class Channel> struct copying_inbox {
    const channels<Channel>& all;
    const plan& p;
    int index;
    std::vector<std::vector<char>> blocks =
        std::vector<std::vector<char>>(static_cast<size_t>(p.writers), std::vector<char>(p.payload));

    void join() {}
    const char* take(int writer)
    {
        std::vector<char>& block = blocks[static_cast<size_t>(writer)];
        channel_of(all, p, writer, index).read_all(block.data(), block.size());
        return block.data();
    }
    void done() {}
};

template <class Channel> struct copying_outbox {
    const channels<Channel>& all;
    const plan& p;
    int index;
    std::vector<char> block = std::vector<char>(p.payload);

    char* take() { return block.data(); }
    void send()
    {
        for (int k = 0; k < p.readers; ++k) channel_of(all, p, index, k).write_all(block.data(), block.size());
    }
};

/// `Channel`: void write_all(const char* from, size_t bytes); void read_all(char* to, size_t bytes), which waits for them.
/// @param make  of a number, a pointer to the channel
template <class Channel, class Make> reading by_copies(const plan& p, Make make)
{
    channels<Channel> all;
    for (int i = 0; i < p.writers * p.readers; ++i) all.push_back(make(i));
    return by_messages(
        p,
        [&](int k) {
            return copying_inbox<Channel>{all, p, k};
        },
        [&](int i) {
            return copying_outbox<Channel>{all, p, i};
        });
}

} // namespace bench

#endif
