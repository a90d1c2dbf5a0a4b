// Blocks of a format of one's own: a camera's frames, as its driver leaves them. The library asks for name, key, length,
// trigger, status and id of a block by functions; here they read the frame's head, and nothing is copied or wrapped.
//   example_foreign_blocks --role writer|reader [--events N] [--records 2010|2024]
#include <cstring>

#include "common.h"

namespace {

constexpr ZRK4_EVTYPE EVENT = ZRK4_EV_IMAGE;
constexpr int BUFFERS = 8, BYTES = 4096;

/// What a camera puts in front of its picture. Buffers begin at any byte.
struct BM_PACKED frame {
    int64_t taken_ns; ///< since the epoch
    uint32_t number;
    uint16_t width, height; ///< bytes of the picture that follows: their product
    char camera[16];
};

const frame& at(const char* block) { return *reinterpret_cast<const frame*>(block); }

char* name_of(char* block) { return block + offsetof(frame, camera); }
/// The event's key is seconds and microseconds. The answer is read before the same thread asks again.
time_stamp* key_of(char* block)
{
    thread_local time_stamp key;
    const int64_t us = at(block).taken_ns / 1000;
    key = {static_cast<uint32_t>(us / 1000000), static_cast<uint32_t>(us % 1000000)};
    return &key;
}
int64_t length_of(char* block) { return int64_t{sizeof(frame)} + int64_t{at(block).width} * at(block).height; }
int trigger_of(char* /*block*/) { return 1; }
int status_of(char* block) { return at(block).width == 0; }
int64_t id_of(char* block) { return at(block).number; }

int write_frames(const options& given)
{
    BM bm;
    configure(bm, given);
    if (bm.init()) return 1;              // true means failure: is there a master?
    bm.set_get_name_func(EVENT, name_of); // after init, which puts its own there
    bm.set_get_key_func(EVENT, key_of);
    bm.set_get_length_func(EVENT, length_of);
    bm.set_get_trg_func(EVENT, trigger_of);
    bm.set_get_sts_func(EVENT, status_of);
    bm.set_get_evid_func(EVENT, id_of);
    const int partition = bm.add((PARTITIONS + "CAMERA").c_str(), BUFFERS, BYTES);
    zrk4_client parameters{};
    std::list<std::string> blocks{"CAMERA"};
    if (partition < 1 || bm.subscribe(EVENT, CLI_T_WRITER, &parameters, &blocks) < 1) return 1;
    for (int i = 1; i <= given.number("events", 10); ++i, pause_ms(20)) {
        int number = -1;
        char* block = wait_for_buffer(bm, BYTES, partition, number);
        const auto now = std::chrono::system_clock::now().time_since_epoch();
        const frame head{std::chrono::nanoseconds(now).count(), static_cast<uint32_t>(i), 40, 30, "CAMERA"};
        std::memcpy(block, &head, sizeof head);
        std::memset(block + sizeof head, i, size_t{head.width} * head.height);
        if (bm.ev_update(EVENT, partition, number)) std::puts("refused");
    }
    wait_until_all_are_back(bm, partition, BUFFERS);
    return 0;
}

BM* reading = nullptr;
event_count* seen = nullptr;

void on_event(void* /*head*/, zrk4_client_sblock_data* first)
{
    const char* block = reading->get_buffer_address(first->bnum, first->shmid, true);
    if (block != nullptr)
        std::printf("%s: frame %u, %d x %d of %d\n", first->name, +at(block).number, at(block).width, at(block).height,
                    block[sizeof(frame)]);
    ++*seen;
}

int run(const options& given)
{
    if (given.text("role", "reader") == "writer") return write_frames(given);
    event_count all(given);
    BM bm;
    reading = &bm;
    seen = &all;
    configure(bm, given);
    zrk4_client parameters{};
    if (bm.init()) return 1;
    bm.set_ev_handler(on_event);
    if (bm.subscribe(EVENT, CLI_T_READER, &parameters, nullptr) < 1) return 1;
    return see_events(bm, EVENT, all);
}

} // namespace

int main(int argc, char** argv) { return run_in_order(argc, argv, run); }
