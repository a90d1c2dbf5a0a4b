// Time, keys, synchronisation modes, and the readers of a block's head.
#include <ctime>

#include "event_host.h"
#include "sub_blocks.h"

using namespace zrk4::test;

namespace {

class BmKeys : public CleanNamespace {
  protected:
    bool differ(time_stamp a, time_stamp b) { return bm.ev_keys_eq(&a, &b); }
    bool expired(time_stamp now, time_stamp since, time_stamp period) { return bm.time_expired(&now, &since, &period); }

    open_bm bm;
};

// ---- time

TEST_F(BmKeys, CurrentTimeIsTheWallClock)
{
    const time_t before = time(nullptr);
    time_stamp now{};
    bm.get_cur_time(&now);
    EXPECT_GE(static_cast<time_t>(now.timeup), before - 1) << "time() lags behind by a tick";
    EXPECT_LE(static_cast<time_t>(now.timeup), time(nullptr) + 1);
    EXPECT_LT(+now.timelow, 1000000U);
}

TEST_F(BmKeys, CurrentTimeHasMicroseconds)
{
    time_stamp a{};
    time_stamp b{};
    bm.get_cur_time(&a);
    do bm.get_cur_time(&b);
    while (a == b);
    EXPECT_TRUE(expired(b, a, {0, 1}));
    EXPECT_FALSE(expired(b, a, {1, 0}));
}

struct coarse_difference {
    time_stamp from, to;
    int seconds, microseconds;
};
class BmTimeDifference : public testing::TestWithParam<coarse_difference> {};

// Worked out with exact fractions, rounded to 24 binary digits where single precision rounds.
INSTANTIATE_TEST_SUITE_P(
    SinglePrecision, BmTimeDifference,
    testing::Values(coarse_difference{{0, 0}, {0, 0}, 0, 0}, coarse_difference{{0, 0}, {0, 5}, 0, 5},
                    coarse_difference{{1, 0}, {3, 250000}, 2, 250000}, coarse_difference{{10, 999999}, {12, 1}, 1, 2},
                    coarse_difference{{1000, 1}, {1001, 0}, 1, 0},
                    coarse_difference{{100, 0}, {200, 500001}, 100, 500000}, coarse_difference{{3, 0}, {1, 0}, -2, 0},
                    coarse_difference{{5, 750000}, {1, 250000}, -4, -500000},
                    coarse_difference{{16777217, 0}, {16777219, 0}, 4, 194304},
                    // Today's seconds: steps of 134 s.
                    coarse_difference{{1700000000, 0}, {1700000000, 999999}, 0, 0},
                    coarse_difference{{1700000000, 0}, {1700000060, 0}, 0, 0},
                    coarse_difference{{1700000000, 0}, {1700000100, 0}, 134, 217728},
                    coarse_difference{{1700000000, 0}, {1700000200, 0}, 268, 435456},
                    coarse_difference{{1700000000, 0}, {1700000400, 123456}, 402, 653184},
                    coarse_difference{{1700000400, 0}, {1700000000, 0}, -402, -653184},
                    coarse_difference{{1700003600, 0}, {1700007200, 0}, 3489, 660992}));

TEST_P(BmTimeDifference, IsAsCoarseAsSinglePrecision)
{
    coarse_difference c = GetParam();
    BM bm;
    time_stamp difference{77, 77};
    bm.get_time_diff(&c.from, &c.to, &difference);
    EXPECT_EQ(static_cast<int>(difference.timeup), c.seconds);
    EXPECT_EQ(static_cast<int>(difference.timelow), c.microseconds);
}

TEST_F(BmKeys, TimeIsExpiredAtThePeriodExactly)
{
    EXPECT_TRUE(expired({1700000010, 5}, {1700000000, 5}, {10, 0}));
    EXPECT_FALSE(expired({1700000010, 4}, {1700000000, 5}, {10, 0}));
    EXPECT_TRUE(expired({1700000010, 0}, {1700000009, 999999}, {0, 1}));
    EXPECT_FALSE(expired({1700000010, 0}, {1700000009, 999999}, {0, 2}));
    EXPECT_TRUE(expired({5, 0}, {5, 0}, {0, 0}));
    EXPECT_FALSE(expired({5, 0}, {5, 1}, {0, 0})) << "since is later than now";
    EXPECT_TRUE(expired({10, 0}, {5, 0}, {0, 5000000})) << "microseconds above a second count as such";
}

// ---- keys

TEST_F(BmKeys, ThatDifferByTheMaskNameTheSameEvent)
{
    EXPECT_FALSE(differ({1700000000, 100}, {1700000000, 100}));
    EXPECT_FALSE(differ({1700000000, 100}, {1700000000, 20100})) << "false: same event";
    EXPECT_TRUE(differ({1700000000, 100}, {1700000000, 20101}));
    EXPECT_FALSE(differ({1700000000, 20100}, {1700000000, 100})) << "in either order";
    EXPECT_TRUE(differ({1700000000, 20101}, {1700000000, 100}));
    EXPECT_FALSE(differ({1700000000, 990000}, {1700000001, 10000})) << "over the second";
    EXPECT_TRUE(differ({1700000000, 990000}, {1700000001, 10001}));
}

TEST_F(BmKeys, FollowTheMaskThatWasSet)
{
    bm.set_time_mask(0);
    EXPECT_FALSE(differ({1, 2}, {1, 2}));
    EXPECT_TRUE(differ({1, 2}, {1, 3}));
    bm.set_time_mask(3600000000);
    EXPECT_FALSE(differ({1700000000, 0}, {1700003600, 0}));
    EXPECT_TRUE(differ({1700000000, 0}, {1700003600, 1}));
    bm.set_time_mask(~0UL);
    EXPECT_FALSE(differ({0, 0}, {~0U, ~0U})) << "a mask is never negative";
}

// ---- modes

TEST_F(BmKeys, SynchronisationIsByTimeUntilToldOtherwise)
{
    EXPECT_EQ(bm.get_smode(), 0);
    EXPECT_FALSE(bm.set_smode(BM_SYNCH_EVID)) << "false is success";
    EXPECT_EQ(bm.get_smode(), 1);
    EXPECT_FALSE(bm.set_smode(BM_SYNCH_TIME));
    EXPECT_EQ(bm.get_smode(), 0);
}

TEST_F(BmKeys, OtherSynchronisationIsRefused)
{
    bm.set_smode(BM_SYNCH_EVID);
    for (const int mode : {static_cast<int>(BM_SYNCH_TOTAL), 3, -1}) {
        EXPECT_TRUE(bm.set_smode(mode)) << mode;
        EXPECT_EQ(bm.get_smode(), 1) << mode;
    }
}

TEST_F(BmKeys, WideIdsAreChosenBeforeInit)
{
    EXPECT_FALSE(bm.get_evid_64bit_mode());
    EXPECT_TRUE(bm.set_evid_64bit_mode(true));
    EXPECT_TRUE(bm.get_evid_64bit_mode());
    EXPECT_FALSE(bm.set_evid_64bit_mode(false)) << "the answer is the mode in force";
}

class BmModes : public EventHost {};
IN_BOTH_GENERATIONS(BmModes);

TEST_P(BmModes, WideIdsStayAsTheyWereAfterInit)
{
    EXPECT_EQ(bm.set_evid_64bit_mode(!wide()), wide());
    EXPECT_EQ(bm.get_evid_64bit_mode(), wide());
}

TEST_P(BmModes, SynchronisationMayChangeAfterInit)
{
    EXPECT_FALSE(bm.set_smode(BM_SYNCH_EVID));
    EXPECT_EQ(bm.get_smode(), BM_SYNCH_EVID);
}

// ---- readers of a head

char* other_name(char* block) { return block; }
time_stamp* other_key(char*) { return nullptr; }
int64_t other_number(char*) { return 1; }
int other_int(char*) { return 2; }

TEST_F(BmKeys, HeadReadersAreSetReplacedAndNeverRemoved)
{
    for (const int type : {3, 40, -7}) { // no range is checked
        bm.set_get_name_func(type, other_name);
        bm.set_get_key_func(type, other_key);
        bm.set_get_length_func(type, other_number);
        bm.set_get_trg_func(type, other_int);
        bm.set_get_sts_func(type, other_int);
        bm.set_get_evid_func(type, other_number);
        bm.set_get_name_func(type, nullptr);
        bm.set_get_key_func(type, nullptr);
        bm.set_get_length_func(type, nullptr);
        bm.set_get_trg_func(type, nullptr);
        bm.set_get_sts_func(type, nullptr);
        bm.set_get_evid_func(type, nullptr);
        EXPECT_EQ(bm.get_bname_f[type], other_name) << type;
        EXPECT_EQ(bm.get_key_f[type], other_key) << type;
        EXPECT_EQ(bm.get_len_f[type], other_number) << type;
        EXPECT_EQ(bm.get_trg_f[type], other_int) << type;
        EXPECT_EQ(bm.get_sts_f[type], other_int) << type;
        EXPECT_EQ(bm.get_evid_f[type], other_number) << type;
        bm.set_get_name_func(type, get_bname_known);
        EXPECT_EQ(bm.get_bname_f[type], get_bname_known) << type;
    }
}

TEST_F(BmKeys, NullNeverInsertsAReader)
{
    bm.set_get_name_func(3, nullptr);
    bm.set_get_evid_func(3, nullptr);
    EXPECT_TRUE(bm.get_bname_f.empty());
    EXPECT_TRUE(bm.get_evid_f.empty());
}

TEST_P(BmModes, InitInstallsTheDefaultReadersForEveryType)
{
    for (int type = 0; type < 32; ++type) {
        EXPECT_EQ(bm.get_bname_f[type], get_bname_known) << type;
        EXPECT_EQ(bm.get_key_f[type], get_key_known) << type;
        EXPECT_EQ(bm.get_len_f[type], get_len_known) << type;
        EXPECT_EQ(bm.get_trg_f[type], get_trg_known) << type;
        EXPECT_EQ(bm.get_sts_f[type], get_sts_known) << type;
        EXPECT_EQ(bm.get_evid_f[type], get_evid_known) << type;
    }
    EXPECT_EQ(bm.get_key_f.size(), 32U);
}

TEST_P(BmModes, InitReplacesReadersThatWereSetBefore)
{
    open_bm other;
    other.set_get_key_func(3, other_key);
    other.set_get_key_func(40, other_key);
    join(other);
    EXPECT_EQ(other.get_key_f[3], get_key_known);
    EXPECT_EQ(other.get_key_f[40], other_key) << "not a type of its own";
    other.set_get_key_func(3, other_key);
    EXPECT_EQ(other.get_key_f[3], other_key);
}

/// Heads at all eight alignments, right in front of the end of their memory.
class BmHeadReaders : public testing::TestWithParam<int> {
  protected:
    static block_spec spec()
    {
        block_spec b;
        b.server = "SERVER";
        b.time = {1700000000, 123456};
        b.mpulse = -42;
        b.ltotal = -5;
        b.tmask = 0x70000001;
        b.status = -3;
        return b;
    }
    void expect_read(generation g, int64_t mpulse, int64_t ltotal, size_t key_offset, size_t name_offset)
    {
        block_spec b = spec();
        b.mpulse = mpulse;
        b.ltotal = ltotal;
        placed_bytes placed(head_bytes(b, g), static_cast<size_t>(GetParam()));
        char* at = placed.at();
        EXPECT_EQ(get_bname_known(at), at + name_offset);
        EXPECT_STREQ(get_bname_known(at), "SERVER");
        EXPECT_EQ(reinterpret_cast<char*>(get_key_known(at)), at + key_offset);
        EXPECT_EQ(*get_key_known(at), (time_stamp{1700000000, 123456}));
        EXPECT_EQ(get_len_known(at), ltotal);
        EXPECT_EQ(get_trg_known(at), 0x70000001);
        EXPECT_EQ(get_sts_known(at), -3);
        EXPECT_EQ(get_evid_known(at), mpulse);
    }
};
INSTANTIATE_TEST_SUITE_P(Alignments, BmHeadReaders, testing::Range(0, 8));

TEST_P(BmHeadReaders, ReadA2010HeadWithItsSigns) { expect_read(generation::of_2010, -42, -5, 0, 16); }

TEST_P(BmHeadReaders, ReadA2024HeadIn64Bits)
{
    expect_read(generation::of_2024, 0x7123'4567'89AB'CDEF, 0x1'0000'0001, 24, 32);
    expect_read(generation::of_2024, -42, -5, 24, 32);
}

TEST_P(BmHeadReaders, TakeEveryOtherFirstWordFor2010)
{
    for (const uint64_t first : {uint64_t{0}, uint64_t{0xFBABBAFFFBABBAFE}, uint64_t{0xFF77FF77FF77FF77}}) {
        std::string bytes = head_bytes(spec(), generation::of_2010);
        std::memcpy(bytes.data(), &first, sizeof first);
        placed_bytes placed(bytes, static_cast<size_t>(GetParam()));
        EXPECT_EQ(reinterpret_cast<char*>(get_key_known(placed.at())), placed.at());
        EXPECT_EQ(get_evid_known(placed.at()), -42);
    }
}

} // namespace
