// SPDX-License-Identifier: MIT
//
// Archives that the library leaves open.
//
// When a callback throws, or the end of an archive cannot be written, the library's record of the
// archive stays allocated and its file open: that is documented, and a leak on purpose.

#pragma once

#if defined(__SANITIZE_ADDRESS__)
#define VX_TEST_HAS_LEAK_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VX_TEST_HAS_LEAK_SANITIZER 1
#endif
#endif

#if defined(VX_TEST_HAS_LEAK_SANITIZER)
#include <sanitizer/lsan_interface.h>
#endif

namespace vx::test {

/// Tells the leak sanitizer, where there is one, that what is allocated while this lives may stay.
class ArchiveIsLeftOpen {
 public:
  ArchiveIsLeftOpen() {
#if defined(VX_TEST_HAS_LEAK_SANITIZER)
    __lsan_disable();
#endif
  }
  ArchiveIsLeftOpen(const ArchiveIsLeftOpen&) = delete;
  ArchiveIsLeftOpen& operator=(const ArchiveIsLeftOpen&) = delete;
  ~ArchiveIsLeftOpen() {
#if defined(VX_TEST_HAS_LEAK_SANITIZER)
    __lsan_enable();
#endif
  }
};

}  // namespace vx::test
