// What the code under test asks of the file system, question by question.
//
//   RecordedQuestions questions;
//   EXPECT_EQ(text(vx::fs::resolvePath("", {"a"}, {"png"})), "");
//   EXPECT_EQ(questions.asked(), lines());
//
// A program that uses it wraps the symbols stat, realpath and getcwd.

#pragma once

#include <string>
#include <vector>

namespace vx::test {

/// Records the questions that are asked while it lives, one at a time, by this program's own code;
/// those of the libraries that it loads, the standard library's included, are not seen.
class RecordedQuestions {
 public:
  RecordedQuestions();
  RecordedQuestions(const RecordedQuestions&) = delete;
  RecordedQuestions& operator=(const RecordedQuestions&) = delete;
  ~RecordedQuestions();

  /// Makes the status of `path`, in exactly this spelling, be answered with ENOENT.
  void hide(std::string path);

  /// Makes the next question for the current directory be answered with ENOENT.
  void hideCurrentDirOnce();

  /// The questions so far, in order: "stat PATH", "realpath PATH", "getcwd".
  [[nodiscard]] const std::vector<std::string>& asked() const { return asked_; }

  /// The paths of which the status has been asked so far, in order.
  [[nodiscard]] std::vector<std::string> statPaths() const;

 private:
  friend struct RecordedQuestionsAccess;

  std::vector<std::string> asked_;
  std::vector<std::string> hidden_;
  bool hidesCurrentDir_ = false;
};

}  // namespace vx::test
