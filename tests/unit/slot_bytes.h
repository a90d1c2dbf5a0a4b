/// @file
/// Slots, control entries and server blocks by their offsets: what another program finds and leaves there.
#ifndef ZRK4_TEST_SLOT_BYTES_H
#define ZRK4_TEST_SLOT_BYTES_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "event.h"

inline bool operator==(const time_stamp& a, const time_stamp& b)
{
    return a.timeup == b.timeup && a.timelow == b.timelow;
}
inline std::ostream& operator<<(std::ostream& os, const time_stamp& t) { return os << +t.timeup << ":" << +t.timelow; }

namespace zrk4::test {

/// Generation of the event records, or of a block.
enum class generation { of_2010, of_2024 };
inline void PrintTo(generation g, std::ostream* os) { *os << (g == generation::of_2010 ? "2010" : "2024"); }

template <class T> T load(const char* at)
{
    T value;
    std::memcpy(&value, at, sizeof value);
    return value;
}
template <class T> void store(char* at, T value) { std::memcpy(at, &value, sizeof value); }

/// Offsets in an event slot's head and in a control entry. Numbers, not offsetof: the layout is the format.
struct slot_layout {
    int head, id_bytes;
    int time, eventid, evtype, tmask, status, start, lupdate, pid, evsize, nsblocks, sbfilled, nclients;
    int stride, entry_status, entry_key, entry_id, entry_type;
};
inline constexpr slot_layout LAYOUT_2010{60, 4, 0, 8, 12, 16, 20, 24, 32, 40, 44, 48, 52, 56, 20, 0, 4, 12, 16};
inline constexpr slot_layout LAYOUT_2024{80, 8, 8, 16, 24, 28, 32, 36, 44, 52, 56, 64, 68, 72, 24, 8, 0, 16, 12};

inline const slot_layout& layout_of(generation g) { return g == generation::of_2010 ? LAYOUT_2010 : LAYOUT_2024; }

/// Name, segment id, buffer number.
using seen_entry = std::tuple<std::string, int, int>;
/// Client slot number, status.
using seen_client = std::pair<int, int>;

/// An event slot of `length` bytes at `at`.
class slot_bytes {
  public:
    slot_bytes(char* at, int length, generation g) : at_(at), length_(length), lay_(layout_of(g)) {}

    int word(int slot_layout::*field) const { return load<int32_t>(at_ + lay_.*field); }
    void put(int slot_layout::*field, int value) { store<int32_t>(at_ + lay_.*field, value); }
    time_stamp time(int slot_layout::*field) const { return load<time_stamp>(at_ + lay_.*field); }
    void put_time(int slot_layout::*field, time_stamp t) { store(at_ + lay_.*field, t); }
    /// The two fields whose width differs: the event's id and its size.
    int64_t wide_word(int slot_layout::*field) const
    {
        return lay_.id_bytes == 4 ? load<int32_t>(at_ + lay_.*field) : load<int64_t>(at_ + lay_.*field);
    }
    void put_wide(int slot_layout::*field, int64_t value)
    {
        if (lay_.id_bytes == 4) return put(field, static_cast<int32_t>(value));
        store(at_ + lay_.*field, value);
    }
    uint64_t first_word() const { return load<uint64_t>(at_); }
    void put_first_word(uint64_t value) { store(at_, value); }

    int64_t eventid() const { return wide_word(&slot_layout::eventid); }
    int64_t evsize() const { return wide_word(&slot_layout::evsize); }
    int nsblocks() const { return word(&slot_layout::nsblocks); }
    int sbfilled() const { return word(&slot_layout::sbfilled); }
    int nclients() const { return word(&slot_layout::nclients); }

    std::vector<seen_client> clients() const
    {
        std::vector<seen_client> all;
        all.reserve(static_cast<size_t>(std::max(0, nclients())));
        for (int i = 0; i < nclients(); ++i)
            all.emplace_back(load<int32_t>(client_at(i)), load<int32_t>(client_at(i) + 4));
        return all;
    }
    int client_status(int i) const { return load<int32_t>(client_at(i) + 4); }
    void put_client_status(int i, int status) { store<int32_t>(client_at(i) + 4, status); }
    /// Client blocks first: the entries begin behind the last one.
    void add_client(int snum, int status)
    {
        const int i = nclients();
        put(&slot_layout::nclients, i + 1);
        store<int32_t>(client_at(i), snum);
        store<int32_t>(client_at(i) + 4, status);
    }

