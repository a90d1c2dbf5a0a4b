// The address of "localhost": looked up once in a process, and tried again until it is known.
#include <cerrno>

#include <netdb.h>

#include "event_host.h"
#include "fault.h"
#include "udp_inbox.h"

using namespace zrk4::test;

namespace {

/// Each case in a process of its own: an address that is known stays known.
class BmResolver : public BothGenerations {
  protected:
    static std::string failed(int code)
    {
        return "Failed to get 'localhost' address error: " + std::to_string(code) + "\n";
    }
    static constexpr const char* COMPLAINTS = "gethostbyname_r() failed to resolve hostname [localhost]"
                                              "gethostbyname: No such device or address\n";
};
IN_BOTH_GENERATIONS(BmResolver);

TEST_P(BmResolver, FailingLeavesTheClientNotifiedAndIsTriedAgain)
{
    child process([] {
        captured_output captured;
        fault unknown = fault::fails("gethostbyname_r", EAGAIN, 1, FOR_EVER);
        event_host host(GetParam());
        captured.forget(); // what the constructor said
        const udp_inbox inbox;
        const int reading = host.client({.port = inbox.port()});
        host.used_slot();
        host.slot(1).add_client(reading, host.WAIT);
        errno = ENXIO;
        EXPECT_TRUE(host.bm.notification(1, reading, 0)) << "true is failure";
        EXPECT_EQ(captured.out(), failed(EAGAIN));
        EXPECT_EQ(captured.err(), COMPLAINTS);
        EXPECT_EQ(host.slot(1).client_status(0), host.NTF);
        EXPECT_EQ(host.bm.qid, -1) << "no socket without an address";

        host.slot(1).put_client_status(0, host.WAIT);
        captured.forget();
        EXPECT_EQ(host.bm.cl_notify(1), 0);
        EXPECT_EQ(dates_marked(captured.out()),
                  failed(EAGAIN) + "DATE notification(all) failed -> forcing client DONE\n");
        EXPECT_EQ(host.slot(1).client_status(0), host.DONE);

        {
            const fault over = std::move(unknown);
        }
        host.slot(1).put_client_status(0, host.WAIT);
        EXPECT_FALSE(host.bm.notification(1, reading, 0));
        EXPECT_FALSE(inbox.empty());
        const long looked_up = calls_of("gethostbyname_r");
        host.slot(1).put_client_status(0, host.WAIT);
        EXPECT_FALSE(host.bm.notification(1, reading, 0));
        EXPECT_EQ(calls_of("gethostbyname_r"), looked_up) << "known now";
    });
    EXPECT_EQ(process.wait(), 0);
}

// The entry that the library looks names up into is one for the process: a program that looks up another host must not
// turn the notifications away.
TEST_P(BmResolver, KeepsItsAddressWhenTheProgramLooksUpAnotherHost)
{
    child process([] {
        event_host host(GetParam());
        const udp_inbox inbox;
        const int reading = host.client({.port = inbox.port()});
        host.used_slot();
        host.slot(1).add_client(reading, host.WAIT);
        {
            std::vector<char> scratch(4096);
            hostent* entry = nullptr;
            ASSERT_EQ(resolvehost("192.0.2.1", scratch.data(), static_cast<int>(scratch.size()), &entry), 0);
        }
        EXPECT_FALSE(host.bm.notification(1, reading, 0));
        EXPECT_FALSE(inbox.empty());
    });
    EXPECT_EQ(process.wait(), 0);
}

class Resolvehost : public testing::Test {
  protected:
    int look_up(const char* name) { return resolvehost(name, scratch, sizeof scratch, &entry); }

    char scratch[4096];
    hostent* entry = reinterpret_cast<hostent*>(this); // must be set in any case
};

TEST_F(Resolvehost, FindsTheLoopbackAddress)
{
    EXPECT_EQ(err_of([&] { EXPECT_EQ(look_up("localhost"), 0); }), "");
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->h_addrtype, AF_INET);
    EXPECT_EQ(load<uint32_t>(entry->h_addr_list[0]), htonl(INADDR_LOOPBACK));
    EXPECT_TRUE(entry->h_addr_list[0] >= scratch && entry->h_addr_list[0] < scratch + sizeof scratch)
        << "the strings lie in the caller's buffer";
}

TEST_F(Resolvehost, AnswersWithTheResolversCode)
{
    const fault again = fault::fails("gethostbyname_r", ERANGE);
    EXPECT_EQ(err_of([&] { EXPECT_EQ(look_up("somewhere"), ERANGE); }),
              "gethostbyname_r() failed to resolve hostname [somewhere]");
    EXPECT_EQ(entry, nullptr);
}

TEST_F(Resolvehost, AnswersWithItsOwnCodeForAHostThatIsUnknown)
{
    // The call itself succeeds then and finds nothing.
    EXPECT_EQ(out_of([&] {
                  EXPECT_EQ(err_of([&] { EXPECT_NE(look_up("not a host name"), 0); }),
                            "gethostbyname_r() failed to resolve hostname [not a host name]");
              }),
              "");
    EXPECT_EQ(entry, nullptr);
}

TEST_F(Resolvehost, FailsInABufferThatIsTooSmall)
{
    EXPECT_EQ(err_of([&] { EXPECT_EQ(resolvehost("localhost", scratch, 1, &entry), ERANGE); }),
              "gethostbyname_r() failed to resolve hostname [localhost]");
    EXPECT_EQ(entry, nullptr);
}

} // namespace
