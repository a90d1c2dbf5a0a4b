// What differs between the two generations of event records; ids and names as both hold them.
#include "slot_form.h"

#include <climits>
#include <string>

#include <gtest/gtest.h>

#include "event_id.h"
#include "names.h"
#include "slot_bytes.h"

using namespace zrk4::impl;
using namespace zrk4::test;

namespace {

TEST(SlotForm, Keeps32BitsOfAnIdIn2010And64In2024)
{
    zrk4_event_slot_head narrow{};
    slots_2010::set_event_id(narrow, 0x1'8000'0005);
    EXPECT_EQ(+narrow.eventid, INT_MIN + 5);
    zrk4_event_slot_head_2024 wide{};
    slots_2024::set_event_id(wide, 0x1'8000'0005);
    EXPECT_EQ(+wide.eventid, 0x1'8000'0005);
    zrk4_event_ctrl_block entry{};
    slots_2010::set_event_id(entry, 0x1'8000'0005);
    EXPECT_EQ(+entry.eventid, INT_MIN + 5);
    zrk4_event_ctrl_block_2024 wide_entry{};
    slots_2024::set_event_id(wide_entry, 0x1'8000'0005);
    EXPECT_EQ(+wide_entry.eventid, 0x1'8000'0005);
}

TEST(SlotForm, UnitesIdsIn2010AndKeepsTheLastIn2024)
{
    zrk4_event_slot_head narrow{};
    zrk4_event_slot_head_2024 wide{};
    for (const int64_t id : {1, 4, 0x100}) {
        slots_2010::add_event_id(narrow, id);
        slots_2024::add_event_id(wide, id);
    }
    EXPECT_EQ(+narrow.eventid, 0x105);
    EXPECT_EQ(+wide.eventid, 0x100);
}

TEST(SlotForm, RaisesAnIdTo31BitsIn2010)
{
    zrk4_event_ctrl_block entry{};
    slots_2010::raise_event_id(entry, 0x1'8000'0005);
    EXPECT_EQ(+entry.eventid, 5);
    zrk4_event_ctrl_block_2024 wide{};
    slots_2024::raise_event_id(wide, 0x1'8000'0005);
    EXPECT_EQ(+wide.eventid, 0x1'8000'0005);
}

TEST(SlotForm, AddsSizesThatWrap)
{
    zrk4_event_slot_head narrow{};
    narrow.evsize = INT_MAX;
    slots_2010::add_size(narrow, 1);
    EXPECT_EQ(+narrow.evsize, INT_MIN);
    slots_2010::add_size(narrow, 0x7'0000'0002);
    EXPECT_EQ(+narrow.evsize, INT_MIN + 2);
    slots_2010::add_size(narrow, -3);
    EXPECT_EQ(+narrow.evsize, INT_MAX);
    zrk4_event_slot_head_2024 wide{};
    wide.evsize = INT64_MAX;
    slots_2024::add_size(wide, 1);
    EXPECT_EQ(+wide.evsize, INT64_MIN);
}

TEST(SlotForm, MarksAndKnowsOnlyThe2024Head)
{
    zrk4_event_slot_head_2024 wide{};
    EXPECT_FALSE(slots_2024::sound(wide));
    slots_2024::mark(wide);
    EXPECT_TRUE(slots_2024::sound(wide));
    EXPECT_EQ(+wide.pattern, 0xFF77FF77FF77FF77);
    zrk4_event_slot_head narrow{};
    slots_2010::mark(narrow);
    EXPECT_EQ(narrow.time, (time_stamp{0, 0}));
    EXPECT_TRUE(slots_2010::sound(narrow)) << "nothing marks it";
}

TEST(SlotForm, StampsADatagramWithTheIdInTheMicrosecondsOf2010)
{
    zrk4_event_slot_head narrow{};
    narrow.time = {11, 22};
    narrow.eventid = -33;
    reader_message message{};
    slots_2010::stamp(message, narrow);
    EXPECT_EQ(message.time, (time_stamp{11, static_cast<uint32_t>(-33)}));
    EXPECT_EQ(slots_2010::message_event_id(message), -33);
    zrk4_event_slot_head_2024 wide{};
    wide.time = {11, 22};
    wide.eventid = -33;
    reader_message_2024 wide_message{};
    slots_2024::stamp(wide_message, wide);
    EXPECT_EQ(wide_message.time, (time_stamp{11, 22}));
    EXPECT_EQ(+wide_message.event, static_cast<uint64_t>(-33));
    EXPECT_EQ(slots_2024::message_event_id(wide_message), -33);
}

TEST(EventId, MeetsItselfAndIts31BitForm)
{
    EXPECT_TRUE(same_event_id(5, 5));
    EXPECT_TRUE(same_event_id(0x80000005, 5)) << "stored, cut to 31 bits";
    EXPECT_TRUE(same_event_id(5, 0x80000005)) << "offered, cut to 31 bits";
    EXPECT_TRUE(same_event_id(INT_MIN + 5, 5)) << "a stored 32-bit id is widened with its sign";
    EXPECT_TRUE(same_event_id(5, INT_MIN + 5));
    EXPECT_TRUE(same_event_id(0x7'8000'0005, 5));
    EXPECT_TRUE(same_event_id(0, 0x80000000));
    EXPECT_TRUE(same_event_id(-1, 0x7FFFFFFF));
}

TEST(EventId, DoesNotMeetOthers)
{
    EXPECT_FALSE(same_event_id(5, 6));
    EXPECT_FALSE(same_event_id(0x80000005, 0x1'0000'0005)) << "two ids above 31 bits are compared whole";
    EXPECT_FALSE(same_event_id(-5, 5));
    EXPECT_FALSE(same_event_id(0x80000000, 5));
}

TEST(StoredName, IsCutTo255CharactersAndZeroBehind)
{
    char field[257];
    std::memset(field, 'x', sizeof field);
    store_name(field, "AB");
    EXPECT_EQ(std::string(field, 256), "AB" + std::string(254, '\0'));
    EXPECT_EQ(field[256], 'x');
    store_name(field, std::string(300, 'n'));
    EXPECT_EQ(std::string(field, 256), std::string(255, 'n') + std::string(1, '\0'));
    EXPECT_EQ(field[256], 'x');
    store_name(field, std::string(255, 'm'));
    EXPECT_EQ(std::string(field, 256), std::string(255, 'm') + std::string(1, '\0'));
    store_name(field, {});
    EXPECT_EQ(std::string(field, 256), std::string(256, '\0'));
}

TEST(StoredName, IsComparedUpToItsEnd)
{
    char a[256] = "NAME";
    char b[256] = "NAME";
    std::strcpy(b + 5, "left over");
    EXPECT_TRUE(same_name(a, b));
    EXPECT_FALSE(same_name(a, "NAME2"));
    EXPECT_FALSE(same_name("NAM", a));
    std::memset(a, 'q', sizeof a);
    std::memset(b, 'q', sizeof b);
    EXPECT_TRUE(same_name(a, b)) << "256 characters and no NUL";
    b[255] = '\0';
    EXPECT_FALSE(same_name(a, b));
    EXPECT_EQ(name_view(a).size(), 256U);
    EXPECT_EQ(name_view(b).size(), 255U);
}

TEST(NameList, ContainsWhatItHoldsAndNoMore)
{
    std::string names(3 * 256, '\0');
    names.replace(0, 1, "A");
    names.replace(256, 256, std::string(256, 'b'));
    names.replace(512, 1, "C");
    const name_list two{names.data(), 2};
    EXPECT_TRUE(two.contains("A"));
    EXPECT_TRUE(two.contains(std::string(256, 'b').c_str())) << "equal over 256 characters";
    EXPECT_FALSE(two.contains("C")) << "behind the count";
    EXPECT_FALSE(two.contains(""));
    std::unordered_set<std::string_view> set;
    two.add_to(set);
    EXPECT_EQ(set.size(), 2U);
    EXPECT_EQ(set.count(std::string(256, 'b')), 1U);
    EXPECT_FALSE(name_list{}.contains("A"));
}

} // namespace
