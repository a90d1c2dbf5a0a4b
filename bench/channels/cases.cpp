#include "cases.h"

#include <cstdio>
#include <memory>

#include "bm_util.h"
#include "exchange.h"
#include "loops.h"
#include "turns.h"

namespace bench {
namespace {

/// Names of one system begin and end alike.
std::string fast_name(int i)
{
    char name[32];
    std::snprintf(name, sizeof name, "LINAC/BPM.%05d/X", i);
    return name;
}

/// As long as names can be, alike up to their end.
std::string slow_name(int i)
{
    char name[256];
    std::snprintf(name, sizeof name, "%0255d", i);
    return name;
}

const char* text_of(generation g) { return g == generation::of_2010 ? "2010" : "2024"; }

// The compiler may not know what a call found last time.
void forget() { asm volatile("" ::: "memory"); }

// ---- data channels --------------------------------------------------------------------------------------------------

/// The last channel of a block is searched for.
struct look_up {
    int channels;
    int data; ///< bytes of each, behind its sub-head
    generation form;

    std::string name() const
    {
        return "lookup/" + std::to_string(channels) + "/" + std::to_string(data) + "/" + text_of(form);
    }
    void write(zrk4::sb_write& block) const
    {
        const std::vector<char> bytes(static_cast<size_t>(data));
        for (int i = 0; i < channels; ++i)
            block.sub_block(fast_name(i), ZRK4_BLOCK_1CHAN_2010, bytes.data(), bytes.size());
    }
    size_t bytes() const
    {
        const size_t each = sizeof(zrk4_serv_block_subhead_2010) + static_cast<size_t>(data);
        return sizeof(zrk4_serv_block_head_2024) + static_cast<size_t>(channels) * each;
    }
};

char* find(const event& e, char* channel)
{
    if (e.form() == generation::of_2010) {
        return reinterpret_cast<char*>(
            get_fast_channel_data(e.slot_2010(), e.entries(), nullptr, channel, &e.bm(), nullptr));
    }
    return reinterpret_cast<char*>(
        get_fast_channel_data_2024(e.slot_2024(), e.entries(), nullptr, channel, &e.bm(), nullptr, nullptr));
}

/// `search` must find `expected` each time.
template <class Search> side search_for(const char* expected, Search search)
{
    return [=](int times) {
        for (int i = 0; i < times; ++i) {
            forget();
            require(search() == expected, "a search found something else");
        }
    };
}

std::vector<side> sides_of(const event& e, char* wanted, int channels, int repeated)
{
    char* const first = e.first_sub_block();
    const char* const expected = plain_loop(first, channels, wanted);
    require(expected != nullptr, "the block does not have its last channel");
    const auto program = e.form() == generation::of_2010 ? plain_loop_2010 : plain_loop_2024;
    return {search_for(expected,
                       [=, &e] {
                           for (int i = 1; i < repeated; ++i) find(e, wanted);
                           return find(e, wanted);
                       }),
            search_for(expected, [=, &e] { return program(e.entries(), e.bm(), wanted); }),
            search_for(expected, [=] { return plain_loop(first, channels, wanted); })};
}

measured_case case_of(reader_host& host, const look_up& what, const pace& p)
{
    const auto e = std::make_shared<event>(host, what.form, ZRK4_EV_NORMAL, what.name(), what.bytes(),
                                           [&](zrk4::sb_write& block) { what.write(block); });
    const auto measure = [=](int round, const proof::record& out) {
        e->show();
        std::string wanted = fast_name(what.channels - 1);
        const auto ps = in_turns(sides_of(*e, wanted.data(), what.channels, p.repeated), round, p.case_ns, p.batch_ns);
        out.line("lookup", "round=%d channels=%d data=%d reader=%s call_ps=%ld program_ps=%ld loop_ps=%ld", round,
                 what.channels, what.data, text_of(what.form), ps[0] / what.channels, ps[1] / what.channels,
                 ps[2] / what.channels);
    };
    return {what.name(), measure};
}

// ---- slow channels --------------------------------------------------------------------------------------------------

/// The last channel of a dictionary is asked for.
struct query {
    int channels;
    bool merged; ///< each time in an event that brings all values anew

    std::string name() const { return "query/" + std::to_string(channels) + (merged ? "/merged" : "/alone"); }
    void write(zrk4::sb_write& block) const
    {
        block.dictionary("DICTIONARY");
        for (int i = 0; i < channels; ++i) block.dictionary_entry(slow_name(i), i);
        block.environment("ENVIRONMENT");
        for (int i = 0; i < channels; ++i) block.environment_value(i, {1700000000, 1}, static_cast<float>(i));
    }
    size_t bytes() const
    {
        constexpr size_t EACH = sizeof(zrk4_dict_data_block_2010) + sizeof(zrk4_env_data_block_2010);
        return sizeof(zrk4_serv_block_head_2024) + 2 * sizeof(zrk4_serv_block_subhead_2010) +
               static_cast<size_t>(channels) * EACH;
    }
};

float ask(const event& e, const std::string& channel)
{
    float value = -1;
    const int failed =
        get_slow_channel_data(e.slot_2024(), e.entries(), channel.c_str(), &e.bm(), nullptr, nullptr, &value);
    require(failed == 0, "a slow channel was not found");
    return value;
}

measured_case case_of(reader_host& host, const query& what, const pace& p)
{
    const auto e = std::make_shared<event>(host, generation::of_2024, ZRK4_EV_HB, what.name(), what.bytes(),
                                           [&](zrk4::sb_write& block) { what.write(block); });
    const auto measure = [=](int round, const proof::record& out) {
        const std::string wanted = slow_name(what.channels - 1);
        const auto expected = static_cast<float>(what.channels - 1);
        bm_util_init();
        e->show();
        require(ask(*e, wanted) == expected, "a slow channel has another value");
        if (!what.merged) e->show(/*blocks=*/0);
        const char* const names = local_dict_copy_ + sizeof(zrk4_serv_block_subhead_2010);
        const auto query_it = [&](int times) {
            for (int i = 0; i < times; ++i) require(ask(*e, wanted) == expected, "a slow channel has another value");
        };
        const auto compare_all = [&](int times) {
            for (int i = 0; i < times; ++i) {
                forget();
                const int equal =
                    compare_names(names, sizeof(zrk4_dict_data_block_2010), what.channels, wanted.c_str());
                require(equal == 1, "a name is not once in the dictionary");
            }
        };
        const auto ps = in_turns({query_it, compare_all}, round, p.case_ns, p.batch_ns);
        out.line("query", "round=%d channels=%d event=%s query_ps=%ld names_ps=%ld", round, what.channels,
                 what.merged ? "merged" : "alone", ps[0], ps[1]);
    };
    return {what.name(), measure};
}

} // namespace

std::vector<measured_case> all_cases(reader_host& host, const pace& p)
{
    std::vector<measured_case> cases;
    for (const int data : {8, 1024}) {
        for (const int channels : {1, 16, 256, 4096}) {
            for (const generation form : {generation::of_2010, generation::of_2024})
                cases.push_back(case_of(host, look_up{channels, data, form}, p));
        }
    }
    for (const int channels : {1000, 10000}) {
        for (const bool merged : {false, true}) cases.push_back(case_of(host, query{channels, merged}, p));
    }
    return cases;
}

} // namespace bench
