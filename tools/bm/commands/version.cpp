// bm version: of the command, of the layout that it reads, of the documents that it prints.
#include <fmt/format.h>

#include "C_shm_int.h"
#include "cli/output.h"
#include "commands/commands.h"

namespace bm {
namespace {

exit_status version(const common_options& common)
{
    if (common.json) {
        json all = document("version");
        all["bm"] = BM_VERSION;
        all["layout"] = SHM_LAYOUT_VERSION;
        print_document(all);
    } else {
        print(fmt::format("bm {}\npartition layout {}\nJSON schema {}\n", BM_VERSION, SHM_LAYOUT_VERSION,
                          SCHEMA_VERSION));
    }
    return exit_status::fine;
}

} // namespace

void add_version(command_line& line) { line.add("version", "versions of command, layout and schema", version); }

} // namespace bm
