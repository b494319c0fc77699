// SPDX-License-Identifier: MIT
//
// The most memory that this process has held so far, for a child that looks at what its work adds:
//
//   runInChild([&] {
//     const long before = peakKibibytes();
//     EXPECT_TRUE(vx::fs::copyFile("s", "d"));
//     EXPECT_LT(peakKibibytes() - before, kAllowedKibibytes);
//   });

#pragma once

#include <sys/resource.h>

namespace vx::test {

[[nodiscard]] inline long peakKibibytes() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;  // NOLINT(*-union-access): how the C library spells the field
}

}  // namespace vx::test
