/// @file
/// An event as a reader is given it, in words.
#ifndef ZRK4_TOOL_EVENT_TEXT_H
#define ZRK4_TOOL_EVENT_TEXT_H

#include <string>

#include "BM.h"
#include "cli/output.h"

namespace bm {

/// How the data of a channel are shown.
enum class values { f64, f32, i32, i16, hex };
values values_named(const std::string& name);

struct event_view {
    void* head;
    zrk4_client_sblock_data* entries;
    BM& manager;
    values shown;
    size_t most; ///< values of each channel
};

/// The event with its blocks and channels; nothing of it is kept. Only in the reader's callback.
json event_document(const event_view& event);
/// The same as lines.
std::string event_text(const json& event);

} // namespace bm

#endif
