#include "model/autopsy.h"

#include <algorithm>
#include <string_view>
#include <unordered_set>

#include <fmt/format.h>

#include "cli/output.h"
#include "host/clock.h"

namespace bm {
namespace {

std::string listed(const std::vector<std::string>& names)
{
    std::string all;
    for (const std::string& name : names) all += (all.empty() ? "" : ", ") + printable(name);
    return all;
}

const char* are(size_t count) { return count == 1 ? "is" : "are"; }

/// Collects the sentences about one event.
class writer_of_sentences {
  public:
    writer_of_sentences(const event& one, const exchange& seen, processes& known,
                        const std::optional<udp_sockets>& sockets)
        : one_(one),
          seen_(seen),
          known_(known),
          sockets_(sockets),
          debts_(debts_of(one, seen.clients)),
          idle_(idle_seconds(one, seen.now)),
          maker_(seen.clients_part.descriptor(0).owner_pid)
    {
    }

    autopsy all()
    {
        result_.hangs = idle_ >= SUSPICIOUS_AFTER_S;
        say_event();
        const std::string flaw = flaw_of(one_);
        if (!flaw.empty()) {
            result_.outlook = fate::broken;
            result_.hangs = true;
            say(fmt::format("The slot contradicts itself: {}. bm check looks at it for as long as it takes to tell "
                            "damage from movement, bm repair mends it.",
                            flaw));
            return std::move(result_);
        }
        say_blocks();
        for (const zrk4_client_block& block : one_.clients) say_client(block);
        say_done();
        say_outlook();
        say_unseen();
        return std::move(result_);
    }

  private:
    void say(std::string sentence) { result_.sentences.push_back(std::move(sentence)); }
    std::string who(const client& c) { return known_.owner_of(c.pid, c.access).text(); }

    void say_event()
    {
        say(fmt::format("Slot {} holds {} event {}, id {}. {} took it {} ago; it last changed {} ago.", one_.slot,
                        type_text(one_.type), one_.key_text(), one_.id, known_.of(one_.pid).text(),
                        span_text(seconds_between(one_.start, seen_.now)), span_text(idle_)));
        if (one_.torn) say("It changed during every look: what follows is of different moments.");
    }

    void say_blocks()
    {
        std::vector<std::string> in, holes;
        for (const event_entry& entry : one_.entries) (entry.hole() ? holes : in).push_back(entry.name);
        say(fmt::format("{} of {} blocks {} in, {}{}", one_.filled_said, one_.expected,
                        are(static_cast<size_t>(one_.filled_said)),
                        size_text(static_cast<uint64_t>(std::max<int64_t>(one_.bytes, 0))),
                        in.empty() ? "." : fmt::format(": {}.", listed(in))));
        if (!holes.empty())
            say(fmt::format("Nobody will deliver {}: no writer had listed it when the event began, its process does "
                            "not take part, or its buffer was given back early. It counts as in.",
                            listed(holes)));
        for (const debt& each : debts_) say_debt(each);
        if (const int lost = unaccounted(one_, debts_); lost > 0)
            say(fmt::format("{} more {} expected of writers that have left their slots since: {} will not come.", lost,
                            lost == 1 ? "block was" : "blocks were", lost == 1 ? "it" : "they"));
    }

    void say_debt(const debt& each)
    {
        const process owner = known_.owner_of(each.writer->pid, each.writer->access);
        std::string prospect;
        switch (owner.state) {
        case life::alive:
            prospect = "It lives: what it waits for cannot be seen from here.";
            break;
        case life::stopped:
            prospect = fmt::format("It is stopped: nothing comes until kill -CONT {}.", owner.pid);
            break;
        case life::zombie:
            prospect = "It has ended and waits for its parent to notice: nothing will come, and the monitor takes it "
                       "for alive.";
            break;
        case life::other_user:
            prospect =
                fmt::format("It runs as another user ({}): the monitor takes it for dead.", user_text(owner.uid));
            break;
        default:
            prospect = "It is dead: nothing will come.";
        }
        say(fmt::format("Missing {} {}, owed by writer W{}, {}. {}", are(each.names.size()), listed(each.names),
                        each.writer->slot, owner.text(), prospect));
    }

