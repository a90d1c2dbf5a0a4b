// One name among many fields of 256 characters.
#include "name_query.h"

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "sub_blocks.h"

using zrk4::impl::name_query;

namespace {

/// A field that ends where the sanitizer's guard does.
std::vector<char> field_of(const std::string& name)
{
    std::vector<char> field(name_query::FIELD);
    zrk4::test::put_name(field.data(), name);
    return field;
}

bool equal(const std::string& name, const std::vector<char>& field)
{
    return std::strncmp(name.c_str(), field.data(), name_query::FIELD) == 0;
}

/// Names over two letters: many pairs are alike but for one place, or one is the beginning of the other.
std::string random_name(std::mt19937& random)
{
    static constexpr size_t LENGTHS[] = {0, 1, 6, 7, 8, 9, 15, 16, 17, 24, 100, 254, 255, 256, 300};
    std::string name(LENGTHS[random() % std::size(LENGTHS)], 'a');
    for (size_t changes = random() % 3; changes > 0 && !name.empty(); --changes) name[random() % name.size()] = 'b';
    return name;
}

} // namespace

// A query looks at another place after every field that it took for the name at first: the answer may not depend on it.
TEST(NameQuery, AnswersLikeAComparisonOver256CharactersWhateverItSawBefore)
{
    std::mt19937 random(1);
    for (int i = 0; i < 3000; ++i) {
        const std::string name = random_name(random);
        name_query query(name.c_str());
        for (int k = 0; k < 20; ++k) {
            const std::string other = random() % 4 == 0 ? name : random_name(random);
            const std::vector<char> field = field_of(other);
            ASSERT_EQ(query.matches(field.data()), equal(name, field)) << '"' << name << "\" \"" << other << '"';
        }
    }
}

TEST(NameQuery, FindsTheNameAmongOthersThatDifferInOnePlaceEach)
{
    for (const size_t length : {1, 7, 8, 9, 20, 255, 256}) {
        const std::string name(length, 'a');
        name_query query(name.c_str());
        for (size_t i = 0; i < length; ++i) {
            std::string other = name;
            other[i] = 'b';
            EXPECT_FALSE(query.matches(field_of(other).data())) << length << ' ' << i;
            EXPECT_TRUE(query.matches(field_of(name).data())) << length << ' ' << i;
        }
    }
}

TEST(NameQuery, ReadsNoMoreOfTheNameThanItHas)
{
    for (const size_t length : {0, 1, 6, 7, 8, 15}) {
        const std::vector<char> name(length + 1, '\0'); // the sanitizer's guard stands behind its NUL
        name_query query(name.data());
        EXPECT_TRUE(query.matches(field_of("").data()));
        EXPECT_FALSE(query.matches(field_of("x").data()));
    }
    const std::vector<char> full(name_query::FIELD, 'x');
    name_query query(full.data());
    EXPECT_TRUE(query.matches(full.data()));
}
