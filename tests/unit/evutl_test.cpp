// The event utilities: texts, listings, look-ups and merges.
#include "evutl.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <map>
#include <new>
#include <string>

#include <gtest/gtest.h>

#include "captured_output.h"
#include "event.h"
#include "sub_blocks.h"

using namespace zrk4::test;

// A heap that can be told to be empty. Not inlined, or the compiler takes new and free for a mismatched pair.
static bool heap_is_empty = false;

__attribute__((noinline)) void* operator new(size_t size)
{
    void* at = heap_is_empty ? nullptr : std::malloc(size);
    if (at == nullptr) throw std::bad_alloc();
    return at;
}
__attribute__((noinline)) void operator delete(void* at) noexcept { std::free(at); }
__attribute__((noinline)) void operator delete(void* at, size_t) noexcept { std::free(at); }

namespace {

constexpr size_t DATE_SIZE = 296;

std::string isodate(int form)
{
    char text[DATE_SIZE];
    create_isodate(text, form);
    return text;
}

/// Seconds since the epoch that a date of form 0 or 1 means.
time_t seconds_of(const std::string& date)
{
    tm t{};
    strptime(date.c_str(), "%Y-%m-%dT%H:%M:%S", &t);
    const size_t zone = date.size() - 6;
    const int offset = (std::stoi(date.substr(zone + 1, 2)) * 60 + std::stoi(date.substr(zone + 4, 2))) * 60;
    return timegm(&t) - (date[zone] == '-' ? -offset : offset);
}

class time_zone {
  public:
    explicit time_zone(const char* name)
    {
        setenv("TZ", name, 1);
        tzset();
    }
    ~time_zone()
    {
        unsetenv("TZ");
        tzset();
    }
    time_zone(const time_zone&) = delete;
    time_zone& operator=(const time_zone&) = delete;
};

/// By the clock that the text is made from: time() may lag behind it by a tick.
time_t seconds_now()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec;
}

/// The text with a 9 for every digit and a + for the sign of the offset.
std::string shape_of(std::string date)
{
    for (char& c : date) {
        if (std::isdigit(static_cast<unsigned char>(c)) != 0) c = '9';
    }
    const size_t sign = date.find_last_of("+-");
    if (sign != std::string::npos) date[sign] = '+';
    return date;
}

} // namespace

TEST(IsoDate, Form1HasMicrosecondsAndOffset) { EXPECT_EQ(shape_of(isodate(1)), "9999-99-99T99:99:99.999999+99:99"); }

TEST(IsoDate, Form0HasNoFraction) { EXPECT_EQ(shape_of(isodate(0)), "9999-99-99T99:99:99+99:99"); }

TEST(IsoDate, Form2FitsAFilesName) { EXPECT_EQ(shape_of(isodate(2)), "99999999T999999+9999"); }

TEST(IsoDate, AnyOtherFormIsForm1)
{
    for (const int form : {-1, 3, INT_MIN, INT_MAX}) EXPECT_EQ(shape_of(isodate(form)), shape_of(isodate(1))) << form;
}

TEST(IsoDate, IsTheCurrentTimeInEveryZone)
{
    for (const char* zone : {"UTC0", "EST5", "NST3:30", "IST-5:30", "NZT-13"}) {
        const time_zone here(zone);
        const time_t before = seconds_now();
        const time_t told = seconds_of(isodate(1));
        EXPECT_GE(told, before) << zone;
        EXPECT_LE(told, seconds_now()) << zone;
    }
}

TEST(IsoDate, TellsTheOffsetOfTheZone)
{
    const std::map<const char*, const char*> offsets = {
        {"UTC0", "+00:00"}, {"EST5", "-05:00"}, {"NST3:30", "-03:30"}, {"IST-5:30", "+05:30"}};
    for (const auto& [zone, offset] : offsets) {
        const time_zone here(zone);
        EXPECT_EQ(isodate(1).substr(isodate(1).size() - 6), offset) << zone;
        EXPECT_EQ(isodate(0).substr(isodate(0).size() - 6), offset) << zone;
    }
}

TEST(IsoDate, StaysInsideItsBuffer)
{
    for (const int form : {0, 1, 2}) EXPECT_LT(isodate(form).size(), DATE_SIZE);
    create_isodate(nullptr, 1); // returns
}