    void say_client(const zrk4_client_block& block)
    {
        const int32_t status = static_cast<int32_t>(block.status);
        const client* c = seen_.clients.at(block.snum);
        if (status == CLI_S_DONE) return;
        const std::string label = client_label(block.snum, seen_.clients);
        if (c == nullptr) {
            say(fmt::format("Client slot {} was {}, and its client has left: nobody waits for it any more, but the "
                            "event ends only when somebody looks at it.",
                            block.snum, progress_word(status)));
        } else if (c->reads()) {
            say_reader(*c, status, label);
        } else if (status == CLI_S_WAIT || status == CLI_S_PROC) {
            if (owes(*c)) return; // said with what it owes
            say(fmt::format("Writer {}, {}, has delivered everything and is not marked done: it is about to, or died "
                            "before it.",
                            label, who(*c)));
        }
    }

    bool owes(const client& c) const
    {
        return std::any_of(debts_.begin(), debts_.end(), [&](const debt& each) { return each.writer->slot == c.slot; });
    }

    void say_reader(const client& c, int32_t status, const std::string& label)
    {
        const std::string name = fmt::format("Reader {}, {},", label, who(c));
        if (status == CLI_S_WAIT) return say(fmt::format("{} has not been told: {}", name, why_not_told(c)));
        if (status == CLI_S_NTF) return say(fmt::format("{} was told and has not begun. {}", name, socket_words(c)));
        if (status == CLI_S_PROC)
            return say(fmt::format("{} works on it, or died doing so; its slot last moved {} ago.", name,
                                   span_text(seconds_between(c.access, seen_.now))));
        say(fmt::format("{} is in state {}, which does not exist.", name, status));
    }

    std::string why_not_told(const client& c) const
    {
        if (c.names.empty()) {
            if (!debts_.empty()) return "it wants every block, and not all writers are done.";
            return "it wants every block; all are in, so the last writer is about to tell it, or died before it.";
        }
        std::unordered_set<std::string_view> in;
        for (const event_entry& entry : one_.entries) in.insert(entry.name);
        std::vector<std::string> lacking;
        for (const std::string& name : c.names) {
            if (!in.contains(name)) lacking.push_back(name);
        }
        if (lacking.empty())
            return "what it wants is in, so the writer that came last is about to tell it, or died before it.";
        return fmt::format("{} {} not in.", listed(lacking), are(lacking.size()));
    }

    std::string socket_words(const client& c) const
    {
        if (!sockets_) return "The kernel's table of sockets cannot be read.";
        const auto at = sockets_->find(c.port & 0xffff);
        if (at == sockets_->end())
            return fmt::format("Nobody listens on its port {} in this network namespace: the datagram is lost.",
                               c.port);
        if (at->second.drops > 0)
            return fmt::format("Its socket on port {} has lost {} datagrams, perhaps this one; {} wait there.", c.port,
                               at->second.drops, size_text(at->second.queued));
        return fmt::format("{} wait in its socket on port {}, none was lost there: it is busy with an earlier event, "
                           "or stuck.",
                           size_text(at->second.queued), c.port);
    }

    void say_done()
    {
        std::string done;
        size_t count = 0;
        for (const zrk4_client_block& block : one_.clients) {
            if (static_cast<int32_t>(block.status) != CLI_S_DONE) continue;
            ++count;
            done += (done.empty() ? "" : ", ") + client_label(block.snum, seen_.clients);
        }
        if (count > 0) say(fmt::format("Done {} {}.", are(count), done));
    }

