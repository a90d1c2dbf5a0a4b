#include "host/partition.h"

#include <cerrno>
#include <cstring>

#include <fmt/format.h>
#include <unistd.h>

#include "geometry.h"
#include "queue_look.h"
#include "raw_partition.h"

namespace bm {

namespace {

constexpr int LOOKS = 5;
/// No host needs more; a header that says so would have us copy a gigabyte of what may be anything.
constexpr int64_t MOST_BUFFERS = int64_t{1} << 20;

} // namespace

/// Copies control block and descriptors until a copy contradicts itself nowhere.
class partition_look {
  public:
    partition_look(partition& into, const read_only_segment& mapped) : into_(into), mapped_(mapped) {}

    void take()
    {
        C_shm_global control{};
        if (!mapped_.copy(0, control))
            return say(partition_state::unnamed, "its segment is shorter than a control block");
        judge(control);
        if (into_.state != partition_state::sound) return;
        into_.buffers_ = control.nbuf;
        into_.length_ = control.lbuf;
        into_.table_.resize(table_bytes());
        for (int look = 0; look < LOOKS && !copy_once(); ++look) {}
        // Its modes or its users may have changed meanwhile; another partition it cannot have become.
        into_.semaphores = zrk4::impl::members_of(control.gbl_semid);
    }

  private:
    void say(partition_state state, std::string why)
    {
        into_.state = state;
        into_.why = std::move(why);
    }

    void judge(const C_shm_global& seen)
    {
        into_.name.assign(seen.name, strnlen(seen.name, SHM_NAME_SIZE));
        const int nbuf = seen.nbuf;
        const int lbuf = seen.lbuf;
        if (into_.name.empty())
            return say(partition_state::unnamed, "it has no name: half made, half removed or not ours");
        if (seen.version != SHM_LAYOUT_VERSION) {
            return say(partition_state::other_version,
                       fmt::format("layout version {}, this command reads {}", +seen.version, SHM_LAYOUT_VERSION));
        }
        if (!zrk4::impl::offsets_fit(nbuf, lbuf) || zrk4::impl::segment_size(nbuf, lbuf) > mapped_.bytes()) {
            return say(partition_state::damaged,
                       fmt::format("{} buffers of {} bytes do not fit into its {} bytes", nbuf, lbuf, mapped_.bytes()));
        }
        if (nbuf > MOST_BUFFERS) {
            return say(partition_state::damaged, fmt::format("{} buffers, more than {}", nbuf, MOST_BUFFERS));
        }
        say(partition_state::sound, "");
    }

    size_t table_bytes() const
    {
        return sizeof(C_shm_global) + sizeof(C_shm_buf) * static_cast<size_t>(into_.buffers_);
    }

    // What looks broken may be movement: the queues change under a gate that is not taken here.
    bool copy_once()
    {
        mapped_.copy(0, into_.table_.data(), into_.table_.size());
        C_shm_global after{};
        mapped_.copy(0, after);
        const zrk4::impl::queue_look queues(*reinterpret_cast<C_shm_global*>(into_.table_.data()), into_.buffers_);
        into_.full = into_.out_ = 0;
        for (int i = 0; i < into_.buffers_; ++i) {
            if (!into_.descriptor(i).queued()) ++into_.out_;
        }
        into_.full = queues.full_length();
        into_.flaws.clear();
        for (const auto& flaw : queues.flaws()) into_.flaws.push_back(flaw.text);
        const bool same = std::memcmp(&after, into_.table_.data(), sizeof after) == 0;
        into_.torn = !same && !into_.flaws.empty();
        return into_.flaws.empty();
    }

    partition& into_;
    const read_only_segment& mapped_;
};

C_shm_global partition::control() const
{
    C_shm_global copy{};
    if (!table_.empty()) std::memcpy(&copy, table_.data(), sizeof copy);
    return copy;
}

C_shm_buf partition::descriptor(int i) const
{
    C_shm_buf copy{};
    if (i < 0 || i >= buffers_) return copy;
    std::memcpy(&copy, table_.data() + sizeof(C_shm_global) + sizeof copy * static_cast<size_t>(i), sizeof copy);
    return copy;
}

std::optional<uint64_t> partition::offset(int i) const
{
    if (i < 0 || i >= buffers_) return {};
    const int64_t begin = descriptor(i).boff;
    if (begin < static_cast<int64_t>(table_.size())) return {};
    if (static_cast<uint64_t>(begin) + static_cast<uint64_t>(length_) > where.bytes) return {};
    return static_cast<uint64_t>(begin);
}

partition look_at(const segment& where) { return look_at(where, read_only_segment(where.id)); }

partition look_at(const segment& where, const read_only_segment& mapped)
{
    partition seen;
    seen.where = where;
    if (mapped) {
        seen.where.bytes = mapped.bytes();
        partition_look(seen, mapped).take();
    } else if (mapped.error() == EACCES || mapped.error() == EPERM) {
        seen.state = partition_state::unreadable;
        seen.why =
            fmt::format("user {} may not read it: of user {}, mode {:03o}", geteuid(), where.uid, where.mode & 0777U);
    } else {
        seen.state = partition_state::gone;
        seen.why = std::string("removed meanwhile: ") + std::strerror(mapped.error());
    }
    return seen;
}

std::vector<partition> partitions_of_host()
{
    std::vector<partition> all;
    for (const segment& each : segments_of_partitions()) all.push_back(look_at(each));
    return all;
}

const char* word_of(partition_state state)
{
    switch (state) {
    case partition_state::sound:
        return "sound";
    case partition_state::other_version:
        return "other version";
    case partition_state::unnamed:
        return "no partition";
    case partition_state::damaged:
        return "damaged";
    case partition_state::unreadable:
        return "not readable";
    default:
        return "gone";
    }
}

} // namespace bm