TEST(EventName, IsTheEnumeratorWithoutItsPrefix)
{
#define EXPECT_NAME(name) EXPECT_STREQ(event_name_itoa(ZRK4_EV_##name), #name)
    EXPECT_NAME(HB);
    EXPECT_NAME(NORMAL);
    EXPECT_NAME(BOR);
    EXPECT_NAME(EOR);
    EXPECT_NAME(ENV);
    EXPECT_NAME(UPD);
    EXPECT_NAME(IMAGE);
    EXPECT_NAME(WS);
    EXPECT_NAME(MCP);
    EXPECT_NAME(WSS);
    EXPECT_NAME(BL1);
    EXPECT_NAME(BL2);
    EXPECT_NAME(BL3);
    EXPECT_NAME(PG0);
    EXPECT_NAME(PG1);
    EXPECT_NAME(PG2);
    EXPECT_NAME(GMD);
    EXPECT_NAME(PHOTEN);
    EXPECT_NAME(PHOTWL);
    EXPECT_NAME(BEAM_ENERGY);
    EXPECT_NAME(LLRF_ML);
    EXPECT_NAME(BEAM_ENERGY_BYPASS);
    EXPECT_NAME(SPECTR_1);
    EXPECT_NAME(SPECTR_2);
    EXPECT_NAME(SPECTR_3);
    EXPECT_NAME(SPECTR_4);
    EXPECT_NAME(SPECTR_5);
    EXPECT_NAME(TOROID_ML);
    EXPECT_NAME(28);
    EXPECT_NAME(29);
    EXPECT_NAME(30);
    EXPECT_NAME(31);
#undef EXPECT_NAME
}

TEST(EventName, OfAnythingElseIsUnknown)
{
    for (const int type : {-1, 32, INT_MIN, INT_MAX}) EXPECT_STREQ(event_name_itoa(type), "UNKNOWN") << type;
}

// ---- listing the sub-blocks -----------------------------------------------------------------------------------------

namespace {

const sub_block ONE("ONE", ZRK4_BLOCK_1CHAN_2010, "12345678");
const sub_block TWO("TWO", ZRK4_BLOCK_2CHAN_2010);
const char* const LINE_ONE = "#0 name: ONE  type: 41  error: 5  ldata: 276\n";
const char* const LINE_TWO = "#1 name: TWO  type: 45  error: 5  ldata: 268\n";

std::string listing(void (*dump)(int, char*), const std::string& bytes, int level = 0, size_t shift = 0)
{
    placed_bytes block(bytes, shift);
    return out_of([&] { dump(level, block.at()); });
}
std::string listing(const block_of_2010& b, int level = 0, size_t shift = 0)
{
    return listing(dump_event_subheader_2010, b.bytes(), level, shift);
}
std::string listing(const block_of_2024& b, int level = 0, size_t shift = 0)
{
    return listing(dump_event_subheader_2024, b.bytes(), level, shift);
}

size_t lines_of(const std::string& text) { return static_cast<size_t>(std::count(text.begin(), text.end(), '\n')); }

} // namespace

class Listing : public testing::TestWithParam<size_t> {};
INSTANTIATE_TEST_SUITE_P(AtEveryAlignment, Listing, testing::Range<size_t>(0, 8));

TEST_P(Listing, HasOneLinePerSubBlock)
{
    EXPECT_EQ(listing(block_of_2010({ONE, TWO}), 0, GetParam()), std::string(LINE_ONE) + LINE_TWO);
    EXPECT_EQ(listing(block_of_2024({ONE, TWO}), 0, GetParam()), std::string(LINE_ONE) + LINE_TWO);
}

TEST(SubBlockListing, IsIndentedByTheLevelUpTo32)
{
    EXPECT_EQ(listing(block_of_2010({ONE}), 3), std::string(3, ' ') + LINE_ONE);
    EXPECT_EQ(listing(block_of_2024({ONE}), 32), std::string(32, ' ') + LINE_ONE);
    EXPECT_EQ(listing(block_of_2024({ONE}), 33), std::string(32, ' ') + LINE_ONE);
    EXPECT_EQ(listing(block_of_2010({ONE}), INT_MAX), std::string(32, ' ') + LINE_ONE);
    EXPECT_EQ(listing(block_of_2010({ONE}), -1), LINE_ONE);
}

