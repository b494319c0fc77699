// SPDX-License-Identifier: MIT
//
// The values that getEnv returns.

#include "core/vx_env.h"

#include "tests/testing/error_state.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/scoped.h"
#include "tests/testing/texts.h"

#include <gtest/gtest.h>

#include <string>

namespace vx::test {
namespace {

using os::getEnv;

TEST(GetEnv, ReturnsEveryByteOfTheValue) {
  for (const std::string& value :
       {std::string("/home/somebody"), std::string(" a=b;$HOME\n\t\xC3\xA4\xFF "),
        std::string(100'000, 'x'), std::string()}) {
    const ScopedEnv variable("VX_TEST_VARIABLE", value);

    EXPECT_EQ(text(getEnv("VX_TEST_VARIABLE")), value);
  }
}

TEST(GetEnv, ReturnsTheEmptyStringIfTheVariableIsNotSet) {
  const ScopedEnv variable("VX_TEST_VARIABLE", nullptr);
  const LogCapture log;
  const ErrorStateSentinel sentinel;

  EXPECT_EQ(getEnv("VX_TEST_VARIABLE"), "");

  EXPECT_EQ(log.all(), lines());
  EXPECT_TRUE(sentinel.isUntouched());
}

TEST(GetEnv, ReturnsTheEmptyStringForAnotherName) {
  const ScopedEnv variable("VX_TEST_VARIABLE", "value");

  EXPECT_EQ(getEnv("VX_TEST_VARIABL"), "");
  EXPECT_EQ(getEnv("VX_TEST_VARIABLE_"), "");
  EXPECT_EQ(getEnv("vx_test_variable"), "");
  EXPECT_EQ(getEnv("VX_TEST_VARIABLE=value"), "");
  EXPECT_EQ(getEnv(""), "");
}

TEST(GetEnv, ReadsTheEnvironmentAtEachCall) {
  const ScopedEnv first("VX_TEST_VARIABLE", "first");
  const vx::String before = getEnv("VX_TEST_VARIABLE");
  const ScopedEnv second("VX_TEST_VARIABLE", "second");

  EXPECT_EQ(getEnv("VX_TEST_VARIABLE"), "second");
  EXPECT_EQ(before, "first");
}

}  // namespace
}  // namespace vx::test
