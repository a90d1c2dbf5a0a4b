// A writer of one block per event.
#include <list>
#include <string>
#include <unistd.h>

#include "BM.h"
#include "sb_write.h"

// [join]
constexpr int BUFFERS = 16, BYTES = 4096;

int main()
{
    BM bm;
    if (bm.init()) return 1; // true means failure: is there a master?
    int data = bm.add("ADC_DATA", BUFFERS, BYTES);
    zrk4_client parameters{};
    std::list<std::string> blocks{"ADC"};
    if (data < 1 || bm.subscribe(ZRK4_EV_NORMAL, CLI_T_WRITER, &parameters, &blocks) < 1) return 1;
    // [join]
    // [send]
    for (int pulse = 1; pulse <= 10; ++pulse) {
        int number = -1;
        char* buffer = bm.get_buffer_from_pool(/*wait*/ 0, BYTES, &data, &number);
        if (buffer == nullptr) continue; // a signal came

        time_stamp now{};
        bm.get_cur_time(&now);
        const double value = pulse;
        zrk4::sb_write block(buffer, BYTES, zrk4::sb_form::of_2010, {"ADC", now, pulse, /*trigger*/ 1});
        block.sub_block("ADC.CH0", ZRK4_BLOCK_1CHAN_2010, &value, sizeof value);
        block.finish();

        bm.ev_update(ZRK4_EV_NORMAL, data, number); // from here on the buffer belongs to the event
        usleep(50000);                              // less than the time mask (20 ms) apart they would be one event
    }
}
// [send]
