/// @file
/// A host with its processes, and the events that go through it.
#ifndef ZRK4_SWEEP_STAGE_H
#define ZRK4_SWEEP_STAGE_H

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "cast.h"
#include "checker.h"
#include "inventory.h"

namespace sweep {

class stage {
  public:
    stage(const point& at, board& common);

    // ---- processes ------------------------------------------------------------------------------------------------
    member& start(const std::string& name);
    /// A master that is ready for init.
    member& start_master(bool shown = true);
    /// The same, attached, with the data partition. Where init fails, what is broken is repaired first, as an operator
    /// would do it.
    member& bring_up_master();
    /// Attached to everything, not subscribed.
    member& bring_up_client(const std::string& name);
    void subscribe_reader(member& m, int wanted);
    void subscribe_writer(member& m, int writer);
    /// A master, two writers, as many readers as the setting says.
    void bring_up_all();
    member& master() { return *master_; }
    member& reader(int wanted) { return *find(member::part::reader, wanted); }
    member& writer(int writer) { return *find(member::part::writer, writer); }

    // ---- events -----------------------------------------------------------------------------------------------------
    /// A number for an event that is under way when the kill falls: it may be lost.
    int new_open_event();
    /// One block of it, by the living writer `writer`, if there is one.
    void send_from(int writer, int event);
    /// Whole events, that every reader must get.
    void whole_events(int count);
    /// Keys of the open events that a reader never got. Says what is wrong with the others.
    std::string lost_events();
    int made_events() const { return next_event_; }

    // ---- after the kill -------------------------------------------------------------------------------------------
    /// Whoever has been killed gets a successor of the same name and part, as the operator would start one.
    void replace_dead();
    /// Until the monitor has gone through so many whole periods.
    void wait_periods(int count);
    /// Every buffer of the data partition is taken once and given back.
    void use_all_buffers();
    /// Everybody leaves, the master last.
    void everybody_leaves();
    expected as_expected() const;

    /// What did not hold; empty in the end of a good point.
    const std::vector<std::string>& broken() const { return broken_; }
    void say_broken(const std::string& what) { broken_.push_back(what); }
    void check_claims();
    const setting& in() const { return at_.in; }
    board& common() { return board_; }
    const point& at() const { return at_; }
    std::vector<std::unique_ptr<member>>& cast() { return cast_; }
    /// Check, or check and repair; what was found is kept.
    checked check(bool repair);
    const std::vector<std::string>& found() const { return found_; }
    bool repaired() const { return repaired_; } ///< anything
    std::set<std::string> made;                 ///< partitions beside the usual ones

  private:
    member* find(member::part part, int kind);
    int cycles() const;
    bool all_got(int event) const;
    void expect(bool held, const std::string& what);

    point at_;
    board& board_;
    uint32_t first_second_;
    std::vector<std::unique_ptr<member>> cast_;
    member* master_ = nullptr;
    int next_number_ = 0;
    int next_event_ = 0;
    std::set<int> open_;
    std::vector<std::string> broken_;
    std::vector<std::string> found_;
    bool repaired_ = false;
};

} // namespace sweep

#endif
