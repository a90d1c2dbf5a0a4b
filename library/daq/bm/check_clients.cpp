// The client slots: their owners, and the counters of the control record.
#include <unistd.h>

#include "check_run.h"
#include "client_slot.h"
#include "process_life.h"
#include "queue_look.h"
#include "zero_fill.h"

namespace zrk4::impl {
namespace {

/// A client slot that is handed out.
struct held_client {
    int slot;
    pid_t owner; ///< who took the buffer
    zrk4_client_slot_head head;

    bool subscribed() const { return head.cltype == CLI_T_READER || head.cltype == CLI_T_WRITER; }
    bool operator==(const held_client& other) const
    {
        return slot == other.slot && owner == other.owner && head.pid == other.head.pid &&
               same_time(head.atime, other.head.atime) && head.cltype == other.head.cltype &&
               head.evtype == other.head.evtype;
    }
};

held_client client_at(const raw_partition& part, int n) { return {n, part.owner(n), client_slot(part, n).head_now()}; }

zrk4_client_ctrl_block& counters_of(const raw_partition& part)
{
    return *reinterpret_cast<zrk4_client_ctrl_block*>(part.buffer_addr(0));
}

/// All client slots as they stand at one moment, under lock 0.
class client_look {
  public:
    explicit client_look(const raw_partition& part) : part_(part)
    {
        for (int n = 1; n < part.getBufferCount(); ++n) expected_ += part.handed_out(n) ? 1 : 0;
    }

    /// REQUIRES: lock 0. Heads first and locks last: whoever subscribes meanwhile holds his slot's lock until he is
    /// counted, and waits for lock 0 with it.
    void take()
    {
        held.clear();
        held.reserve(expected_ + SPARE);
        for (int n = 1; n < part_.getBufferCount(); ++n) {
            if (part_.handed_out(n) && client_slot(part_, n)) held.push_back(client_at(part_, n));
        }
        counters = read_unlocked(&counters_of(part_));
        part_.read_semaphores(locks_);
    }

    /// Whether a slot is being filled: nobody can say yet whether it is counted.
    bool in_transit() const
    {
        for (const held_client& c : held) {
            const auto lock = static_cast<size_t>(lock_of_slot(c.slot));
            if (lock < locks_.size() && locks_[lock] == 0) return true;
        }
        return false;
    }

    zrk4_client_ctrl_block recounted() const
    {
        zrk4_client_ctrl_block sum{};
        sum.status = counters.status;
        for (const held_client& c : held) {
            if (!c.subscribed()) continue;
            const bool reads = c.head.cltype == CLI_T_READER;
            const auto type = static_cast<uint32_t>(c.head.evtype);
            sum.clitotal += 1;
            (reads ? sum.clireader : sum.cliwriter) += 1;
            if (type < ZRK4_EV_EVMAX) (reads ? sum.evtyper : sum.evtypew)[type] += 1;
        }
        return sum;
    }

    std::vector<held_client> held;
    zrk4_client_ctrl_block counters{};

  private:
    static constexpr size_t SPARE = 64;

