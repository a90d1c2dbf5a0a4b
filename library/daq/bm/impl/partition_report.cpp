#include "partition_report.h"

#include <cstring>
#include <iomanip>
#include <ostream>

#include "decimal_stream.h"

namespace zrk4::impl {
namespace {

void dump_control(std::ostream& os, const C_shm_global& g)
{
    os << "\n            Event Manager Partition - " << std::string(g.name, strnlen(g.name, SHM_NAME_SIZE)) << "\n\n"
       << "Global Control Data\n-------------------\n"
       << "  version:           " << g.version / 100 << "." << std::setfill('0') << std::setw(2) << g.version % 100
       << std::setfill(' ') << "\n"
       << "  status:            " << mode_words(g.status) << "\n"
       << "  global use count:  " << +g.gbl_count << "\n"
       << "  global sem id:     " << +g.gbl_semid << "\n"
       << "  # buffers:         " << +g.nbuf << "\n"
       << "  buffer length:     " << +g.lbuf << "\n"
       << "  first full buffer: " << +g.full.head << "\n"
       << "  last full buffer:  " << +g.full.tail << "\n"
       << "  first free buffer: " << +g.free.head << "\n";
}

void dump_buffer(std::ostream& os, int i, const C_shm_buf& buf)
{
    os << std::setw(3) << i << std::hex << std::setw(5) << +buf.status << std::dec << std::setw(5) << +buf.use_count
       << std::setw(9) << +buf.ldata << std::setw(5) << +buf.link << std::setw(9) << +buf.trig << std::setw(8)
       << +buf.evt_count << "\n";
}

} // namespace

std::string mode_words(int32_t status)
{
    std::string words;
    if ((status & SHM_RELEASE) != 0) words += "release,";
    if ((status & SHM_SCAVAGE) != 0) words += "scavage,";
    if ((status & SHM_SYNCH) != 0) words += "synch,";
    if ((status & SHM_EXPOSE) != 0) words += "expose,";
    if (words.empty()) return "-";
    words.pop_back();
    return words;
}

void dump_partition(std::ostream& os, const C_shm_global& control)
{
    const decimal_stream format(os);
    const auto* bufs = reinterpret_cast<const C_shm_buf*>(&control + 1);
    dump_control(os, control);
    os << "\nBuffer Status\n-------------\n id status use   ldata   link  t-mask   count\n";
    for (int i = 0; i < control.nbuf; ++i) dump_buffer(os, i, bufs[i]);
}

} // namespace zrk4::impl
