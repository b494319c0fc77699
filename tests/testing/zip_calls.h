// The calls that the library makes to miniz, in order and with their arguments, and their results
// where a test wants others than miniz's. A program that uses this passes ${ZIP_CALLS} to `vx_test`
// as WRAP.
//
//   ZipCalls calls;
//   calls.fail(ZipCall::WriterAddFile, 2);
//   ...
//   EXPECT_EQ(calls.all(), lines("zero_struct", "writer_init_file /tmp/a.zip 0", ...));

#pragma once

#include "core/vx_log.h"

#include <miniz.h>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vx::test {

enum class ZipCall {
  ZeroStruct,
  ReaderInitFile,
  GetNumFiles,
  GetFilename,
  IsFileSupported,
  IsFileADirectory,
  ExtractToFile,
  ReaderEnd,
  WriterInitFile,
  WriterAddFile,
  WriterFinalizeArchive,
  End,
};

/// Records while it lives; one at a time. Lines that are logged meanwhile stand between the calls.
class ZipCalls {
 public:
  ZipCalls();
  ZipCalls(const ZipCalls&) = delete;
  ZipCalls& operator=(const ZipCalls&) = delete;
  ~ZipCalls();

  /// The n-th call of `function`, counted from 1, fails. miniz is not called, except to end an
  /// archive: it is ended and the call fails all the same, so that a test leaks nothing.
  void fail(ZipCall function, int nth = 1);

  /// The n-th call of `function` gives `result`, and miniz is not called.
  void answer(ZipCall function, int nth, mz_uint result);

  /// `look` runs at the beginning of the n-th call of `function`.
  void before(ZipCall function, int nth, std::function<void()> look);

  /// Adds a line of the test's own.
  void note(std::string line);

  /// What has been called and logged, such as "reader_init_file /tmp/a.zip 0",
  /// "get_filename 0 null 0", "get_filename 0 buffer 6", "writer_add_file res/a /tmp/a null 0 1"
  /// and "error: ...". A call with another archive record than the one zeroed last says so at its
  /// end.
  [[nodiscard]] const std::vector<std::string>& all() const { return lines_; }

  /// The lines of `all` that begin with `word`.
  [[nodiscard]] std::vector<std::string> all(const std::string& word) const;

  /// Ends the archive that was opened last by a copy of its record, which shares what the record
  /// holds open. @return whether miniz had anything left to end.
  bool endWhatIsLeftOpen();

  // For the replaced functions.
  static ZipCalls* active() noexcept { return active_; }
  std::optional<mz_uint> enter(ZipCall function, const mz_zip_archive* zip, std::string line);
  void leave(const mz_zip_archive* zip) { copy_ = *zip; }

 private:
  using Key = std::pair<ZipCall, int>;

  static ZipCalls* active_;

  LogSink sinkBefore_;
  std::vector<std::string> lines_;
  std::map<ZipCall, int> counts_;
  std::map<Key, mz_uint> results_;
  std::map<Key, std::function<void()>> looks_;
  const mz_zip_archive* record_ = nullptr;
  mz_zip_archive copy_{};
};

}  // namespace vx::test
