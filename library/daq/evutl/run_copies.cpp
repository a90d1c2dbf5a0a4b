// Brings a copy of a run-control block up to date.
#include <algorithm>
#include <new>
#include <string_view>
#include <vector>

#include "evutl.h"
#include "run_records.h"

namespace {

using namespace zrk4::evutl;

int32_t key_of(const zrk4_env_data_block_2010& r) { return r.env_ch_idx; }
std::string_view key_of(const zrk4_upd_data_block_2010& r) { return {r.upd_prop, strnlen(r.upd_prop, 256)}; }

/// The records of a copy in the order of their keys: a block may hold thousands, in an order of its own.
template <class Record> class sorted_records {
  public:
    using key = decltype(key_of(Record{}));

    explicit sorted_records(std::span<Record> records)
    {
        places_.reserve(records.size());
        for (Record& r : records) places_.push_back({key_of(r), &r});
        if (!std::is_sorted(places_.begin(), places_.end(), before)) {
            std::sort(places_.begin(), places_.end(), before);
        }
    }
    /// The record that look-ups find: the first one with this key. Records mostly arrive in the order of those held: the
    /// one behind the last that was found is tried before a search.
    Record* find(const key& wanted)
    {
        if (!is_first_with(wanted, next_)) {
            const place first{wanted, nullptr};
            const auto at = std::lower_bound(places_.begin(), places_.end(), first, before);
            if (at == places_.end() || at->name != wanted) return nullptr;
            next_ = static_cast<size_t>(at - places_.begin());
        }
        return places_[next_++].record;
    }

  private:
    struct place {
        key name;
        Record* record;
    };
    static bool before(const place& a, const place& b)
    {
        return a.name != b.name ? a.name < b.name : a.record < b.record;
    }
    bool is_first_with(const key& wanted, size_t i) const
    {
        return i < places_.size() && places_[i].name == wanted && (i == 0 || places_[i - 1].name != wanted);
    }

    std::vector<place> places_;
    size_t next_ = 0; // behind the one found last
};

template <class Record> bool copy_entries(char* copy, char* fresh)
{
    if (!has_records<Record>(copy) || !has_records<Record>(fresh)) return true;
    try {
        sorted_records<Record> held(records_of<Record>(copy));
        for (const Record& r : records_of<Record>(fresh)) {
            if (Record* old = held.find(key_of(r))) *old = r;
        }
        return false;
    } catch (const std::bad_alloc&) {
        return true;
    }
}

} // namespace

bool copy_env_entries_2010(char* copy, char* fresh) { return copy_entries<zrk4_env_data_block_2010>(copy, fresh); }
bool copy_upd_entries_2010(char* copy, char* fresh) { return copy_entries<zrk4_upd_data_block_2010>(copy, fresh); }
