// SPDX-License-Identifier: MIT
//
// The text operations, each flag in both values, and copies that do not see each other's changes.
// vx_string_allocation_test.cpp counts the allocations.

#include "core/vx_string.h"

#include "core/vx_string_vector.h"
#include "tests/testing/scoped.h"
#include "tests/testing/temp_dir.h"
#include "tests/testing/texts.h"

#include <gtest/gtest.h>

#include <array>
#include <cctype>
#include <clocale>
#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iomanip>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_set>
#include <utility>

#include <langinfo.h>

namespace vx::test {
namespace {

using namespace std::string_view_literals;

// ---- What the compiler takes and refuses -------------------------------------------------------

static_assert(std::is_convertible_v<const char*, String>);
static_assert(std::is_convertible_v<char*, String>);
static_assert(std::is_convertible_v<std::nullptr_t, String>);
static_assert(std::is_constructible_v<String, const char*, std::size_t>);
static_assert(!std::is_convertible_v<String, const char*>);
static_assert(!std::is_convertible_v<String, bool>);

// Conversions between a string and the standard's types are explicit: an implicit one would make
// comparisons and concatenations with them ambiguous.
static_assert(std::is_constructible_v<String, std::string_view>);
static_assert(std::is_constructible_v<String, std::string>);
static_assert(std::is_constructible_v<std::string_view, String>);
static_assert(std::is_constructible_v<std::string, String>);
static_assert(!std::is_convertible_v<std::string_view, String>);
static_assert(!std::is_convertible_v<std::string, String>);
static_assert(!std::is_convertible_v<String, std::string_view>);
static_assert(!std::is_convertible_v<String, std::string>);

template <class Text>
struct TextOperations {
  // A literal 0 is no text.
  static_assert(!requires { Text(0); });
  static_assert(!requires(Text s) { s = 0; });
  static_assert(!requires(Text s) { s << 0; });
  static_assert(!requires(Text s) { s += 0; });
  static_assert(!requires(Text s) { s + 0; });
  static_assert(!requires(Text s) { 0 + s; });
  static_assert(!requires(Text s) { s == 0; });
  static_assert(!requires(Text s) { 0 == s; });
  static_assert(!requires(Text s) { s < 0; });
  static_assert(!requires { StringVector{Text("x"), 0}; });
  // `true` is no length, and a text no flag.
  static_assert(!requires { Text("abc", true); });
  static_assert(!requires(Text s) { s.startsWith("a", "b"); });
  static_assert(!requires(Text s) { s.endsWith("a", "b"); });
};
template struct TextOperations<String>;

// `nullptr` is the empty text, and a literal 0 a length.
template <class Text>
concept TakesNull = requires(Text s) {
  Text(nullptr);
  Text(nullptr, 3);
  Text("", 0);
  s = nullptr;
  s << nullptr;
  s += nullptr;
  s + nullptr;
  nullptr + s;
  s == nullptr;
  s < nullptr;
};
static_assert(TakesNull<String>);

// A temporary cannot be assigned to: functions return copies.
template <class Target>
concept TakesAppended = requires(Target&& target) {
  std::forward<Target>(target) += "a";
};
static_assert(std::is_assignable_v<String&, const char*> && TakesAppended<String&>);
static_assert(!std::is_assignable_v<String, const char*> && !TakesAppended<String>);
static_assert(!std::is_assignable_v<String, const String&>);
static_assert(!std::is_assignable_v<String, String>);

static_assert(std::totally_ordered<String>);
static_assert(std::is_same_v<std::compare_three_way_result_t<String>, std::strong_ordering>);

static_assert(std::is_nothrow_move_constructible_v<String>);
static_assert(std::is_nothrow_move_assignable_v<String>);
static_assert(std::is_nothrow_copy_constructible_v<String>);
static_assert(std::is_nothrow_copy_assignable_v<String>);
static_assert(noexcept(std::declval<const String&>().buf()));
static_assert(noexcept(std::declval<const String&>().length()));
static_assert(noexcept(std::declval<const String&>().view()));
static_assert(noexcept(std::declval<const String&>().isEmpty()));

template <class Result, class Wanted>
constexpr bool isExactly = std::is_same_v<Result, Wanted>;

static_assert(isExactly<decltype(std::declval<String&>() = "a"), String&>);
static_assert(isExactly<decltype(std::declval<String&>() << "a"), String&>);
static_assert(isExactly<decltype(std::declval<String&>() << String()), String&>);
static_assert(isExactly<decltype(std::declval<const String&>().buf()), const char*>);
static_assert(isExactly<decltype(std::declval<const String&>().length()), std::size_t>);
static_assert(isExactly<decltype(std::declval<const String&>().view()), std::string_view>);
static_assert(isExactly<decltype(std::declval<const String&>().compareNoCase(String())), int>);
static_assert(isExactly<decltype(std::declval<const String&>() + "a"), String>);
static_assert(isExactly<decltype(std::declval<const String&>() + String()), String>);

String bytes(std::string_view content) {
  return String(content);
}

std::string alphabet(std::size_t length) {
  std::string letters;
  for (std::size_t i = 0; i < length; ++i) {
    letters += static_cast<char>('a' + i % 26);
  }
  return letters;
}

String withRoomToSpare(const char* content) {
  String value("x");
  value << alphabet(100).c_str();
  value = content;
  return value;
}

// ---- Making strings ----------------------------------------------------------------------------

TEST(String_Construct, IsEmptyFromNothing) {
  const char* const null = nullptr;
  const String made[] = {String(),        "",
                         String("", 0),   null,
                         String(null, 3), String(std::string_view()),
                         nullptr,         String("abc"sv.substr(3))};
  for (const String& empty : made) {
    SCOPED_TRACE(&empty - made);
    EXPECT_TRUE(empty.isEmpty());
    EXPECT_EQ(empty.length(), 0U);
    EXPECT_STREQ(empty.buf(), "");
    EXPECT_EQ(empty, String());
  }
}

TEST(String_Construct, TakesLengthOrStopsAtNul) {
  const std::array<char, 3> unterminated = {'a', 'b', 'c'};

  EXPECT_STREQ(String(unterminated.data(), 2).buf(), "ab");
  EXPECT_EQ(String("a\0b", 0), "a"sv);
  EXPECT_EQ(String("abc", 1), "a"sv);
  EXPECT_EQ(String("a\0b", 3), "a\0b"sv);
  EXPECT_EQ(String("\0", 1), "\0"sv);
  EXPECT_EQ(String("a\0b\0"sv), "a\0b\0"sv);
  EXPECT_FALSE(String("\0"sv).isEmpty());
}

TEST(String_Construct, KeepsEveryByte) {
  std::string every;
  for (int byte = 0; byte < 256; ++byte) {
    every += static_cast<char>(byte);
  }

  const String made{std::string_view(every)};

  EXPECT_EQ(made.length(), 256U);
  EXPECT_EQ(made, every);
  EXPECT_EQ(String(every), every);
  EXPECT_EQ(std::string(made), every);
  EXPECT_EQ(std::string_view(made), every);
  EXPECT_EQ(format_as(made), every);
  EXPECT_EQ(static_cast<const void*>(made.view().data()), made.buf());
  EXPECT_EQ(static_cast<const void*>(format_as(made).data()), made.buf());
}

// ---- Values ------------------------------------------------------------------------------------

TEST(String_Copy, RemainsIfTheOriginalIsDestroyed) {
  auto first = std::make_unique<String>("abc");
  const String second = *first;

  first.reset();

  EXPECT_EQ(second, "abc");
}

TEST(String_Assign, MayBeAssignedItself) {
  String value("abc");
  String& itself = value;

  value = static_cast<const String&>(itself);
  EXPECT_EQ(value, "abc");
  value = std::move(itself);

  EXPECT_EQ(value, "abc");
}

TEST(String_Move, LeavesAnEmptyUsableString) {
  String value("abc");
  const void* const before = value.buf();

  String moved = std::move(value);

  EXPECT_EQ(static_cast<const void*>(moved.buf()), before);
  EXPECT_TRUE(value.isEmpty());  // NOLINT(bugprone-use-after-move): documented
  EXPECT_STREQ(value.buf(), "");
  value << "again";
  EXPECT_EQ(value, "again");
  EXPECT_EQ(moved, "abc");
  value = std::move(moved);
  EXPECT_EQ(value, "abc");
  EXPECT_TRUE(moved.isEmpty());  // NOLINT(bugprone-use-after-move): documented
}

// ---- Assigning a text --------------------------------------------------------------------------

TEST(String_Assign, ReplacesTheText) {
  struct Row {
    const char* name;
    const char* before;
    const char* assigned;
    const char* after;
  };
  const Row rows[] = {
      {"to an empty string", "", "abc", "abc"},
      {"shorter", "abcdef", "/", "/"},
      {"as long", "abc", "xyz", "xyz"},
      {"longer", "abc", "a text that is far longer than the one before it", nullptr},
      {"empty", "abc", "", ""},
      {"empty to empty", "", "", ""},
      {"a null pointer", "abc", nullptr, ""},
      {"a null pointer to empty", "", nullptr, ""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const char* const after = row.after == nullptr ? row.assigned : row.after;
    String value(row.before);

    String& result = value = row.assigned;

    EXPECT_EQ(&result, &value);
    EXPECT_STREQ(value.buf(), after);
    EXPECT_EQ(value.length(), std::strlen(after));
  }
}

TEST(String_Assign, StopsAtNulInItsOwnBuffer) {
  String value("ab\0cd"sv);

  value = value.buf() + 1;

  EXPECT_EQ(value, "b"sv);
}

// ---- Appending ---------------------------------------------------------------------------------

TEST(String_Append, ReturnsItself) {
  String value("/var");

  EXPECT_EQ(&(value << "/"), &value);
  EXPECT_EQ(&(value << String("log")), &value);
  EXPECT_EQ(&(value += "/"), &value);
  EXPECT_EQ(&(value += String("vx")), &value);

  EXPECT_EQ(value, "/var/log/vx");
}

TEST(String_Append, AddsNothingForEmptyTexts) {
  const char* const null = nullptr;
  String value("abc");
  String empty;
  const void* const before = value.buf();

  value << null << "" << String();
  value += null;
  empty << null << "" << String();

  EXPECT_EQ(value, "abc");
  EXPECT_EQ(static_cast<const void*>(value.buf()), before);
  EXPECT_TRUE(empty.isEmpty());
  EXPECT_STREQ(empty.buf(), "");
}

TEST(String_Append, KeepsNulBytesOfStringsOnly) {
  String value("a");

  value << bytes("\0b"sv) << "c\0d";
  value += bytes("\0e"sv);

  EXPECT_EQ(value, "a\0bc\0e"sv);
}

TEST(String_Append, KeepsManyPieces) {
  String value;
  std::string wanted;

  for (int i = 0; i < 3000; ++i) {
    const std::string piece = std::to_string(i);
    value << piece.c_str();
    wanted += piece;
    ASSERT_EQ(value.length(), wanted.size());
    ASSERT_EQ(value.buf()[value.length()], '\0');
  }

  EXPECT_EQ(text(value), wanted);
}

TEST(String_Append, TakesTailsOfItsOwnBufferAsAssignDoes) {
  for (std::size_t length = 0; length <= 40; ++length) {
    const std::string all = alphabet(length);
    for (std::size_t offset = 0; offset <= length; ++offset) {
      SCOPED_TRACE(testing::Message() << "offset " << offset << " of " << length);
      const std::string tail = all.substr(offset);
      String full = bytes(all);
      String shared = bytes(all);
      const String copy = shared;
      String roomy = withRoomToSpare(all.c_str());

      full << full.buf() + offset;
      shared << shared.buf() + offset;
      roomy << roomy.buf() + offset;

      ASSERT_EQ(text(full), all + tail);
      ASSERT_EQ(text(shared), all + tail);
      ASSERT_EQ(text(roomy), all + tail);
      ASSERT_EQ(text(copy), all);

      String alone = bytes(all);
      shared = copy;
      alone = alone.buf() + offset;
      shared = shared.buf() + offset;

      ASSERT_EQ(text(alone), tail);
      ASSERT_EQ(text(shared), tail);
      ASSERT_EQ(text(copy), all);
    }
  }
}

TEST(String_Append, TakesItselfAndItsBuffer) {
  String value("ab\0c"sv);

  value << value;
  EXPECT_EQ(value, "ab\0cab\0c"sv);
  value += value;
  EXPECT_EQ(value, "ab\0cab\0cab\0cab\0c"sv);
  value << value.buf();
  EXPECT_EQ(value, "ab\0cab\0cab\0cab\0cab"sv);
}

// ---- A shared text is copied before it is changed ----------------------------------------------

struct Change {
  const char* name;
  std::function<void(String&)> apply;
  const char* wanted;
};

const Change kChanges[] = {
    {"append a text", [](String& value) { value << "!"; }, "abc!"},
    {"append a string", [](String& value) { value << String("!"); }, "abc!"},
    {"append by +=", [](String& value) { value += "!"; }, "abc!"},
    {"append a string by +=", [](String& value) { value += String("!"); }, "abc!"},
    {"append itself", [](String& value) { value << value; }, "abcabc"},
    {"assign a shorter text", [](String& value) { value = "x"; }, "x"},
    {"assign a longer text", [](String& value) { value = "xyz and more"; }, "xyz and more"},
    {"assign no text", [](String& value) { value = ""; }, ""},
    {"assign its own tail", [](String& value) { value = value.buf() + 1; }, "bc"},
    {"assign a string", [](String& value) { value = String("x"); }, "x"},
};

TEST(String_Copy, KeepsItsTextIfTheOriginalChanges) {
  for (const Change& change : kChanges) {
    for (const bool isRoomy : {false, true}) {
      SCOPED_TRACE(testing::Message() << change.name << (isRoomy ? ", with room" : ""));
      String changed = isRoomy ? withRoomToSpare("abc") : String("abc");
      const void* const before = changed.buf();
      const String copy = changed;

      change.apply(changed);

      EXPECT_STREQ(changed.buf(), change.wanted);
      EXPECT_STREQ(copy.buf(), "abc");
      EXPECT_EQ(copy.length(), 3U);
      EXPECT_EQ(static_cast<const void*>(copy.buf()), before);
    }
  }
}

TEST(String_Copy, SharesWithABareHandle) {
  String value = withRoomToSpare("abc");
  const vx::RefersTo<vx::IRefCounted> keeper = value;
  const void* const before = value.buf();

  value << "!";

  EXPECT_NE(static_cast<const void*>(value.buf()), before);
  EXPECT_EQ(value, "abc!");
}

TEST(String_Copy, AllowsChangesInPlaceOnceDestroyed) {
  String value = withRoomToSpare("abc");
  { const String copy = value; }
  const void* const before = value.buf();

  value << "!";

  EXPECT_EQ(static_cast<const void*>(value.buf()), before);
  EXPECT_EQ(value, "abc!");
}

// ---- Prefixes and suffixes ---------------------------------------------------------------------

TEST(String_StartsWith, ComparesBytesAndCaseAsEndsWithDoes) {
  struct Ends {
    bool exactly;
    bool ignoringCase;
  };
  struct Row {
    const char* name;
    String whole;
    String affix;
    Ends starts;
    Ends ends;
  };
  constexpr Ends kNo = {false, false};
  constexpr Ends kYes = {true, true};
  constexpr Ends kIgnoringCase = {false, true};
  const Row rows[] = {
      {"nothing", "abc", "", kYes, kYes},
      {"a prefix", "abc", "ab", kYes, kNo},
      {"a suffix", "abc", "bc", kNo, kYes},
      {"the whole", "abc", "abc", kYes, kYes},
      {"more than the whole", "abc", "abcd", kNo, kNo},
      {"more than the whole, at its front", "abc", "xabc", kNo, kNo},
      {"a prefix in the other case", "aBc", "Ab", kIgnoringCase, kNo},
      {"a suffix in the other case", "scene.KSX", ".ksx", kNo, kIgnoringCase},
      {"a directory at the end", "/vx.app/Contents/MacOS", "/MacOS", kNo, kYes},
      {"a name without its separator", "MacOS", "/MacOS", kNo, kNo},
      {"characters 0x20 apart that are no letters", "@[]@", "`{", kNo, kNo},
      {"characters 0x20 apart at the end", "@[]^", "}~", kNo, kNo},
      {"bytes beyond ASCII", "\xC3\xA4", "\xC3\xA4", kYes, kYes},
      {"bytes beyond ASCII of the other case", "\xC3\x84", "\xC3\xA4", kNo, kNo},
      {"a NUL byte", bytes("\0a\0"sv), bytes("\0"sv), kYes, kYes},
      {"a NUL byte too many", "a", bytes("a\0"sv), kNo, kNo},
      {"a text before the NUL byte", bytes("a\0"sv), "a", kYes, kNo},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(row.whole.startsWith(row.affix, false), row.starts.exactly);
    EXPECT_EQ(row.whole.startsWith(row.affix, true), row.starts.ignoringCase);
    EXPECT_EQ(row.whole.endsWith(row.affix, false), row.ends.exactly);
    EXPECT_EQ(row.whole.endsWith(row.affix, true), row.ends.ignoringCase);
  }
}

// ---- Letter case -------------------------------------------------------------------------------

int signOf(int value) {
  if (value == 0) {
    return 0;
  }
  return value < 0 ? -1 : 1;
}

TEST(String_CompareNoCase, OrdersWithoutCase) {
  struct Row {
    const char* name;
    String left;
    String right;
    int sign;
  };
  const Row rows[] = {
      {"both empty", "", "", 0},
      {"empty before anything", "", "a", -1},
      {"empty before a NUL byte", "", bytes("\0"sv), -1},
      {"the same", "abc", "abc", 0},
      {"the other case", "abc", "ABC", 0},
      {"by the first difference", "abz", "aca", -1},
      {"by length when one begins the other", "abc", "ABCD", -1},
      {"a lower letter before the next upper one", "a", "B", -1},
      {"letters as their lower forms, behind [ to `", "A", "_", 1},
      {"the last letter before {", "Z", "{", -1},
      {"bytes beyond ASCII are unsigned", "\xC3\xA4", "z", 1},
      {"with its dot, and without", "\xC4\xB0", "i", 1},
      {"a NUL byte counts", bytes("a\0b"sv), bytes("A\0C"sv), -1},
      {"a NUL byte does not end the text", bytes("a\0b"sv), "a", 1},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(signOf(row.left.compareNoCase(row.right)), row.sign);
    EXPECT_EQ(signOf(row.right.compareNoCase(row.left)), -row.sign);
  }
}

unsigned char asciiLower(int byte) {
  return static_cast<unsigned char>(byte >= 'A' && byte <= 'Z' ? byte - 'A' + 'a' : byte);
}

/// Two texts that are equal ignoring case, except for the byte at `position`.
struct BytePair {
  BytePair(int leftByte, int rightByte, std::size_t position, std::size_t length)
      : left(length, 'M'), right(length, 'm') {
    left[position] = static_cast<char>(leftByte);
    right[position] = static_cast<char>(rightByte);
  }
  std::string left;
  std::string right;
};

void expectAsciiCaseOnly() {
  for (int left = 0; left < 256; ++left) {
    for (int right = 0; right < 256; ++right) {
      const auto position = static_cast<std::size_t>(left + right) % 9;
      const BytePair pair(left, right, position, 9);
      const String leftText{std::string_view(pair.left)};
      const String rightText{std::string_view(pair.right)};
      const int wanted = signOf(asciiLower(left) - asciiLower(right));

      ASSERT_EQ(signOf(leftText.compareNoCase(rightText)), wanted)
          << left << " against " << right << " at " << position;
      ASSERT_EQ(leftText.startsWith(rightText, true), wanted == 0) << left << ", " << right;
      ASSERT_EQ(leftText.endsWith(rightText, true), wanted == 0) << left << ", " << right;
    }
  }
  for (int from = 0; from < 256; ++from) {
    for (int byte = 0; byte < 256; ++byte) {
      const char content = static_cast<char>(byte);
      const String one(std::string_view(&content, 1));
      const bool isReplaced = asciiLower(from) == asciiLower(byte);

      const String replaced = one.replace(static_cast<char>(from), '#', false, true);

      ASSERT_EQ(replaced.view() == "#"sv, isReplaced || content == '#') << from << ", " << byte;
    }
  }
}

TEST(String_LetterCase, IsThatOfAscii) {
  expectAsciiCaseOnly();
}

TEST(String_CompareNoCase, FindsADifferenceAnywhere) {
  for (std::size_t length = 1; length <= 18; ++length) {
    for (std::size_t position = 0; position < length; ++position) {
      for (int byte = 0; byte < 256; ++byte) {
        const int other = byte == 0 ? 255 : byte - 1;
        const BytePair pair(byte, other, position, length);
        const String left{std::string_view(pair.left)};
        const String right{std::string_view(pair.right)};
        const int wanted = signOf(asciiLower(byte) - asciiLower(other));

        ASSERT_EQ(signOf(left.compareNoCase(right)), wanted)
            << byte << " at " << position << " of " << length;
        ASSERT_EQ((left + "tail").startsWith(right, true), wanted == 0);
      }
    }
  }
}

TEST(String_CompareNoCase, GoesByTheFirstDifference) {
  for (std::size_t length = 2; length <= 18; ++length) {
    for (std::size_t position = 0; position + 1 < length; ++position) {
      BytePair pair('a', 'b', position, length);
      pair.left.back() = 'Y';
      pair.right.back() = 'x';

      EXPECT_LT(String(std::string_view(pair.left)).compareNoCase(pair.right.c_str()), 0);
      EXPECT_GT(String(std::string_view(pair.right)).compareNoCase(pair.left.c_str()), 0);
    }
  }
}

/// Sets a Turkish locale, in which letters beyond ASCII have case, and I is not the upper case of
/// i. Compiles it first, since it is rarely installed.
class ScopedTurkishLocale {
 public:
  ScopedTurkishLocale() : before_(std::setlocale(LC_ALL, nullptr)) {
    const std::string command = "localedef -i tr_TR -f ISO-8859-9 --no-archive '" +
                                directory_.path("made") + "' >'" + directory_.path("output") +
                                "' 2>&1";
    std::system(command.c_str());
    // musl accepts any name and uses UTF-8.
    isSet_ = std::setlocale(LC_ALL, "made") != nullptr && ::nl_langinfo(CODESET) == "ISO-8859-9"sv;
  }
  ScopedTurkishLocale(const ScopedTurkishLocale&) = delete;
  ScopedTurkishLocale& operator=(const ScopedTurkishLocale&) = delete;
  ~ScopedTurkishLocale() { std::setlocale(LC_ALL, before_.c_str()); }

  [[nodiscard]] bool isSet() const { return isSet_; }

 private:
  TempDir directory_;
  ScopedEnv variable_{"LOCPATH", directory_.path()};
  std::string before_;
  bool isSet_ = false;
};

/// Returns the lower case of the letter in the current locale. For a constant, compilers use the C
/// locale.
int loweredByTheLocale(int letter) {
  const volatile int unforeseen = letter;
  return std::tolower(unforeseen);
}

TEST(String_LetterCase, IsThatOfAsciiInATurkishLocale) {
  const ScopedTurkishLocale locale;
  if (!locale.isSet()) {
    GTEST_SKIP() << "there is no locale tr_TR.ISO-8859-9 here";
  }
  ASSERT_EQ(loweredByTheLocale(0xC4), 0xE4);
  ASSERT_NE(loweredByTheLocale('I'), 'i');

  expectAsciiCaseOnly();
}

// ---- Splitting ---------------------------------------------------------------------------------

TEST(String_Split, CutsSkipsAndTrims) {
  struct Row {
    const char* name;
    String whole;
    char separator;
    StringVector plain;
    StringVector skippingEmpty;
    StringVector trimmed;
    StringVector trimmedSkippingEmpty;
  };
  const Row rows[] = {
      {"nothing", "", '|', {""}, {}, {""}, {}},
      {"no separator", "a", '|', {"a"}, {"a"}, {"a"}, {"a"}},
      {"two paths", "/b c|/d", '|', {"/b c", "/d"}, {"/b c", "/d"}, {"/b c", "/d"}, {"/b c", "/d"}},
      {"an empty piece", "a||c", '|', {"a", "", "c"}, {"a", "c"}, {"a", "", "c"}, {"a", "c"}},
      {"a separator alone", "|", '|', {"", ""}, {}, {"", ""}, {}},
      {"separators at the ends", "|a|", '|', {"", "a", ""}, {"a"}, {"", "a", ""}, {"a"}},
      {"space round the pieces", " a | ", '|', {" a ", " "}, {" a ", " "}, {"a", ""}, {"a"}},
      {"space within a piece", " a b ", '|', {" a b "}, {" a b "}, {"a b"}, {"a b"}},
      {"space as the separator", " a ", ' ', {"", "a", ""}, {"a"}, {"", "a", ""}, {"a"}},
      {"the other letter case", "xX", 'x', {"", "X"}, {"X"}, {"", "X"}, {"X"}},
      {"a NUL byte", bytes("a\0b"sv), '\0', {"a", "b"}, {"a", "b"}, {"a", "b"}, {"a", "b"}},
      {"a byte beyond ASCII", "a\xFF.", '\xFF', {"a", "."}, {"a", "."}, {"a", "."}, {"a", "."}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(row.whole.split(row.separator, false, false), row.plain);
    EXPECT_EQ(row.whole.split(row.separator, true, false), row.skippingEmpty);
    EXPECT_EQ(row.whole.split(row.separator, false, true), row.trimmed);
    EXPECT_EQ(row.whole.split(row.separator, true, true), row.trimmedSkippingEmpty);
  }
}

TEST(String_Split, TrimsAsciiSpaceOnly) {
  constexpr std::string_view kSpace = " \t\n\v\f\r";
  for (int byte = 0; byte < 256; ++byte) {
    SCOPED_TRACE(byte);
    const std::string piece(1, static_cast<char>(byte));
    const bool isSpace = kSpace.find(piece) != std::string_view::npos;

    const StringVector pieces =
        String(std::string_view(piece + "a" + piece)).split('/', false, true);

    EXPECT_EQ(pieces.front(), byte == '/' ? "" : isSpace ? "a" : piece + "a" + piece);
  }
}

// ---- Replacing ---------------------------------------------------------------------------------

TEST(String_Replace, ReplacesAllOrTheFirst) {
  struct Row {
    const char* name;
    String whole;
    char from;
    char to;
    const char* every;
    const char* first;
    const char* everyIgnoringCase;
    const char* firstIgnoringCase;
  };
  const Row rows[] = {
      {"nothing", "", 'a', 'b', "", "", "", ""},
      {"what does not occur", "xyz", 'a', 'b', "xyz", "xyz", "xyz", "xyz"},
      {"backslashes", "a\\b\\c", '\\', '/', "a/b/c", "a/b\\c", "a/b/c", "a/b\\c"},
      {"a letter", "axAXa", 'a', '-', "-xAX-", "-xAXa", "-x-X-", "-xAXa"},
      {"an upper letter", "axAXa", 'A', '-', "ax-Xa", "ax-Xa", "-x-X-", "-xAXa"},
      {"a letter by its other case", "aA", 'a', 'A', "AA", "AA", "AA", "AA"},
      {"a character by itself", "aba", 'a', 'a', "aba", "aba", "aba", "aba"},
      {"no letter, though 0x20 apart from another", "@`", '@', '-', "-`", "-`", "-`", "-`"},
      {"a byte beyond ASCII", "\xC4\xE4", '\xE4', '-', "\xC4-", "\xC4-", "\xC4-", "\xC4-"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(text(row.whole.replace(row.from, row.to, false, false)), row.every);
    EXPECT_EQ(text(row.whole.replace(row.from, row.to, true, false)), row.first);
    EXPECT_EQ(text(row.whole.replace(row.from, row.to, false, true)), row.everyIgnoringCase);
    EXPECT_EQ(text(row.whole.replace(row.from, row.to, true, true)), row.firstIgnoringCase);
  }
}

TEST(String_Replace, TakesNulBytes) {
  EXPECT_EQ(bytes("a\0b\0"sv).replace('\0', '-', false, false), "a-b-");
  EXPECT_EQ(String("a-b").replace('-', '\0', false, false).view(), "a\0b"sv);
}

// ---- From the last separator on ----------------------------------------------------------------

TEST(String_FromLast, ReturnsWhatFollows) {
  struct Row {
    const char* name;
    String whole;
    char separator;
    const char* without;
    const char* with;
  };
  const Row rows[] = {
      {"nothing", "", ':', "", ""},
      {"no separator", "mkDir", ':', "mkDir", "mkDir"},
      {"one separator", "a:b", ':', "b", ":b"},
      {"several separators", "vx::Path::exePath()", ':', "exePath()", ":exePath()"},
      {"a separator at the end", "a:", ':', "", ":"},
      {"a separator at the front", ":a", ':', "a", ":a"},
      {"a separator alone", ":", ':', "", ":"},
      {"the other case of a letter", "aXb", 'x', "aXb", "aXb"},
      {"a byte beyond ASCII", "a\xFF.", '\xFF', ".", "\xFF."},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(text(row.whole.fromLast(row.separator, false)), row.without);
    EXPECT_EQ(text(row.whole.fromLast(row.separator, true)), row.with);
  }
}

TEST(String_FromLast, SearchesBehindNulBytes) {
  const String whole("a:b\0:c"sv);

  EXPECT_EQ(whole.fromLast(':', false), "c");
  EXPECT_EQ(whole.fromLast('\0', false), ":c");
  EXPECT_EQ(whole.fromLast('\0', true).view(), "\0:c"sv);
  EXPECT_EQ(whole.view(), "a:b\0:c"sv);
}

// ---- Concatenation -----------------------------------------------------------------------------

TEST(String_Plus, MakesANewString) {
  const char* const null = nullptr;
  const String left("/dir");
  const String right("file");

  EXPECT_EQ(left + "/../Resources", "/dir/../Resources");
  EXPECT_EQ(left + right, "/dirfile");
  EXPECT_EQ("lib" + right + ".png", "libfile.png");
  EXPECT_EQ(left + null, "/dir");
  EXPECT_EQ(null + left, "/dir");
  EXPECT_EQ(left + String(), "/dir");
  EXPECT_EQ(String() + "a", "a");
  EXPECT_EQ("" + String(), "");
  EXPECT_EQ(left + left, "/dir/dir");
  EXPECT_EQ(left + (left.buf() + 1), "/dirdir");

  EXPECT_EQ(left, "/dir");
  EXPECT_EQ(right, "file");
}

TEST(String_Plus, KeepsNulBytesOfStringsOnly) {
  EXPECT_EQ(bytes("a\0"sv) + bytes("\0b"sv), "a\0\0b"sv);
  EXPECT_EQ(bytes("a\0"sv) + "b\0c", "a\0b"sv);
  EXPECT_EQ("a\0b" + bytes("\0c"sv), "a\0c"sv);
}

// ---- Comparison, hash, stream ------------------------------------------------------------------

/// Returns the results of all comparisons of two values.
template <class Left, class Right>
std::string comparisons(const Left& left, const Right& right) {
  std::string result;
  result += left == right ? "== " : "!= ";
  result += left != right ? "!= " : "== ";
  result += left < right ? "< " : ">= ";
  result += left <= right ? "<= " : "> ";
  result += left > right ? "> " : "<= ";
  result += left >= right ? ">= " : "< ";
  return result;
}
constexpr const char* kEqual = "== == >= <= <= >= ";
constexpr const char* kLess = "!= != < <= <= < ";
constexpr const char* kGreater = "!= != >= > > >= ";

TEST(String_Compare, TakesEveryKindOfTextOnBothSides) {
  const String b("b");

  EXPECT_EQ(comparisons(b, String("c")), kLess);
  EXPECT_EQ(comparisons(b, "b"), kEqual);
  EXPECT_EQ(comparisons("a", b), kLess);
  EXPECT_EQ(comparisons(b, "a"sv), kGreater);
  EXPECT_EQ(comparisons("b"sv, b), kEqual);
  EXPECT_EQ(comparisons(b, std::string("bb")), kLess);
  EXPECT_EQ(comparisons(std::string("c"), b), kGreater);
}

TEST(String_Compare, StopsATextAtItsNulAndNoOther) {
  const String whole("a\0b"sv);

  EXPECT_EQ(comparisons(whole, "a\0b"), kGreater);
  EXPECT_EQ(comparisons(whole, "a\0b"sv), kEqual);
}

TEST(String_Compare, TakesANullPointerForTheEmptyText) {
  const char* const null = nullptr;

  EXPECT_EQ(comparisons(String(), null), kEqual);
  EXPECT_EQ(comparisons(String("a"), null), kGreater);
}

TEST(String_Compare, OrdersByUnsignedBytesAndHashesAllBytes) {
  const String ordered[] = {
      "",
      bytes("\0"sv),
      "A",
      bytes("A\0b"sv),
      bytes("A\0c"sv),
      "AB",
      "B",
      "Z",
      "_",
      "a",
      "ab",
      "b",
      "\x7F",
      "\x80",
      "\xC3\x84",
      "\xC3\xA4",
      "\xFF",
  };
  for (std::size_t left = 0; left < std::size(ordered); ++left) {
    for (std::size_t right = 0; right < std::size(ordered); ++right) {
      SCOPED_TRACE(testing::Message() << left << " and " << right);
      const String other = bytes(ordered[right].view());
      EXPECT_EQ(ordered[left] <=> other, left <=> right);
      EXPECT_EQ(ordered[left] <=> other.view(), left <=> right);
      EXPECT_EQ(ordered[left] == other, left == right);
      EXPECT_EQ(std::hash<String>()(ordered[left]) == std::hash<String>()(other), left == right);
    }
  }
}

TEST(String_Hash, ServesStandardContainers) {
  const std::unordered_set<String> hashed = {"a", "b", "a", bytes("a\0"sv)};
  const std::set<String> sorted = {"b", "a", "a", "\xFF"};

  EXPECT_EQ(hashed.size(), 3U);
  EXPECT_TRUE(hashed.contains(String() + "b"));
  EXPECT_EQ(sorted.size(), 3U);
  EXPECT_EQ(*sorted.begin(), "a");
}

TEST(String_Stream, WritesAllBytes) {
  std::ostringstream stream;

  stream << String("a") << String() << bytes("\0\xFF"sv) << '.';

  EXPECT_EQ(stream.str(), "a\0\xFF."sv);
}

TEST(String_Stream, FollowsTheFormatOfTheStream) {
  std::ostringstream stream;

  stream << std::setw(5) << std::setfill('.') << String("ab") << '|' << std::left << std::setw(4)
         << String("c") << '|';

  EXPECT_EQ(stream.str(), "...ab|c...|");
}

}  // namespace
}  // namespace vx::test