TEST(SubBlockListing, EndsAfter64Lines)
{
    EXPECT_EQ(lines_of(listing(block_of_2010(std::vector<sub_block>(64, TWO)))), 64U);
    EXPECT_EQ(lines_of(listing(block_of_2010(std::vector<sub_block>(65, TWO)))), 64U);
}

TEST(SubBlockListing, EndsWithTheCount)
{
    block_of_2010 block({ONE, TWO});
    block.head.nchan = 1;
    EXPECT_EQ(listing(block), LINE_ONE);
    for (const int nchan : {0, -1, INT_MIN}) {
        block.head.nchan = nchan;
        EXPECT_EQ(listing(block), "");
    }
}

TEST(SubBlockListing, NeverLeavesTheBlockWhateverItCounts)
{
    block_of_2024 block({ONE, TWO});
    block.head.nchan = INT_MAX;
    EXPECT_EQ(listing(block), std::string(LINE_ONE) + LINE_TWO);
    block.head.ltotal -= 1; // the second sub-head is not whole any more
    EXPECT_EQ(listing(block), LINE_ONE);
    for (const int64_t ltotal :
         {int64_t{HEAD_2024} + SUBHEAD - 1, int64_t{HEAD_2024}, int64_t{0}, int64_t{-1}, INT64_MIN}) {
        block.head.ltotal = ltotal;
        EXPECT_EQ(listing(block), "") << ltotal;
    }
}

TEST(SubBlockListing, EndsBehindALengthThatCannotBe)
{
    for (const int ldata : {INT_MIN, -1, 0, 1, SUBHEAD - 1, SUBHEAD + 2 * SUBHEAD, INT_MAX}) {
        const block_of_2010 block({ONE.says(ldata), TWO});
        EXPECT_EQ(listing(block), "#0 name: ONE  type: 41  error: 5  ldata: " + std::to_string(ldata) + "\n");
    }
}

TEST(SubBlockListing, KeepsALineOneLineWhateverTheName)
{
    EXPECT_EQ(listing(block_of_2010({{"A\nB\x1b\xffz", 41}})), "#0 name: A.B..z  type: 41  error: 5  ldata: 268\n");
    EXPECT_EQ(listing(block_of_2010({{std::string(300, 'n'), 41}})),
              "#0 name: " + std::string(256, 'n') + "  type: 41  error: 5  ldata: 268\n");
}

TEST(SubBlockListing, OfANullBlockIsEmpty)
{
    EXPECT_EQ(out_of([] { dump_event_subheader_2010(0, nullptr); }), "");
    EXPECT_EQ(out_of([] { dump_event_subheader_2024(0, nullptr); }), "");
}

// ---- slow channels --------------------------------------------------------------------------------------------------

namespace {

sub_block upd_block(const std::string& records) { return {"UPDATE", ZRK4_UPD_BLOCK_2010, records}; }
sub_block env_block(const std::string& records) { return {"ENVIRONMENT", ZRK4_ENV_BLOCK_2010, records}; }
sub_block dict_block(const std::string& records) { return {"DICTIONARY", ZRK4_ENV_DICT_BLOCK_2010, records}; }

/// Value of a property in an update sub-block; NAN where it is not found.
float updated(const sub_block& upd, const std::string& channel, size_t shift = 0)
{
    placed_bytes block(upd.bytes(), shift);
    zrk4_upd_data_block_2010* record = nullptr;
    const bool not_found = find_upd_channel_2010(block.at(), channel.c_str(), &record);
    EXPECT_EQ(not_found, record == nullptr);
    return not_found ? NAN : +record->upd_ch_data;
}

float measured(const sub_block& env, const sub_block& dict, const std::string& channel, size_t shift = 0)
{
    placed_bytes values(env.bytes(), shift);
    placed_bytes names(dict.bytes(), 7 - shift);
    zrk4_env_data_block_2010* record = nullptr;
    const bool not_found = find_slow_channel_2010(values.at(), names.at(), channel.c_str(), &record);
    EXPECT_EQ(not_found, record == nullptr);
    return not_found ? NAN : +record->env_ch_data;
}

const sub_block TWO_UPDATES = upd_block(upd_record("VOLT", 1.5F) + upd_record("TEMP", 2.5F));
const sub_block TWO_VALUES = env_block(env_record(20, 1.5F) + env_record(-3, 2.5F));
const sub_block TWO_NAMES = dict_block(dict_record("TEMP", -3) + dict_record("VOLT", 20));

} // namespace

