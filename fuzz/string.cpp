// SPDX-License-Identifier: MIT
//
// Compares vx::String and vx::StringVector with std::string and std::vector. Runs random operations
// on a few handles that share their bytes. After each operation every handle must equal its
// counterpart from the standard library, so that a change of shared bytes is detected at once.

#include "core/vx_string.h"
#include "core/vx_string_vector.h"
#include "fuzz/support/input.h"
#include "fuzz/support/law.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vx::fuzz {
namespace {

constexpr std::string_view kAlphabet{"aAzZ@[`{ \t|:/.*\0\xc3\x84", 18};
constexpr std::size_t kLongestText = 40;
constexpr std::size_t kLongestHandle = 4096;
constexpr std::size_t kMostElements = 64;
constexpr std::size_t kMostSteps = 128;

char lowered(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string lowered(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](char c) { return lowered(c); });
  return text;
}

std::string trimmed(const std::string& text) {
  const std::string_view space = " \t\n\v\f\r";
  std::string rest = text;
  while (!rest.empty() && space.find(rest.front()) != std::string_view::npos) {
    rest.erase(rest.begin());
  }
  while (!rest.empty() && space.find(rest.back()) != std::string_view::npos) {
    rest.pop_back();
  }
  return rest;
}

std::vector<std::string> pieces(const std::string& text, char separator, bool skipEmpty,
                                bool trim) {
  std::vector<std::string> found(1);
  for (const char c : text) {
    if (c == separator) {
      found.emplace_back();
    } else {
      found.back() += c;
    }
  }
  if (trim) {
    std::transform(found.begin(), found.end(), found.begin(), trimmed);
  }
  if (skipEmpty) {
    std::erase(found, std::string());
  }
  return found;
}

std::string replaced(std::string text, char from, char to, bool firstOnly, bool ignoreCase) {
  for (char& c : text) {
    if (c == from || (ignoreCase && lowered(c) == lowered(from))) {
      c = to;
      if (firstOnly) {
        break;
      }
    }
  }
  return text;
}

/// Returns the text up to its first NUL.
std::string untilNul(const std::string& text) {
  return text.substr(0, text.find('\0'));
}

int sign(int number) {
  return std::clamp(number, -1, 1);
}

/// A handle and its counterpart.
struct Text {
  String ours;
  std::string theirs;
};

struct List {
  StringVector ours;
  std::vector<std::string> theirs;
};

void expectSame(std::string_view what, const String& ours, const std::string& theirs) {
  expectEqual(what, ours.view(), theirs);
  expect("buf() ends in NUL", ours.buf()[ours.length()] == '\0', theirs);
  expect("isEmpty() is length() == 0", ours.isEmpty() == theirs.empty(), theirs);
}

void expectSame(std::string_view what, const StringVector& ours,
                const std::vector<std::string>& theirs) {
  expectEqual(what, ours.size(), theirs.size(), "size()");
  expect("empty() is size() == 0", ours.empty() == theirs.empty());
  std::size_t index = 0;
  for (const String& element : ours) {
    expectSame(what, element, theirs[index]);
    expectSame("operator[] gives the element", ours[index], theirs[index]);
    ++index;
  }
  expectSame("the element past the end is empty", ours[theirs.size()], "");
  expectSame("front() is the first element", ours.front(), theirs.empty() ? "" : theirs.front());
}

class Pool {
 public:
  explicit Pool(Input& input) : input_(input) {}

  void step() {
    constexpr std::array kOperations{
        &Pool::makeFromText,  &Pool::makeFromPointer, &Pool::makeFromNull,
        &Pool::copy,          &Pool::copyConstruct,   &Pool::move,
        &Pool::swap,          &Pool::assignPointer,   &Pool::assignOwnTail,
        &Pool::appendPointer, &Pool::appendHandle,    &Pool::appendOwnTail,
        &Pool::concatenate,   &Pool::compare,         &Pool::search,
        &Pool::cut,           &Pool::replace,         &Pool::split,
        &Pool::makeList,      &Pool::copyList,        &Pool::moveList,
        &Pool::pushBack,      &Pool::pushBackOwn,     &Pool::takeElement,
        &Pool::join,
    };
    (this->*input_.oneOf(kOperations))();
    for (const Text& text : texts_) {
      expectSame("a handle keeps its text", text.ours, text.theirs);
    }
    for (const List& list : lists_) {
      expectSame("a handle keeps its elements", list.ours, list.theirs);
    }
  }

