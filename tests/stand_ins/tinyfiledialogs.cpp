#include "tests/stand_ins/tinyfiledialogs.h"

#include <tinyfiledialogs.h>

#include <cstring>
#include <stdexcept>
#include <string>

int tinyfd_winUtf8 = 0;

namespace vx::test {

/// What the library keeps between calls.
class DialogLibrary {
 public:
  static DialogLibrary& instance() {
    static DialogLibrary library;
    return library;
  }

  void attach(ScriptedDialogs* dialogs) {
    if (dialogs != nullptr && dialogs_ != nullptr) {
      throw std::logic_error("one test scripts the dialogs at a time");
    }
    dialogs_ = dialogs;
  }

  void answerWith(const char* answer) {
    isCancelled_ = answer == nullptr;
    const std::string text = isCancelled_ ? "" : answer;
    if (text.size() >= sizeof answer_) {
      throw std::length_error("the answer is too long");
    }
    std::memset(answer_, '?', sizeof answer_);
    std::memcpy(answer_, text.c_str(), text.size() + 1);
  }

  void opens() {
    if (dialogs_ != nullptr && dialogs_->whileOpen) {
      dialogs_->whileOpen();
    }
  }

  void note(const std::string& line) {
    if (dialogs_ != nullptr) {
      dialogs_->calls_.push_back(line);
    }
  }

  void noteText(const std::string& name, const char* text) {
    note(name + (text == nullptr ? " null" : " <" + std::string(text) + ">"));
  }

  void notePatterns(int count, const char* const* patterns) {
    note("count " + std::to_string(count));
    if (patterns == nullptr) {
      note("patterns null");
      return;
    }
    for (int i = 0; i < count; ++i) {
      noteText("pattern", patterns[i]);
    }
  }

  char* answer() { return isCancelled_ ? nullptr : answer_; }

 private:
  ScriptedDialogs* dialogs_ = nullptr;
  bool isCancelled_ = true;
  char answer_[4096] = "";
};

ScriptedDialogs::ScriptedDialogs(const char* answer) {
  DialogLibrary::instance().attach(this);
  DialogLibrary::instance().answerWith(answer);
}

ScriptedDialogs::~ScriptedDialogs() {
  DialogLibrary::instance().attach(nullptr);
  DialogLibrary::instance().answerWith(nullptr);
}

void ScriptedDialogs::answer(const char* answer) {
  DialogLibrary::instance().answerWith(answer);
}

}  // namespace vx::test

using vx::test::DialogLibrary;

char* tinyfd_openFileDialog(const char* title, const char* path, int count,
                            const char* const* patterns, const char* description, int multiple) {
  DialogLibrary& library = DialogLibrary::instance();
  library.opens();
  library.note("open");
  library.noteText("title", title);
  library.noteText("path", path);
  library.notePatterns(count, patterns);
  library.noteText("description", description);
  library.note("multiple " + std::to_string(multiple));
  return library.answer();
}

char* tinyfd_saveFileDialog(const char* title, const char* path, int count,
                            const char* const* patterns, const char* description) {
  DialogLibrary& library = DialogLibrary::instance();
  library.opens();
  library.note("save");
  library.noteText("title", title);
  library.noteText("path", path);
  library.notePatterns(count, patterns);
  library.noteText("description", description);
  return library.answer();
}

char* tinyfd_selectFolderDialog(const char* title, const char* path) {
  DialogLibrary& library = DialogLibrary::instance();
  library.opens();
  library.note("folder");
  library.noteText("title", title);
  library.noteText("path", path);
  return library.answer();
}
