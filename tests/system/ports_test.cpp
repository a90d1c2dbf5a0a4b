// Many readers on one host: each has a port of its own, and keeps it.
#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <set>
#include <vector>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "BM.h"
#include "child.h"
#include "latch.h"
#include "shared.h"

using namespace zrk4::test;

namespace {

constexpr size_t PROCESSES = 4;
constexpr size_t EACH = 25;
using all_ports = std::array<std::array<int, EACH>, PROCESSES>;

class listening_bm : public BM {
  public:
    using BM::port;
};

// A socket of default size would be given a port that is in use already, now and then, when both allow it.
void open_readers(std::array<int, EACH>& ports, latch& all_open, latch& leave)
{
    std::vector<std::unique_ptr<listening_bm>> readers;
    for (int& port : ports) {
        readers.push_back(std::make_unique<listening_bm>());
        EXPECT_FALSE(readers.back()->start_reader()) << "false: its thread runs";
        port = readers.back()->port;
    }
    all_open.open();
    leave.wait();
    for (const auto& one : readers) one->stop_reader();
}

TEST(Ports, NoTwoReadersOfAHostShareOne)
{
    for (int round = 0; round < 8; ++round) {
        const shared<all_ports> ports;
        latch all_open(PROCESSES), leave;
        std::vector<std::unique_ptr<child>> processes;
        for (size_t p = 0; p < PROCESSES; ++p)
            processes.push_back(std::make_unique<child>([&, p] { open_readers((*ports)[p], all_open, leave); }));
        all_open.wait();
        std::set<int> different;
        for (const auto& of_one : *ports) different.insert(of_one.begin(), of_one.end());
        EXPECT_EQ(different.size(), PROCESSES * EACH);
        EXPECT_GT(*different.begin(), 0);
        leave.open();
        for (const auto& one : processes) EXPECT_EQ(one->wait(), 0);
    }
}

TEST(Ports, OneInUseCannotBeHadByAnotherProcess)
{
    const shared<int> port;
    latch open, leave;
    child reader([&] {
        listening_bm bm;
        EXPECT_FALSE(bm.start_reader());
        *port = bm.port;
        open.open();
        leave.wait();
    });
    open.wait();
    for (const in_addr_t address : {INADDR_ANY, INADDR_LOOPBACK}) {
        const int thief = socket(AF_INET, SOCK_DGRAM, 0);
        const int on = 1;
        ASSERT_EQ(setsockopt(thief, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on), 0);
        sockaddr_in wanted{};
        wanted.sin_family = AF_INET;
        wanted.sin_port = htons(static_cast<uint16_t>(*port));
        wanted.sin_addr.s_addr = htonl(address);
        EXPECT_NE(bind(thief, reinterpret_cast<const sockaddr*>(&wanted), sizeof wanted), 0);
        EXPECT_EQ(errno, EADDRINUSE);
        close(thief);
    }
    leave.open();
    EXPECT_EQ(reader.wait(), 0);
}

} // namespace