    // As the monitor judges a client of an event that has become suspicious.
    bool keeps(const zrk4_client_block& block, bool& writer_only)
    {
        const client* c = seen_.clients.at(block.snum);
        if (c == nullptr || c->pid == maker_ || static_cast<int32_t>(block.status) != CLI_S_PROC) return false;
        const life state = known_.of(c->pid).state;
        if (state == life::dead || state == life::other_user) return false;
        if (!c->reads()) writer_only = true;
        return c->reads();
    }

    void say_outlook()
    {
        bool reader_keeps = false, writer_keeps = false;
        std::string keepers;
        for (const zrk4_client_block& block : one_.clients) {
            if (!keeps(block, writer_keeps)) continue;
            reader_keeps = true;
            keepers += (keepers.empty() ? "" : ", ") + client_label(block.snum, seen_.clients);
        }
        if (reader_keeps) {
            result_.outlook = fate::kept;
            return say(fmt::format("The monitor will not free it while {} {}: it asks again every 11 of its cycles "
                                   "(5.5 s at its default period).",
                                   keepers, keepers.find(',') == std::string::npos ? "lives" : "live"));
        }
        say_end(writer_keeps);
    }

    // Ten unchanged cycles behind the one that saw it first; a live writer at work makes it count once more.
    void say_end(bool writer_keeps)
    {
        const bool again = writer_keeps && one_.update != 0; // by the last block entered: without one it does not count
        const double due = again ? 2 * SUSPICIOUS_AFTER_S : SUSPICIOUS_AFTER_S;
        constexpr double MARGIN_S = 5.5;
        result_.in_s = std::max(0.0, due - idle_);
        const process maker = known_.of(maker_);
        if (idle_ > due + MARGIN_S) {
            result_.outlook = fate::overdue;
            say(fmt::format(
                "At its default period the monitor would have freed it {} ago. Either the master's period is "
                "longer, or no master is at work: {}",
                span_text(idle_ - due), maker_words(maker)));
            return;
        }
        const bool moving = one_.clients.empty() ||
                            std::all_of(one_.clients.begin(), one_.clients.end(),
                                        [](const auto& b) { return static_cast<int32_t>(b.status) == CLI_S_DONE; });
        result_.outlook = moving ? fate::moves : fate::freed;
        say(fmt::format(
            "{} the monitor frees it after 11 cycles without a change (5 to 5.5 s at its default period{}): in "
            "about {}; its buffers go back to their partitions. {}",
            moving ? "Everybody is done: it ends at once, or, if the last one died at that," : "If nothing changes,",
            again ? ", and once more for a live writer at work" : "", span_text(result_.in_s), maker_words(maker)));
    }

    static std::string maker_words(const process& maker)
    {
        if (maker.state == life::dead)
            return fmt::format(
                "The process that made the partitions, {}, is gone: unless another master has taken over, "
                "nobody frees anything. Start one (bm master), or bm repair.",
                maker.pid);
        return fmt::format("The partitions were made by {}, most likely the master.", maker.text());
    }

    void say_unseen()
    {
        say("Not to be seen from outside: whether the monitor runs and with what period, whether a datagram was lost "
            "on "
            "its way, and what a live process is doing.");
    }

    const event& one_;
    const exchange& seen_;
    processes& known_;
    const std::optional<udp_sockets>& sockets_;
    const std::vector<debt> debts_;
    const double idle_;
    const pid_t maker_;
    autopsy result_;
};

} // namespace

const char* word_of(fate f)
{
    switch (f) {
    case fate::moves:
        return "moves";
    case fate::freed:
        return "freed";
    case fate::kept:
        return "kept";
    case fate::overdue:
        return "overdue";
    default:
        return "broken";
    }
}

autopsy autopsy_of(const event& one, const exchange& seen, processes& known, const std::optional<udp_sockets>& sockets)
{
    return writer_of_sentences(one, seen, known, sockets).all();
}

} // namespace bm
