// Concern: what the environment answers for a variable in each of its states.

#include "core/vx_env.h"

#include "tests/testing/error_state.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/scoped_env.h"
#include "tests/testing/texts.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using vx::String;
using vx::os::getEnv;
using vx::test::ErrorStateSentinel;
using vx::test::lines;
using vx::test::LogCapture;
using vx::test::ScopedEnv;
using vx::test::text;

constexpr const char* kVariable = "VX_TEST_VARIABLE";

TEST(GetEnv, GivesTheValueOfAVariable) {
  const ScopedEnv variable(kVariable, "/home/somebody");

  EXPECT_EQ(getEnv(kVariable), "/home/somebody");
}

TEST(GetEnv, GivesTheEmptyStringForAVariableThatIsNotSet) {
  const ScopedEnv variable(kVariable, nullptr);

  const String value = getEnv(kVariable);

  EXPECT_TRUE(value.isEmpty());
  EXPECT_STREQ(value.buf(), "");
}

TEST(GetEnv, GivesTheEmptyStringForAVariableThatIsSetToNothing) {
  const ScopedEnv variable(kVariable, "");

  EXPECT_TRUE(getEnv(kVariable).isEmpty());
}

TEST(GetEnv, GivesEveryByteOfAValue) {
  const std::string odd = " a=b;$HOME\n\t\xC3\xA4\xFF ";
  const ScopedEnv variable(kVariable, odd);

  EXPECT_EQ(text(getEnv(kVariable)), odd);
}

TEST(GetEnv, GivesLongValuesWhole) {
  const std::string longValue(100'000, 'x');
  const ScopedEnv variable(kVariable, longValue);

  EXPECT_EQ(text(getEnv(kVariable)), longValue);
}

TEST(GetEnv, AsksEachTimeAnew) {
  const ScopedEnv first(kVariable, "first");
  const String before = getEnv(kVariable);
  const ScopedEnv second(kVariable, "second");

  EXPECT_EQ(getEnv(kVariable), "second");
  EXPECT_EQ(before, "first");
}

TEST(GetEnv, TakesTheWholeNameForTheName) {
  const ScopedEnv variable(kVariable, "value");

  EXPECT_EQ(getEnv("VX_TEST_VARIABL"), "");
  EXPECT_EQ(getEnv("VX_TEST_VARIABLE_"), "");
  EXPECT_EQ(getEnv("vx_test_variable"), "");
  EXPECT_EQ(getEnv("VX_TEST_VARIABLE=value"), "");
  EXPECT_EQ(getEnv(""), "");
}

TEST(GetEnv, NeitherLogsNorTouchesTheErrorState) {
  const ScopedEnv variable(kVariable, nullptr);
  const LogCapture log;
  const ErrorStateSentinel sentinel;

  EXPECT_EQ(getEnv(kVariable), "");

  EXPECT_EQ(log.all(), lines());
  EXPECT_TRUE(sentinel.isUntouched());
}

}  // namespace