class SlowChannel : public testing::TestWithParam<size_t> {};
INSTANTIATE_TEST_SUITE_P(AtEveryAlignment, SlowChannel, testing::Range<size_t>(0, 8));

TEST_P(SlowChannel, OfAnUpdateIsFoundByItsName)
{
    EXPECT_EQ(updated(TWO_UPDATES, "VOLT", GetParam()), 1.5F);
    EXPECT_EQ(updated(TWO_UPDATES, "TEMP", GetParam()), 2.5F);
    EXPECT_TRUE(std::isnan(updated(TWO_UPDATES, "FREQ", GetParam())));
}

TEST_P(SlowChannel, OfTheEnvironmentIsFoundByItsIndexInTheDictionary)
{
    EXPECT_EQ(measured(TWO_VALUES, TWO_NAMES, "VOLT", GetParam()), 1.5F);
    EXPECT_EQ(measured(TWO_VALUES, TWO_NAMES, "TEMP", GetParam()), 2.5F);
    EXPECT_TRUE(std::isnan(measured(TWO_VALUES, TWO_NAMES, "FREQ", GetParam())));
}

TEST(SlowChannels, NamesAreEqualOver256CharactersAndNoFewer)
{
    // Every length, against every name that differs in one place, is shorter by one or longer by one.
    for (size_t length = 1; length <= 260; ++length) {
        const std::string name(length, 'a');
        const size_t counted = std::min<size_t>(length, 256);
        EXPECT_EQ(updated(upd_block(upd_record(name, 1.F)), name), 1.F) << length;
        std::string others;
        for (size_t i = 0; i < counted; ++i) {
            std::string other = name;
            other[i] = 'b';
            others += upd_record(other, 0.F);
        }
        others += upd_record(name.substr(0, counted - 1), 0.F);
        if (length < 256) others += upd_record(name + 'a', 0.F);
        EXPECT_TRUE(std::isnan(updated(upd_block(others), name))) << length;
    }
}

TEST(SlowChannels, TheFirstOfSeveralCounts)
{
    EXPECT_EQ(updated(upd_block(upd_record("X", 1.F) + upd_record("X", 2.F)), "X"), 1.F);
    EXPECT_EQ(measured(TWO_VALUES, dict_block(dict_record("X", 20) + dict_record("X", -3)), "X"), 1.5F);
    EXPECT_TRUE(std::isnan(measured(TWO_VALUES, dict_block(dict_record("X", 4) + dict_record("X", 20)), "X")));
    EXPECT_EQ(measured(env_block(env_record(1, 1.F) + env_record(1, 2.F)), dict_block(dict_record("X", 1)), "X"), 1.F);
}

TEST(SlowChannels, AnEmptyOrNullNameIsNeverFound)
{
    placed_bytes upd(upd_block(upd_record("", 1.F)).bytes(), 0);
    placed_bytes env(env_block(env_record(1, 1.F)).bytes(), 0);
    placed_bytes dict(dict_block(dict_record("", 1)).bytes(), 0);
    zrk4_upd_data_block_2010* updated_record = nullptr;
    zrk4_env_data_block_2010* env_record_found = nullptr;
    for (const char* name : {static_cast<const char*>(nullptr), ""}) {
        EXPECT_TRUE(find_upd_channel_2010(upd.at(), name, &updated_record));
        EXPECT_TRUE(find_slow_channel_2010(env.at(), dict.at(), name, &env_record_found));
    }
    EXPECT_EQ(updated_record, nullptr);
    EXPECT_EQ(env_record_found, nullptr);
}

TEST(SlowChannels, AMissingCopyHoldsNothing)
{
    placed_bytes env(TWO_VALUES.bytes(), 0);
    placed_bytes dict(TWO_NAMES.bytes(), 0);
    EXPECT_TRUE(find_upd_channel_2010(nullptr, "VOLT", nullptr));
    EXPECT_TRUE(find_slow_channel_2010(nullptr, dict.at(), "VOLT", nullptr));
    EXPECT_TRUE(find_slow_channel_2010(env.at(), nullptr, "VOLT", nullptr));
    EXPECT_TRUE(find_slow_channel_2010(nullptr, nullptr, "VOLT", nullptr));
}

