#include "tests/testing/stand_ins/tinyfiledialogs.h"

#include <tinyfiledialogs.h>

#include <algorithm>
#include <stdexcept>
#include <string_view>

int tinyfd_winUtf8 = 0;

namespace vx::test {

/// What the calls have in common.
class DialogLibrary {
 public:
  /// The dialogs of the running test, if any.
  static inline ScriptedDialogs* dialogs = nullptr;

  static void opens(const char* kind) {
    if (dialogs != nullptr && dialogs->whileOpen) {
      dialogs->whileOpen();
    }
    note(kind);
  }

  static void note(const std::string& line) {
    if (dialogs != nullptr) {
      dialogs->calls_.push_back(line);
    }
  }

  static void noteText(const std::string& name, const char* text) {
    note(name + (text == nullptr ? " null" : " <" + std::string(text) + ">"));
  }

  static void notePatterns(int count, const char* const* patterns) {
    note("count " + std::to_string(count));
    if (patterns == nullptr) {
      note("patterns null");
      return;
    }
    for (int i = 0; i < count; ++i) {
      noteText("pattern", patterns[i]);
    }
  }

  static char* answer() {
    return dialogs == nullptr || dialogs->isCancelled_ ? nullptr : dialogs->answer_.data();
  }
};

ScriptedDialogs::ScriptedDialogs(const char* answer) {
  if (DialogLibrary::dialogs != nullptr) {
    throw std::logic_error("the dialogs are scripted already");
  }
  this->answer(answer);
  DialogLibrary::dialogs = this;
}

ScriptedDialogs::~ScriptedDialogs() {
  DialogLibrary::dialogs = nullptr;
}

void ScriptedDialogs::answer(const char* answer) {
  isCancelled_ = answer == nullptr;
  const std::string_view text = isCancelled_ ? std::string_view() : answer;
  if (text.size() >= answer_.size()) {
    throw std::length_error("the answer is too long");
  }
  answer_.fill('\0');
  std::copy(text.begin(), text.end(), answer_.begin());
}

}  // namespace vx::test

using vx::test::DialogLibrary;

char* tinyfd_openFileDialog(const char* aTitle, const char* aDefaultPathAndOrFile,
                            int aNumOfFilterPatterns, const char* const* aFilterPatterns,
                            const char* aSingleFilterDescription, int aAllowMultipleSelects) {
  DialogLibrary::opens("open");
  DialogLibrary::noteText("title", aTitle);
  DialogLibrary::noteText("path", aDefaultPathAndOrFile);
  DialogLibrary::notePatterns(aNumOfFilterPatterns, aFilterPatterns);
  DialogLibrary::noteText("description", aSingleFilterDescription);
  DialogLibrary::note("multiple " + std::to_string(aAllowMultipleSelects));
  return DialogLibrary::answer();
}

char* tinyfd_saveFileDialog(const char* aTitle, const char* aDefaultPathAndOrFile,
                            int aNumOfFilterPatterns, const char* const* aFilterPatterns,
                            const char* aSingleFilterDescription) {
  DialogLibrary::opens("save");
  DialogLibrary::noteText("title", aTitle);
  DialogLibrary::noteText("path", aDefaultPathAndOrFile);
  DialogLibrary::notePatterns(aNumOfFilterPatterns, aFilterPatterns);
  DialogLibrary::noteText("description", aSingleFilterDescription);
  return DialogLibrary::answer();
}

char* tinyfd_selectFolderDialog(const char* aTitle, const char* aDefaultPath) {
  DialogLibrary::opens("folder");
  DialogLibrary::noteText("title", aTitle);
  DialogLibrary::noteText("path", aDefaultPath);
  return DialogLibrary::answer();
}
