/// @file
/// What `bm top` shows, apart from the terminal: rows of a view, sorted and filtered.
#ifndef ZRK4_TOOL_TOP_VIEW_H
#define ZRK4_TOOL_TOP_VIEW_H

#include <string>
#include <vector>

#include "cli/output.h"
#include "cli/screen.h"
#include "model/sampler.h"

namespace bm {

class top_view {
  public:
    enum what { clients, events, partitions, views };

    what shown = clients;
    size_t sorted_by = 0; ///< column
    bool descending = false;
    bool frozen = false;
    bool asking = false; ///< the filter is being typed
    std::string filter;  ///< only rows with this text in them

    /// A key. @return false when it asks for the end.
    bool take(int key);
    /// The whole screen, `rows` lines at most.
    std::vector<screen_line> lines(const moment& seen, int rows) const;

  private:
    void type(int key);
};

} // namespace bm

#endif