TEST(SlowChannels, ARecordThatNobodyWantsIsNotWritten)
{
    placed_bytes upd(TWO_UPDATES.bytes(), 0);
    placed_bytes env(TWO_VALUES.bytes(), 0);
    placed_bytes dict(TWO_NAMES.bytes(), 0);
    EXPECT_FALSE(find_upd_channel_2010(upd.at(), "VOLT", nullptr)) << "false is found";
    EXPECT_FALSE(find_slow_channel_2010(env.at(), dict.at(), "VOLT", nullptr)) << "false is found";
}

TEST(SlowChannels, ABlockOfAnotherKindHoldsNothing)
{
    sub_block upd = TWO_UPDATES;
    sub_block env = TWO_VALUES;
    sub_block dict = TWO_NAMES;
    upd.type = env.type = dict.type = ZRK4_BOR_BLOCK_2010;
    EXPECT_TRUE(std::isnan(updated(upd, "VOLT")));
    EXPECT_TRUE(std::isnan(measured(env, TWO_NAMES, "VOLT")));
    EXPECT_TRUE(std::isnan(measured(TWO_VALUES, dict, "VOLT")));
}

TEST(SlowChannels, OnlyWholeRecordsInsideTheLengthAreRead)
{
    for (const int ldata : {INT_MIN, -1, 0, 1, SUBHEAD - 1, SUBHEAD, SUBHEAD + 19}) {
        EXPECT_TRUE(std::isnan(updated(TWO_UPDATES.says(ldata), "VOLT"))) << ldata;
        EXPECT_TRUE(std::isnan(measured(TWO_VALUES.says(ldata), TWO_NAMES, "VOLT"))) << ldata;
        EXPECT_TRUE(std::isnan(measured(TWO_VALUES, TWO_NAMES.says(ldata), "TEMP"))) << ldata;
    }
    EXPECT_TRUE(std::isnan(updated(TWO_UPDATES.says(SUBHEAD + 271), "VOLT")));
    EXPECT_EQ(updated(TWO_UPDATES.says(SUBHEAD + 272), "VOLT"), 1.5F);
    EXPECT_EQ(measured(TWO_VALUES.says(SUBHEAD + 20), TWO_NAMES, "VOLT"), 1.5F);
    EXPECT_TRUE(std::isnan(measured(TWO_VALUES.says(SUBHEAD + 39), TWO_NAMES, "TEMP")));
    EXPECT_EQ(measured(TWO_VALUES, TWO_NAMES.says(SUBHEAD + 260), "TEMP"), 2.5F);
    EXPECT_TRUE(std::isnan(measured(TWO_VALUES, TWO_NAMES.says(SUBHEAD + 259), "TEMP")));
}

// ---- merging --------------------------------------------------------------------------------------------------------

namespace {

using merge_function = bool (*)(char*, char*);

/// The copy's bytes after the merge, which must succeed.
std::string merged(merge_function merge, const sub_block& copy, const sub_block& fresh, size_t shift = 0)
{
    placed_bytes old(copy.bytes(), shift);
    placed_bytes arrived(fresh.bytes(), 7 - shift);
    EXPECT_FALSE(merge(old.at(), arrived.at())) << "false is success";
    EXPECT_EQ(std::string(arrived.at(), fresh.bytes().size()), fresh.bytes()) << "only the copy changes";
    return {old.at(), copy.bytes().size()};
}

} // namespace

class Merge : public testing::TestWithParam<size_t> {};
INSTANTIATE_TEST_SUITE_P(AtEveryAlignment, Merge, testing::Range<size_t>(0, 8));

TEST_P(Merge, UpdatesEnvironmentRecordsByIndex)
{
    const sub_block copy = env_block(env_record(5, 1.F) + env_record(2, 2.F) + env_record(9, 3.F));
    const sub_block fresh = env_block(env_record(9, 30.F, 4) + env_record(7, 70.F) + env_record(5, 10.F));
    const sub_block expected = env_block(env_record(5, 10.F) + env_record(2, 2.F) + env_record(9, 30.F, 4));
    EXPECT_EQ(merged(copy_env_entries_2010, copy, fresh, GetParam()), expected.bytes());
}