 private:
  Text& anyText() { return texts_.at(input_.below(texts_.size())); }
  List& anyList() { return lists_.at(input_.below(lists_.size())); }
  std::string freshText() { return input_.text(kAlphabet, kLongestText); }
  char anyChar() { return kAlphabet[input_.below(kAlphabet.size())]; }

  /// Clears a text that has grown too long, so that steps remain fast.
  static void shorten(Text& text) {
    if (text.theirs.size() > kLongestHandle) {
      text = {};
    }
  }

  void makeFromText() {
    const std::string made = freshText();
    anyText() = {String(std::string_view(made)), made};
  }

  void makeFromPointer() {
    const std::string made = freshText();
    const std::size_t length = input_.below(made.size() + 1);
    anyText() = {String(made.c_str(), length),
                 length == 0 ? untilNul(made) : made.substr(0, length)};
  }

  void makeFromNull() { anyText() = {String(nullptr, input_.below(4)), ""}; }

  void copy() {
    Text& to = anyText();
    const Text& from = anyText();
    to.ours = from.ours;
    to.theirs = from.theirs;
  }

  void copyConstruct() {
    const Text& from = anyText();
    const String made(from.ours);
    expect("a copy shares the bytes", made.buf() == from.ours.buf());
    expectSame("a copy has the same text", made, from.theirs);
  }

  void move() {
    Text& to = anyText();
    Text& from = anyText();
    if (&to == &from) {
      return;
    }
    to.ours = std::move(from.ours);
    to.theirs = std::exchange(from.theirs, {});
  }

  void swap() {
    Text& a = anyText();
    Text& b = anyText();
    std::swap(a.ours, b.ours);
    std::swap(a.theirs, b.theirs);
  }

  void assignPointer() {
    Text& to = anyText();
    if (input_.flag()) {
      const char* const null = nullptr;
      to.ours = null;
      to.theirs.clear();
      return;
    }
    const std::string made = freshText();
    to.ours = made.c_str();
    to.theirs = untilNul(made);
  }

  void assignOwnTail() {
    Text& to = anyText();
    const std::size_t start = input_.below(to.theirs.size() + 1);
    to.ours = to.ours.buf() + start;
    to.theirs = untilNul(to.theirs.substr(start));
  }

  void appendPointer() {
    Text& to = anyText();
    if (input_.below(8) == 0) {
      const char* const null = nullptr;
      to.ours << null;
      return;
    }
    const std::string made = freshText();
    to.ours << made.c_str() << "";
    to.theirs += untilNul(made);
    shorten(to);
  }

  void appendHandle() {
    Text& to = anyText();
    const Text& added = anyText();
    to.ours << added.ours;
    to.theirs += std::string(added.theirs);
    shorten(to);
  }

  void appendOwnTail() {
    Text& to = anyText();
    const std::size_t start = input_.below(to.theirs.size() + 1);
    to.ours << to.ours.buf() + start;
    to.theirs += untilNul(to.theirs.substr(start));
    shorten(to);
  }

  void concatenate() {
    Text& to = anyText();
    const Text& first = anyText();
    const Text& second = anyText();
    const bool asPointer = input_.flag();
    const std::string sum = first.theirs + (asPointer ? untilNul(second.theirs) : second.theirs);
    const String ours = asPointer ? first.ours + second.ours.buf() : first.ours + second.ours;
    to = {ours, sum};
    shorten(to);
  }

  void compare() {
    const Text& a = anyText();
    const Text& b = anyText();
    expectEqual("== compares the bytes", a.ours == b.ours, a.theirs == b.theirs, a.theirs);
    expectEqual("!= is not ==", a.ours != b.ours, a.theirs != b.theirs, a.theirs);
    expectEqual("< is the order of the bytes", a.ours < b.ours, a.theirs < b.theirs, a.theirs);
    expectEqual("== with a pointer compares up to its NUL", a.ours == b.theirs.c_str(),
                a.theirs == untilNul(b.theirs), a.theirs);
    expectEqual("compareNoCase compares the lowercase bytes", sign(a.ours.compareNoCase(b.ours)),
                sign(lowered(a.theirs).compare(lowered(b.theirs))), a.theirs + "|" + b.theirs);
    expectEqual("the hash is that of the bytes", std::hash<String>{}(a.ours),
                std::hash<std::string_view>{}(a.theirs), a.theirs);
    std::ostringstream stream;
    stream << a.ours;
    expectEqual("operator<< writes the bytes", stream.str(), a.theirs);
  }

