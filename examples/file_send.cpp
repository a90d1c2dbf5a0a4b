// Streams a file through server blocks: several writer processes take turns at its pieces, one piece each per event.
//   file_send --file PATH [--writers N] [--piece BYTES] [--records 2010|2024]
// It begins when a file_receive is there.
#include <algorithm>
#include <csignal>
#include <cstdio>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "common.h"

namespace {

constexpr ZRK4_EVTYPE EVENT = ZRK4_EV_IMAGE;
constexpr int BUFFERS = 8, HEADS = 1024;

/// In front of each piece.
struct piece_head {
    int64_t offset, file_size;
};

/// @return whether all of it could be read.
bool read_piece(int file, char* to, int64_t bytes, int64_t offset)
{
    for (ssize_t n = 0; bytes > 0; bytes -= n, offset += n, to += n) {
        n = pread(file, to, static_cast<size_t>(bytes), offset);
        if (n <= 0) return false;
    }
    return true;
}

int send_part(const options& given, int file, int part, int parts)
{
    const int64_t piece = given.number("piece", 1 << 20);
    const std::string name = "FILE." + std::to_string(part);
    struct stat about {};
    BM bm; // after the last fork of its process
    configure(bm, given);
    if (fstat(file, &about) != 0 || bm.init()) return 1;
    // Its own buffers: with common ones, a part that is ahead could take those that the part behind needs.
    const int partition = bm.add((PARTITIONS + name).c_str(), BUFFERS, static_cast<int>(piece) + HEADS);
    zrk4_client parameters{};
    std::list<std::string> blocks{name};
    if (partition < 1 || bm.subscribe(EVENT, CLI_T_WRITER, &parameters, &blocks) < 1) return 1;
    for (int writers = 0, readers = 0; writers < parts || readers < 1; pause_ms(1))
        bm.cl_subscribed(&writers, &readers);

    for (int64_t event = 0; event == 0 || event * parts * piece < about.st_size; ++event) {
        piece_head head{(event * parts + part) * piece, about.st_size};
        const int64_t bytes = std::max<int64_t>(0, std::min(piece, head.file_size - head.offset));
        int number = -1, slot = -1;
        pause_ms(0); // also a part that never has to wait hears a signal
        char* at = wait_for_buffer(bm, static_cast<int>(piece) + HEADS, partition, number); // the reader may be behind
        zrk4::sb_write block(at, static_cast<size_t>(piece) + HEADS, form_of(bm),
                             {name, time_stamp{static_cast<uint32_t>(event + 1), 0}, event + 1, 1});
        block.sub_block("DATA", ZRK4_BLOCK_IMAGE, &head, sizeof head);
        char* data = block.reserve(static_cast<size_t>(bytes));
        if (data == nullptr || !read_piece(file, data, bytes, head.offset)) return 1;
        block.finish();
        while ((slot = bm.find_ev_slot(EVENT, at)) < 0) pause_ms(1); // all event slots are in use
        if (bm.ev_update(EVENT, partition, number, slot)) return 1;
    }
    wait_until_all_are_back(bm, partition, BUFFERS);
    bm.unsubscribe(EVENT, CLI_T_WRITER);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const options given(argc, argv);
    const int parts = given.number("writers", 3);
    const int file = open(given.text("file", "").c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        std::perror("file_send");
        return 1;
    }
    const pid_t parent = getpid();
    for (int part = 0; part < parts; ++part) {
        const pid_t child = fork();
        if (child == 0) {
            prctl(PR_SET_PDEATHSIG, SIGTERM); // without the others it would wait for ever
            if (getppid() != parent) return 1;
            return run_in_order(argc, argv, [&](const options&) { return send_part(given, file, part, parts); });
        }
        if (child < 0) return 1;
    }
    for (int status = 0; wait(&status) > 0;) {
        if (status == 0) continue;
        std::fprintf(stderr, "file_send: a writer failed\n");
        return 1;
    }
    return 0;
}