TEST_P(Merge, UpdatesPropertiesByName)
{
    const sub_block copy = upd_block(upd_record("B", 1.F) + upd_record("A", 2.F) + upd_record("AB", 3.F));
    const sub_block fresh = upd_block(upd_record("AB", 30.F, 4) + upd_record("ABC", 70.F) + upd_record("B", 10.F));
    const sub_block expected = upd_block(upd_record("B", 10.F) + upd_record("A", 2.F) + upd_record("AB", 30.F, 4));
    EXPECT_EQ(merged(copy_upd_entries_2010, copy, fresh, GetParam()), expected.bytes());
}

TEST(RunBlockMerge, TakesTheTimeOfTheNewValue)
{
    zrk4_env_data_block_2010 later{5, 0, {70, 80}, 10.F};
    EXPECT_EQ(merged(copy_env_entries_2010, env_block(env_record(5, 1.F)), env_block(bytes_of(later))),
              env_block(bytes_of(later)).bytes());
}

TEST(RunBlockMerge, TheLastOfSeveralNewValuesStays)
{
    EXPECT_EQ(merged(copy_env_entries_2010, env_block(env_record(5, 1.F)),
                     env_block(env_record(5, 2.F) + env_record(5, 3.F))),
              env_block(env_record(5, 3.F)).bytes());
}

TEST(RunBlockMerge, OfSeveralRecordsInTheCopyTheOneThatIsFoundIsUpdated)
{
    EXPECT_EQ(merged(copy_env_entries_2010, env_block(env_record(5, 1.F) + env_record(5, 2.F)),
                     env_block(env_record(5, 3.F))),
              env_block(env_record(5, 3.F) + env_record(5, 2.F)).bytes());
    EXPECT_EQ(merged(copy_upd_entries_2010, upd_block(upd_record("X", 1.F) + upd_record("X", 2.F)),
                     upd_block(upd_record("X", 3.F))),
              upd_block(upd_record("X", 3.F) + upd_record("X", 2.F)).bytes());
}

TEST(RunBlockMerge, NeverReadsPastEitherBlock)
{
    const sub_block one = env_block(env_record(5, 1.F));
    const sub_block two = env_block(env_record(4, 7.F) + env_record(5, 8.F));
    EXPECT_EQ(merged(copy_env_entries_2010, one, two.says(SUBHEAD + 39)), one.bytes());
    for (const int ldata : {INT_MIN, -1, 0, SUBHEAD - 1, SUBHEAD}) {
        EXPECT_EQ(merged(copy_env_entries_2010, one, two.says(ldata)), one.bytes()) << ldata;
        EXPECT_EQ(merged(copy_env_entries_2010, one.says(ldata), two), one.says(ldata).bytes()) << ldata;
    }
}

TEST(RunBlockMerge, OfThousandsOfRecordsInAnyOrderUpdatesEachOnce)
{
    constexpr int N = 5000;
    std::string copy, fresh, expected;
    for (int i = 0; i < N; ++i) {
        copy += env_record(i, 0.F);
        expected += env_record(i, static_cast<float>(i));
        fresh += env_record(N - 1 - i, static_cast<float>(N - 1 - i));
    }
    EXPECT_EQ(merged(copy_env_entries_2010, env_block(copy), env_block(fresh)), env_block(expected).bytes());
}

TEST(RunBlockMerge, FindsTheFirstOfItsKeyInWhateverOrderRecordsArrive)
{
    // Twice the same, in order, backwards, and unknown ones in between: each goes to the first that the copy holds.
    const sub_block copy = env_block(env_record(1, 0.F) + env_record(2, 0.F) + env_record(2, 0.F) + env_record(3, 0.F));
    const auto expected = [](float one, float two, float three) {
        return env_block(env_record(1, one) + env_record(2, two) + env_record(2, 0.F) + env_record(3, three)).bytes();
    };
    const auto arrive = [&](const std::string& records) {
        return merged(copy_env_entries_2010, copy, env_block(records));
    };
    EXPECT_EQ(arrive(env_record(1, 5.F) + env_record(2, 6.F) + env_record(2, 7.F) + env_record(3, 8.F)),
              expected(5.F, 7.F, 8.F));
    EXPECT_EQ(arrive(env_record(3, 8.F) + env_record(2, 7.F) + env_record(1, 5.F)), expected(5.F, 7.F, 8.F));
    EXPECT_EQ(arrive(env_record(2, 6.F) + env_record(9, 1.F) + env_record(3, 8.F) + env_record(3, 9.F)),
              expected(0.F, 6.F, 9.F));
    EXPECT_EQ(arrive(env_record(3, 8.F) + env_record(4, 1.F) + env_record(0, 1.F) + env_record(3, 9.F)),
              expected(0.F, 0.F, 9.F));
}