    std::vector<seen_entry> entries() const
    {
        std::vector<seen_entry> all;
        for (int i = 0; i < sbfilled(); ++i) {
            const char* e = entry_at(i);
            all.emplace_back(std::string(e, strnlen(e, 256)), load<int32_t>(e + 256), load<int32_t>(e + 260));
        }
        return all;
    }
    void add_entry(const std::string& name, int shmid, int bnum)
    {
        char* e = entry_at(sbfilled());
        std::memset(e, 0, 256);
        std::memcpy(e, name.data(), name.size() < 256 ? name.size() : 256);
        store<int32_t>(e + 256, shmid);
        store<int32_t>(e + 260, bnum);
        put(&slot_layout::sbfilled, sbfilled() + 1);
    }
    char* entry_at(int i) const { return at_ + lay_.head + ptrdiff_t{8} * nclients() + ptrdiff_t{264} * i; }

    /// Bytes that head, client blocks and entries take.
    int used() const { return lay_.head + 8 * nclients() + 264 * sbfilled(); }
    /// Offset of the first byte at or behind `from` that is not 0; the slot's length when there is none.
    int first_dirty(int from) const
    {
        while (from < length_ && at_[from] == 0) ++from;
        return from;
    }
    void fill(char with) { std::memset(at_, with, static_cast<size_t>(length_)); }
    char& byte(int offset) { return at_[offset]; }
    char* address() const { return at_; }
    int length() const { return length_; }

  private:
    char* client_at(int i) const { return at_ + lay_.head + ptrdiff_t{8} * i; }

    char* at_;
    int length_;
    const slot_layout& lay_;
};

/// Entry of event slot `n` in the control table at `table`.
class control_bytes {
  public:
    control_bytes(char* table, int n, generation g) : lay_(layout_of(g)), at_(table + ptrdiff_t{lay_.stride} * (n - 1))
    {
    }
    int status() const { return load<int32_t>(at_ + lay_.entry_status); }
    int evtype() const { return load<int32_t>(at_ + lay_.entry_type); }
    time_stamp key() const { return load<time_stamp>(at_ + lay_.entry_key); }
    int64_t eventid() const
    {
        return lay_.id_bytes == 4 ? load<int32_t>(at_ + lay_.entry_id) : load<int64_t>(at_ + lay_.entry_id);
    }
    void put(int status, int evtype, time_stamp key, int64_t id)
    {
        put_status(status);
        store<int32_t>(at_ + lay_.entry_type, evtype);
        store(at_ + lay_.entry_key, key);
        if (lay_.id_bytes == 4) {
            store<int32_t>(at_ + lay_.entry_id, static_cast<int32_t>(id));
        } else {
            store<int64_t>(at_ + lay_.entry_id, id);
        }
    }
    void put_status(int status) { store<int32_t>(at_ + lay_.entry_status, status); }

  private:
    const slot_layout& lay_;
    char* at_;
};

/// What stands in a server block's head.
struct block_spec {
    std::string server = "A";
    time_stamp time{1000, 500};
    int64_t mpulse = 7;
    int64_t ltotal = 400;
    int tmask = 1;
    int status = 0;
    int nchan = 0;
};

/// The head of a block of either generation; what the form has no width for is cut.
inline std::string head_bytes(const block_spec& b, generation g)
{
    std::string bytes(g == generation::of_2010 ? 284 : 304, '\0');
    char* at = bytes.data();
    const auto name_at = [&](size_t offset) { std::memcpy(at + offset, b.server.data(), b.server.size()); };
    if (g == generation::of_2010) {
        store(at, b.time);
        store<int32_t>(at + 8, static_cast<int32_t>(b.ltotal));
        store<int32_t>(at + 12, static_cast<int32_t>(b.mpulse));
        name_at(16);
    } else {
        store<uint64_t>(at, 0xFBABBAFFFBABBAFF);
        store(at + 8, b.ltotal);
        store(at + 16, b.mpulse);
        store(at + 24, b.time);
        name_at(32);
    }
    char* rest = at + (g == generation::of_2010 ? 272 : 288);
    store<int32_t>(rest, b.tmask);
    store<int32_t>(rest + 4, b.status);
    store<int32_t>(rest + 8, b.nchan);
    return bytes;
}

} // namespace zrk4::test

#endif
