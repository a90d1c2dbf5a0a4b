/// @file
/// What every process that writes has: a buffer manager, and the one partition that it takes its buffers from.
#ifndef ZRK4_DEMO_OUTLET_H
#define ZRK4_DEMO_OUTLET_H

#include <list>
#include <string>
#include <vector>

#include "roles.h"

namespace demo {

class outlet {
  public:
    /// @param counts  what is noted here for the summary
    outlet(const run_context& run, writer_record& counts, line_end& line) : run_(run), counts_(counts), line_(line) {}

    /// Joins the run. @throws std::runtime_error
    void join(const char* partition, int buffer_bytes);
    void subscribe(ZRK4_EVTYPE type, std::list<std::string> blocks);
    /// Gives up all subscriptions.
    void leave();

    /// Waits for a buffer. @return null when told to leave, or left alone.
    char* take_buffer(int& number);
    /// @return whether the block in the buffer is now in its event.
    bool enter(ZRK4_EVTYPE type, int number);

  private:
    const run_context& run_;
    writer_record& counts_;
    line_end& line_;
    BM bm_;
    int partition_ = -1;
    int buffer_bytes_ = 0;
    std::vector<ZRK4_EVTYPE> types_;
};

/// The life of a process that writes, between the conductor's words. @return exit status
template <class Writer> int write_when_told(Writer& writer, line_end& line)
{
    writer.join();
    line.say(line_end::READY);
    if (line.hear() != line_end::GO) return 0;
    if (!writer.write_all()) return 2;
    line.say(line_end::FINISHED);
    line.hear(); // the client slots must stay until the last event is over
    writer.leave();
    return 0;
}

} // namespace demo

#endif
