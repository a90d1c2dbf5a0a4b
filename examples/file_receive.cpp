// Writes a file that file_send streams: each piece goes from its buffer, where it lies, to its place in the file.
//   file_receive --file PATH [--records 2010|2024]
#include <atomic>
#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

#include "common.h"

namespace {

constexpr ZRK4_EVTYPE EVENT = ZRK4_EV_IMAGE;
constexpr int PATIENCE = 1000; // ms for the last event when its writers are gone

struct piece_head {
    int64_t offset, file_size;
};

class receiver : public BM {
  public:
    receiver(int file, const options& given) : file_(file) { configure(*this, given); }
    ~receiver() override { all_clean_up(); } // ends the reader thread before what it uses

    /// Runs in the reader thread. Events may come out of order; every piece knows its place.
    void event_handler(void* head, zrk4_client_sblock_data* first) override
    {
        for (int i = 0; i < blocks_in(get_evid_64bit_mode(), head); ++i) {
            if (!write_piece(zrk4::sb_of(*this, first[i]))) state_ = FAILED;
        }
        if (state_ == RUNNING && left_ == 0) state_ = COMPLETE;
    }
    /// @return whether the file is whole. It is not when the writers have left with pieces missing: what a killed one had
    /// in hand never comes, and from a reader that stands still for seconds the master's monitor takes the events away.
    bool wait_until_complete()
    {
        bool begun = false;
        for (int alone = 0, writers = 0; state_ == RUNNING && alone < PATIENCE; pause_ms(1)) {
            cl_subscribed(&writers, nullptr);
            begun = begun || writers > 0;
            alone = begun && writers == 0 ? alone + 1 : 0;
        }
        return state_ == COMPLETE;
    }

  private:
    enum state { RUNNING, COMPLETE, FAILED };

    bool write_piece(const zrk4::sb_view& block)
    {
        const zrk4::sb_sub sub = block.begin() == block.end() ? zrk4::sb_sub() : *block.begin();
        if (sub.count<piece_head>() == 0) return false;
        auto piece = sub.value<piece_head>(0);
        const char* data = sub.data() + sizeof piece;
        auto bytes = static_cast<int64_t>(sub.bytes() - sizeof piece);
        left_ = (left_ < 0 ? piece.file_size : left_) - bytes;
        for (ssize_t n = 0; bytes > 0; bytes -= n, data += n, piece.offset += n) {
            n = pwrite(file_, data, static_cast<size_t>(bytes), piece.offset);
            if (n <= 0) return false;
        }
        return true;
    }

    const int file_;
    int64_t left_ = -1; ///< bytes still to come; -1: not known yet
    std::atomic<state> state_{RUNNING};
};

int receive(const options& given)
{
    const int file = open(given.text("file", "").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (file < 0) {
        std::perror("file_receive");
        return 1;
    }
    receiver bm(file, given);
    if (bm.init()) return 1; // true means failure: is there a master?
    zrk4_client parameters{};
    if (bm.subscribe(EVENT, CLI_T_READER, &parameters, nullptr) < 1) return 1;
    say_ready();

    if (!bm.wait_until_complete()) {
        std::fprintf(stderr, "file_receive: pieces of the file are missing\n");
        return 1;
    }
    // Not before the writers: they leave when the last event is over here, too.
    for (int writers = 1; writers > 0; pause_ms(1)) bm.cl_subscribed(&writers, nullptr);
    bm.unsubscribe(EVENT, CLI_T_READER);
    return close(file);
}

} // namespace

int main(int argc, char** argv) { return run_in_order(argc, argv, receive); }
