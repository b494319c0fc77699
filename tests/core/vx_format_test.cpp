// SPDX-License-Identifier: MIT
//
// std::format of the library's values, if the standard library has it.

#include "core/vx_format.h"

#include "core/vx_path.h"
#include "core/vx_string.h"

#include <gtest/gtest.h>

#include <version>

namespace {

#ifdef __cpp_lib_format

TEST(Format, FollowsTheSpecificationsOfText) {
  const vx::String wood("wood");

  EXPECT_EQ(std::format("{}", wood), "wood");
  EXPECT_EQ(std::format("{:>6}|{:.2}", wood, wood), "  wood|wo");
  EXPECT_EQ(std::format("<{}>", vx::String()), "<>");
  EXPECT_EQ(std::format("{:>6}", vx::Path("a/b", false)), "   a/b");
}

#else

TEST(Format, FollowsTheSpecificationsOfText) {
  GTEST_SKIP() << "the standard library has no std::format";
}

#endif

}  // namespace
