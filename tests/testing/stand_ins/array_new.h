// Arrays as they are allocated and freed, noted by replacing the global new[] and delete[].
//
//   const ArrayNewLog arrays;
//   delete[] new char[3];
//   EXPECT_EQ(arrays.events(), lines("new 3", "delete 3"));
//
// Link array_new.cpp into the test program.

#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace vx::test {

/// Notes what the process allocates and frees while the log lives; one at a time.
class ArrayNewLog {
 public:
  ArrayNewLog();
  ArrayNewLog(const ArrayNewLog&) = delete;
  ArrayNewLog& operator=(const ArrayNewLog&) = delete;
  ~ArrayNewLog();

  /// In order: "new N" and "delete N", N being the size in bytes. An array from before the log's
  /// time is "delete ?". Null pointers are left out.
  [[nodiscard]] std::vector<std::string> events() const;

  /// What the replaced operators report.
  static void note(void* address, std::size_t size, bool isNew);

 private:
  struct Event {
    void* address;
    std::size_t size;
    bool isNew;
  };

  [[nodiscard]] std::string sizeOfDeleted(std::size_t event) const;

  std::vector<Event> events_;
};

}  // namespace vx::test
