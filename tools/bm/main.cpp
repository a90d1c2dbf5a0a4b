// bm: what an operator asks of the exchange on this host.
#include "commands/commands.h"

int main(int argc, char** argv)
{
    bm::command_line line;
    for (const auto add :
         {bm::add_ls, bm::add_show, bm::add_clients, bm::add_events, bm::add_why, bm::add_stat, bm::add_top,
          bm::add_size, bm::add_master, bm::add_check, bm::add_repair, bm::add_rm, bm::add_version, bm::add_completion,
          bm::add_demo, bm::add_doctor, bm::add_read, bm::add_watch, bm::add_write})
        add(line);
    return static_cast<int>(line.run(argc, argv));
}
