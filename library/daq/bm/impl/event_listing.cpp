#include "event_listing.h"

#include <algorithm>
#include <tuple>

#include <unistd.h>

#include "names.h"

namespace zrk4::impl {
namespace {

// A 2024 head begins with its pattern, a 2010 head with a time. A head that was never finished is still zero.
template <class Form> bool of_these_records(const char* head)
{
    const auto first = read_unlocked(reinterpret_cast<const uint64_t*>(head));
    return Form::wide ? first == EV_SLOT_PATTERN_2024 || first == 0 : first != EV_SLOT_PATTERN_2024;
}

auto order_of(const listed_block& b) { return std::tuple(b.shmid, b.bnum, b.slot, b.index); }

} // namespace

/// Reads slots one after the other. Memory is set aside first: nothing is allocated while a lock is held, save for the
/// names of marks.
template <class Form> class event_listing::slot_reader {
  public:
    using slot_t = event_slot<Form>;

    slot_reader(event_listing& into, const raw_partition& events, raw_lock::patience patience)
        : into_(into), events_(events), patience_(patience), table_(events)
    {
        const auto room = static_cast<size_t>(events.getBufferLength());
        clients_.reserve(room / slot_t::CLIENT);
        blocks_.reserve(room / slot_t::ENTRY);
    }

    void read_all()
    {
        for (int n = 1; n <= table_.slots() && into_.reached_; ++n) read(n);
    }

  private:
    // A live holder gives the slot's lock back within microseconds; one that was stopped must not stop the check.
    void read(int n)
    {
        constexpr int TRIES = 100;
        clients_.clear();
        blocks_.clear();
        for (int tries = 0;; ++tries) {
            const event_locks locks(events_, n, patience_);
            if (!locks.control) {
                into_.reached_ = false;
                return;
            }
            if (!locks.own && tries < TRIES) {
                usleep(100);
                continue;
            }
            into_.whole_ = into_.whole_ && locks.own;
            copy(n);
            break;
        }
        keep();
    }

    void copy(int n)
    {
        const slot_t slot(events_, n);
        const typename Form::entry control = read_unlocked(&table_.of(n));
        const typename Form::head head = slot ? slot.head_now() : typename Form::head{};
        event_ = {n, events_.handed_out(n), control.status, head.evtype, slot_identity::of(head), {}};
        if (!slot) return;
        const bool used = event_.handed_out && control.status == EVT_C_USED;
        // Whatever its control entry says: read in the wrong form, that may be anything.
        if (event_.handed_out && !of_these_records<Form>(slot.address())) into_.right_records_ = false;
        for (int i = 0; i < slot.filled(); ++i) {
            const zrk4_client_sblock_data& entry = slot.entries()[i];
            const int shmid = word_unlocked(&entry.shmid);
            const int bnum = word_unlocked(&entry.bnum);
            if (shmid != 0 && bnum == -1) {
                into_.marks_.push_back(
                    {shmid, n, i, event_.identity, std::string(name_view(entry.name)), int64_t{head.eventid}});
            } else if (used && shmid != 0 && bnum >= 0) {
                blocks_.push_back({shmid, bnum, n, i});
            }
        }
        for (int i = 0; used && i < slot.nclients(); ++i) clients_.push_back(read_unlocked(&slot.clients()[i]));
    }

    void keep()
    {
        event_.clients = clients_;
        into_.events_.push_back(event_);
        into_.blocks_.insert(into_.blocks_.end(), blocks_.begin(), blocks_.end());
    }

    event_listing& into_;
    const raw_partition& events_;
    raw_lock::patience patience_;
    event_table<Form> table_;
    seen_event event_{};
    std::vector<zrk4_client_block> clients_;
    std::vector<listed_block> blocks_;
};

void event_listing::read(const raw_partition& events, bool records_2024, raw_lock::patience patience)
{
    *this = {};
    in_records(records_2024, [&](auto form) { slot_reader<decltype(form)>(*this, events, patience).read_all(); });
    std::sort(blocks_.begin(), blocks_.end(),
              [](const listed_block& a, const listed_block& b) { return order_of(a) < order_of(b); });
}

bool event_listing::lists(int shmid, int bnum) const
{
    const auto at = std::lower_bound(blocks_.begin(), blocks_.end(), std::tuple(shmid, bnum, 0, 0),
                                     [](const listed_block& b, const auto& wanted) { return order_of(b) < wanted; });
    return at != blocks_.end() && at->shmid == shmid && at->bnum == bnum;
}

} // namespace zrk4::impl
