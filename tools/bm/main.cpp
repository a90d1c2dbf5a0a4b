// bm: what an operator asks of the exchange on this host.
#include <malloc.h>

#include "commands/commands.h"

int main(int argc, char** argv)
{
    // A look at thousands of slots takes memory in small pieces: the kernel is asked for it, and given it back, in large
    // ones.
    mallopt(M_TOP_PAD, 32 << 20);
    bm::command_line line;
    for (const auto add :
         {bm::add_ls, bm::add_show, bm::add_clients, bm::add_events, bm::add_why, bm::add_stat, bm::add_top,
          bm::add_size, bm::add_master, bm::add_check, bm::add_repair, bm::add_rm, bm::add_version, bm::add_completion,
          bm::add_demo, bm::add_doctor, bm::add_read, bm::add_watch, bm::add_write})
        add(line);
    return static_cast<int>(line.run(argc, argv));
}