TEST(RunBlockMerge, FindsTheFirstOfItsNameInWhateverOrderRecordsArrive)
{
    const sub_block copy = upd_block(upd_record("B", 0.F) + upd_record("A", 0.F) + upd_record("B", 0.F));
    const auto expected = [](float b, float a) {
        return upd_block(upd_record("B", b) + upd_record("A", a) + upd_record("B", 0.F)).bytes();
    };
    const auto arrive = [&](const std::string& records) {
        return merged(copy_upd_entries_2010, copy, upd_block(records));
    };
    EXPECT_EQ(arrive(upd_record("A", 1.F) + upd_record("B", 2.F) + upd_record("B", 3.F)), expected(3.F, 1.F));
    EXPECT_EQ(arrive(upd_record("B", 2.F) + upd_record("A", 1.F) + upd_record("A", 4.F)), expected(2.F, 4.F));
    EXPECT_EQ(arrive(upd_record("C", 9.F) + upd_record("B", 2.F) + upd_record("", 9.F)), expected(2.F, 0.F));
}

TEST(RunBlockMerge, NullOrAnotherKindIsRefused)
{
    placed_bytes env(TWO_VALUES.bytes(), 0);
    placed_bytes upd(TWO_UPDATES.bytes(), 0);
    for (const merge_function merge : {copy_env_entries_2010, copy_upd_entries_2010}) {
        EXPECT_TRUE(merge(nullptr, nullptr));
        EXPECT_TRUE(merge(env.at(), upd.at()));
        EXPECT_TRUE(merge(upd.at(), env.at()));
        EXPECT_TRUE(merge(nullptr, env.at()));
        EXPECT_TRUE(merge(upd.at(), nullptr));
    }
    EXPECT_TRUE(copy_env_entries_2010(upd.at(), upd.at()));
    EXPECT_TRUE(copy_upd_entries_2010(env.at(), env.at()));
    EXPECT_EQ(std::string(env.at(), TWO_VALUES.bytes().size()), TWO_VALUES.bytes());
}

TEST(RunBlockMerge, OfABlockIntoItselfChangesNothing)
{
    placed_bytes env(TWO_VALUES.bytes(), 0);
    EXPECT_FALSE(copy_env_entries_2010(env.at(), env.at()));
    EXPECT_EQ(std::string(env.at(), TWO_VALUES.bytes().size()), TWO_VALUES.bytes());
}

TEST(RunBlockMerge, WithoutMemoryFailsAndLeavesTheCopy)
{
    placed_bytes env(TWO_VALUES.bytes(), 0);
    placed_bytes fresh(env_block(env_record(20, 9.F)).bytes(), 0);
    heap_is_empty = true;
    const bool failed = copy_env_entries_2010(env.at(), fresh.at());
    heap_is_empty = false;
    EXPECT_TRUE(failed);
    EXPECT_EQ(std::string(env.at(), TWO_VALUES.bytes().size()), TWO_VALUES.bytes());
}

TEST(SlowChannels, AreFoundWithoutMemory)
{
    placed_bytes upd(TWO_UPDATES.bytes(), 0);
    placed_bytes env(TWO_VALUES.bytes(), 0);
    placed_bytes dict(TWO_NAMES.bytes(), 0);
    heap_is_empty = true;
    const bool not_updated = find_upd_channel_2010(upd.at(), "VOLT", nullptr);
    const bool not_measured = find_slow_channel_2010(env.at(), dict.at(), "VOLT", nullptr);
    heap_is_empty = false;
    EXPECT_FALSE(not_updated) << "false is found";
    EXPECT_FALSE(not_measured) << "false is found";
}