    const raw_partition& part_;
    std::vector<unsigned short> locks_;
    size_t expected_ = 0;
};

std::vector<std::string> differences(const zrk4_client_ctrl_block& stored, const zrk4_client_ctrl_block& counted)
{
    std::vector<std::string> all;
    const auto compare = [&](const std::string& what, int is, int should) {
        if (is != should) all.push_back(worded("%s are counted as %d, there are %d", what.c_str(), is, should));
    };
    compare("clients", stored.clitotal, counted.clitotal);
    compare("readers", stored.clireader, counted.clireader);
    compare("writers", stored.cliwriter, counted.cliwriter);
    for (int type = 0; type < ZRK4_EV_EVMAX; ++type) {
        compare(worded("readers of type %d", type), stored.evtyper[type], counted.evtyper[type]);
        compare(worded("writers of type %d", type), stored.evtypew[type], counted.evtypew[type]);
    }
    return all;
}

/// Looks until nobody is in the middle of subscribing, and calls `use` under lock 0. @return whether it came to that.
template <class Use> bool with_settled_clients(check_run& run, client_look& look, Use use)
{
    constexpr int TRIES = 50;
    for (int tries = 0; tries < TRIES; ++tries) {
        {
            const raw_lock control(*run.clients, lock_of_slot(0), run.request.patience);
            if (!control) {
                run.busy(*run.clients, lock_of_slot(0));
                return false;
            }
            look.take();
            if (!look.in_transit()) {
                use();
                return true;
            }
        }
        usleep(200);
    }
    return false;
}

void check_counters(check_run& run, client_look& look)
{
    if (!with_settled_clients(run, look, [] {})) return;
    std::vector<std::string> wrong = differences(look.counters, look.recounted());
    if (wrong.empty()) return;
    bool mended = false;
    if (run.request.repair) {
        with_settled_clients(run, look, [&] {
            counters_of(*run.clients) = look.recounted();
            mended = true;
        });
        wrong = differences(look.counters, look.recounted());
    }
    for (std::string& text : wrong) run.found(7, run.clients->name(), -1, 0, std::move(text), mended);
}

/// Who has died, among the owners of client slots.
class client_owners {
  public:
    explicit client_owners(const raw_partition& part) : users_(part.shmid()) {}

    // A forked child may own what its parent's name stands on: both must be gone. A slot without a whole head is its
    // taker's.
    bool gone(const held_client& c)
    {
        if (users_.can_hold(c.owner) && (c.owner != c.head.pid || !c.subscribed())) return false;
        if (!c.subscribed()) return true;
        return !users_.can_hold(c.head.pid) || began_after(c.head.pid, c.head.atime);
    }

  private:
    segment_users users_;
};

void uncount(const raw_partition& part, const held_client& c)
{
    if (!c.subscribed()) return;
    zrk4_client_ctrl_block& counts = counters_of(part);
    const bool reads = c.head.cltype == CLI_T_READER;
    const auto type = static_cast<uint32_t>(c.head.evtype);
    counts.clitotal -= 1;
    (reads ? counts.clireader : counts.cliwriter) -= 1;
    if (type < ZRK4_EV_EVMAX) (reads ? counts.evtyper : counts.evtypew)[type] -= 1;
}

// Asked again with the locks in hand: until then its owner may have left, as anybody does.
second_look look_again(const check_run& run, const held_client& c)
{
    const raw_partition& part = *run.clients;
    const raw_lock control(part, lock_of_slot(0), run.request.patience);
    const raw_lock own(part, lock_of_slot(c.slot), raw_lock::patience(0));
    if (!control || !own || !part.handed_out(c.slot) || !(client_at(part, c.slot) == c)) return second_look::moved;
    if (!client_owners(part).gone(c)) return second_look::moved;
    if (!run.request.repair) return second_look::stands;
    uncount(part, c);
    zero_fill(part.buffer_addr(c.slot), static_cast<size_t>(part.getBufferLength()));
    const bool back = give_back(part, c.slot, run.request.patience, [] { return true; });
    return back ? second_look::mended : second_look::stands;
}

void check_owners(check_run& run, const std::vector<held_client>& held)
{
    client_owners owners(*run.clients);
    for (const held_client& c : held) {
        // A slot that serves as a data buffer, by mistake of its writer, is not a client's.
        if (!run.listing_trusted || run.listing.lists(run.clients->shmid(), c.slot) || !owners.gone(c)) continue;
        const pid_t pid = c.subscribed() ? c.head.pid : c.owner;
        const char* text = c.subscribed() ? "client slot %d belongs to process %d, which is gone"
                                          : "client slot %d was taken by process %d, which is gone";
        run.confirmed(look_again(run, c), 4, run.clients->name(), c.slot, pid, worded(text, c.slot, pid));
    }
}

} // namespace

void check_clients(check_run& run)
{
    client_look look(*run.clients);
    check_counters(run, look);
    check_owners(run, look.held);
}

} // namespace zrk4::impl
