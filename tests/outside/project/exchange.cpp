// Master, writer and reader in one process: three events go round.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <list>
#include <string>
#include <thread>

#include "BM.h"
#include "sb_view.h"
#include "sb_write.h"

namespace {

constexpr int BYTES = 1024, EVENTS = 3;

BM bm;
std::atomic<int> right{0}, seen{0};

void on_event(void* slot, zrk4_client_sblock_data* blocks)
{
    const int number = static_cast<zrk4_event_slot_head*>(slot)->sbfilled;
    const zrk4::sb_view block = number == 1 ? zrk4::sb_of(bm, blocks[0]) : zrk4::sb_view();
    const bool sound = block.sound() && block.server() == "OUTSIDE" && block.head().mpulse == seen + 1;
    if (sound && (*block.begin()).value<double>(0) == 0.5) ++right;
    ++seen;
}

bool send(int data, int pulse)
{
    int number = -1;
    char* buffer = bm.get_buffer_from_pool(0, BYTES, &data, &number);
    if (buffer == nullptr) return false;
    time_stamp now{};
    bm.get_cur_time(&now);
    zrk4::sb_write block(buffer, BYTES, zrk4::sb_form::of_2010, {"OUTSIDE", now, pulse, 1});
    const double value = 0.5;
    block.sub_block("VALUE", ZRK4_BLOCK_1CHAN_2010, &value, sizeof value);
    block.finish();
    return !bm.ev_update(ZRK4_EV_NORMAL, data, number);
}

} // namespace

int main()
{
    bm.set_nclients(16);
    bm.set_nblocks(16);
    if (bm.set_master(true) || bm.init()) return 1;
    bm.set_ev_handler(on_event);
    const int data = bm.add("OUTSIDE_DATA", 8, BYTES);
    zrk4_client parameters{};
    std::list<std::string> blocks{"OUTSIDE"};
    if (data < 1 || bm.subscribe(ZRK4_EV_NORMAL, CLI_T_READER, &parameters, nullptr) < 1) return 1;
    if (bm.subscribe(ZRK4_EV_NORMAL, CLI_T_WRITER, &parameters, &blocks) < 1) return 1;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    for (int pulse = 1; pulse <= EVENTS; ++pulse) {
        if (!send(data, pulse)) return 1;
        while (seen < pulse && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        std::this_thread::sleep_for(std::chrono::milliseconds(50)); // beyond the time mask: another event
    }
    bm.all_clean_up();
    std::printf("%d events as they were sent\n", right.load());
    return right == EVENTS ? 0 : 1;
}
