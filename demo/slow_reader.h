/// @file
/// What the first reader makes of the run control's events: every value that came, asked for by its name.
#ifndef ZRK4_DEMO_SLOW_READER_H
#define ZRK4_DEMO_SLOW_READER_H

#include <map>
#include <set>
#include <string>

#include "event_facts.h"
#include "live_table.h"
#include "record.h"

namespace demo {

/// Runs in the reader thread. The library keeps one set of local copies per process: there is one of these at most.
class slow_reader {
  public:
    /// @param table  shows what was read
    slow_reader(BM& bm, bool records_2024, run_control_record& mine, live_table& table);
    /// An event of the run control, and whether it was due.
    void event(void* head, zrk4_client_sblock_data* first, const event_facts& facts, bool was_due);

  private:
    /// An event as the library's functions ask for it.
    struct asked {
        void* head;
        zrk4_client_sblock_data* first;
    };
    bool copy(const asked& event);
    void take(const asked& event, const zrk4::sb_sub& records);
    void take_dictionary(const zrk4::sb_sub& records);
    void take_environment(const asked& event, const zrk4::sb_sub& records);
    void take_update(const asked& event, const zrk4::sb_sub& records);
    void take_mark(const char* copied, const zrk4::sb_sub& records);
    bool ask(const asked& event, const std::string& name, float sent, int32_t status);

    BM& bm_;
    const bool records_2024_;
    run_control_record& mine_;
    live_table& table_;
    std::map<int32_t, std::string> dictionary_;
    std::set<int32_t> read_; ///< indexes of those that were read by name
};

} // namespace demo

#endif