  void search() {
    const Text& text = anyText();
    // A part of the text, possibly in lower case, matches more often than a random text.
    std::string part = freshText();
    if (input_.flag()) {
      const std::size_t length = input_.below(text.theirs.size() + 1);
      part = input_.flag() ? text.theirs.substr(0, length)
                           : text.theirs.substr(text.theirs.size() - length);
      part = input_.flag() ? lowered(part) : part;
    }
    const String ours{std::string_view(part)};
    const std::string low = lowered(text.theirs);
    const std::string lowPart = lowered(part);
    const std::string detail = text.theirs + "|" + part;
    expectEqual("startsWith", text.ours.startsWith(ours, false), text.theirs.starts_with(part),
                detail);
    expectEqual("startsWith, any case", text.ours.startsWith(ours, true), low.starts_with(lowPart),
                detail);
    expectEqual("endsWith", text.ours.endsWith(ours, false), text.theirs.ends_with(part), detail);
    expectEqual("endsWith, any case", text.ours.endsWith(ours, true), low.ends_with(lowPart),
                detail);
  }

  void cut() {
    Text& to = anyText();
    const Text& from = anyText();
    const char separator = anyChar();
    const bool keep = input_.flag();
    const std::size_t last = from.theirs.rfind(separator);
    const std::string tail =
        last == std::string::npos ? from.theirs : from.theirs.substr(keep ? last : last + 1);
    to = {from.ours.fromLast(separator, keep), tail};
  }

  void replace() {
    Text& to = anyText();
    const Text& from = anyText();
    const char was = anyChar();
    const char becomes = anyChar();
    const bool firstOnly = input_.flag();
    const bool ignoreCase = input_.flag();
    to = {from.ours.replace(was, becomes, firstOnly, ignoreCase),
          replaced(from.theirs, was, becomes, firstOnly, ignoreCase)};
  }

  void split() {
    List& to = anyList();
    const Text& from = anyText();
    const char separator = anyChar();
    const bool skipEmpty = input_.flag();
    const bool trim = input_.flag();
    to = {from.ours.split(separator, skipEmpty, trim),
          pieces(from.theirs, separator, skipEmpty, trim)};
    shorten(to);
  }

  static void shorten(List& list) {
    if (list.theirs.size() > kMostElements) {
      list = {};
    }
  }

  void makeList() {
    const Text& a = anyText();
    const Text& b = anyText();
    List& to = anyList();
    switch (input_.below(4)) {
      case 0:
        to = {};
        break;
      case 1:
        to = {{a.ours}, {a.theirs}};
        break;
      case 2:
        to = {{a.ours, b.ours}, {a.theirs, b.theirs}};
        break;
      default:
        to = {{a.ours, b.ours, a.ours}, {a.theirs, b.theirs, a.theirs}};
        break;
    }
  }

  void copyList() {
    List& to = anyList();
    const List& from = anyList();
    to.ours = from.ours;
    to.theirs = from.theirs;
    expect("a copied list shares its elements", to.ours.begin() == from.ours.begin());
  }

  void moveList() {
    List& to = anyList();
    List& from = anyList();
    if (&to == &from) {
      return;
    }
    to.ours = std::move(from.ours);
    to.theirs = std::exchange(from.theirs, {});
  }

  void pushBack() {
    List& to = anyList();
    const Text& added = anyText();
    to.ours.push_back(added.ours);
    to.theirs.push_back(added.theirs);
    shorten(to);
  }

  void pushBackOwn() {
    List& to = anyList();
    if (to.theirs.empty()) {
      return;
    }
    const std::size_t index = input_.below(to.theirs.size());
    to.ours.push_back(to.ours.begin()[index]);
    to.theirs.emplace_back(to.theirs[index]);
    shorten(to);
  }

  void takeElement() {
    Text& to = anyText();
    const List& from = anyList();
    const std::size_t index = input_.below(from.theirs.size() + 2);
    to = {from.ours[index], index < from.theirs.size() ? from.theirs[index] : ""};
  }

  void join() {
    Text& to = anyText();
    const List& from = anyList();
    const Text& separator = anyText();
    std::string joined;
    for (std::size_t i = 0; i < from.theirs.size(); ++i) {
      joined += (i == 0 ? "" : separator.theirs) + from.theirs[i];
    }
    to = {from.ours.join(separator.ours), joined};
    shorten(to);
  }

  Input& input_;
  std::array<Text, 5> texts_;
  std::array<List, 3> lists_;
};

}  // namespace
}  // namespace vx::fuzz

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  vx::fuzz::Input input(data, size);
  vx::fuzz::Pool pool(input);
  for (std::size_t i = 0; i < vx::fuzz::kMostSteps && !input.isSpent(); ++i) {
    pool.step();
  }
  return 0;
}
