#include "SysError.h"

#include <cerrno>
#include <type_traits>

#include <gtest/gtest.h>

namespace {

static_assert(std::is_base_of_v<std::runtime_error, SysError>);
static_assert(std::has_virtual_destructor_v<SysError>);
static_assert(std::is_default_constructible_v<SysError>);
static_assert(!std::is_constructible_v<SysError, const char*> && !std::is_constructible_v<SysError, int>);

TEST(SysError, CarriesTheTextOfErrnoAsItWasWhenMade)
{
    errno = EIDRM;
    const SysError removed;
    errno = EINVAL;
    EXPECT_STREQ(removed.what(), "Identifier removed");
    EXPECT_STREQ(SysError().what(), "Invalid argument");
}

TEST(SysError, IsCaughtAsARuntimeError) { EXPECT_THROW(throw SysError(), std::runtime_error); }

} // namespace
