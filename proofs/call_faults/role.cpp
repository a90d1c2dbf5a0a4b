// One process of the host: call_faults_role master|writer|reader [careless]. It does what a program should: it looks at
// every result, and ends when something that it needs is refused.
#include <cstdio>
#include <cstring>
#include <exception>
#include <new>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

#include "host.h"

namespace {

using namespace call_faults;

shared_counts* counts = nullptr;

void say(char letter)
{
    if (write(LINE_FD, &letter, 1) != 1) _exit(WELL); // nobody is there any more
}

char hear()
{
    char letter = LEAVE;
    while (read(LINE_FD, &letter, 1) < 0) {}
    return letter;
}

void configure(BM& bm)
{
    bm.set_nclients(8);
    bm.set_ncl_slots(16);
    bm.set_nblocks(4);
    bm.set_rate(1);
}

int be_master()
{
    BM bm;
    configure(bm);
    bm.set_monitoring_period(PERIOD_US);
    if (bm.set_master(true) || bm.init()) return NO_MASTER;
    if (bm.add(DATA, BUFFERS, BUFFER_BYTES) < 0) return NO_DATA;
    say(READY);
    while (hear() != LEAVE) {}
    bm.all_clean_up();
    return WELL;
}

time_stamp time_of(int event) { return {1000U + static_cast<uint32_t>(event), 0}; }

char* free_buffer(BM& bm, int& data, int& number)
{
    constexpr int PATIENCE = 4000;
    char* at = nullptr;
    for (int i = 0; i < PATIENCE; ++i) {
        at = bm.get_buffer_from_pool(BM_NO_WAIT, BUFFER_BYTES, &data, &number);
        if (at != nullptr) break;
        usleep(500);
    }
    return at;
}

int send(BM& bm, int data, int event)
{
    int number = -1;
    char* at = free_buffer(bm, data, number);
    if (at == nullptr) return NO_BUFFER;
    zrk4_serv_block_head_2010 head{};
    head.time = time_of(event);
    head.mpulse = event;
    head.ltotal = sizeof head;
    head.tmask = 1;
    std::strcpy(head.server, BLOCK);
    std::memcpy(at, &head, sizeof head);
    return bm.ev_update(EVENT_TYPE, data, number) ? BLOCK_REFUSED : WELL;
}

int be_writer(bool careless)
{
    BM bm;
    configure(bm);
    if (bm.init()) return NO_MASTER;
    if (bm.add(DATA)) return NO_DATA;
    int data = std::stoi(bm.find_by_name(DATA)->getStat("shmid"));
    zrk4_client parameters{};
    std::list<std::string> blocks{BLOCK};
    if (bm.subscribe(EVENT_TYPE, CLI_T_WRITER, &parameters, &blocks) < 1) return NO_SUBSCRIPTION;
    say(READY);
    for (char letter = hear(); letter != LEAVE; letter = hear()) {
        for (int e = counts->first_event; e < counts->last_event; ++e) {
            const int status = send(bm, data, e);
            if (status != WELL) return status;
        }
        say(FINISHED);
    }
    int number = -1;
    if (careless) free_buffer(bm, data, number);
    if (bm.unsubscribe(EVENT_TYPE, CLI_T_WRITER) < 1) return NO_SUBSCRIPTION;
    bm.all_clean_up();
    return WELL;
}

class reader : public BM {
  public:
    ~reader() override { all_clean_up(); }
    void event_handler(void* head, zrk4_client_sblock_data* first) override
    {
        const auto* event = static_cast<const zrk4_event_slot_head*>(head);
        const int number = event->eventid;
        const zrk4_client_sblock_data entry = *first;
        const char* at = event->sbfilled == 1 ? get_buffer_address(entry.bnum, entry.shmid, true) : nullptr;
        zrk4_serv_block_head_2010 block{};
        if (at == nullptr) return; // refused: it is as if the event had not come
        std::memcpy(&block, at, sizeof block);
        if (number < 0 || number >= MOST_EVENTS || block.mpulse != number || std::strcmp(block.server, BLOCK) != 0) {
            ++counts->strange;
        } else {
            ++counts->calls[number];
        }
    }
};

int be_reader()
{
    reader bm;
    configure(bm);
    if (bm.init()) return NO_MASTER;
    zrk4_client parameters{};
    std::list<std::string> blocks;
    if (bm.subscribe(EVENT_TYPE, CLI_T_READER, &parameters, &blocks) < 1) return NO_SUBSCRIPTION;
    say(READY);
    while (hear() != LEAVE) {}
    if (bm.unsubscribe(EVENT_TYPE, CLI_T_READER) < 1) return NO_SUBSCRIPTION;
    return WELL;
}

int be(const std::string& role, bool careless)
{
    if (role == "master") return be_master();
    return role == "writer" ? be_writer(careless) : be_reader();
}

} // namespace

int main(int argc, char** argv)
{
    void* at = mmap(nullptr, sizeof(shared_counts), PROT_READ | PROT_WRITE, MAP_SHARED, SHARED_FD, 0);
    if (argc < 2 || at == MAP_FAILED) return 2;
    counts = static_cast<shared_counts*>(at);
    setvbuf(stdout, nullptr, _IOLBF, 0); // what a killed one has said is not lost
    try {
        return be(argv[1], argc > 2);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "role: %s\n", e.what());
        return EXCEPTION;
    }
}
