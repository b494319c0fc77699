// SPDX-License-Identifier: MIT
//
// The order of elements, accesses past the end, and copies that do not see each other's changes.

#include "core/vx_string_vector.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <compare>
#include <concepts>
#include <cstddef>
#include <iterator>
#include <limits>
#include <ranges>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace vx::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Iterator = decltype(std::declval<const StringVector&>().begin());
static_assert(std::is_same_v<std::decay_t<decltype(*std::declval<Iterator>())>, const String> ||
              std::is_same_v<std::decay_t<decltype(*std::declval<Iterator>())>, String>);
static_assert(std::forward_iterator<Iterator>);
static_assert(std::is_same_v<decltype(std::declval<const StringVector&>().front()), String>);
static_assert(std::is_same_v<decltype(std::declval<const StringVector&>()[0]), String>);

static_assert(std::ranges::contiguous_range<const StringVector>);
static_assert(std::is_same_v<std::ranges::range_value_t<StringVector>, StringVector::value_type>);
static_assert(std::totally_ordered<StringVector>);

// Elements are read-only: those that are returned by value are copies.
template <class List>
struct ElementsAreReadOnly {
  static_assert(!requires(List list) { list[0] = "x"; });
  static_assert(!requires(List list) { list.front() = "x"; });
  static_assert(!requires(List list) { list.back() += "x"; });
  static_assert(!requires(List list) { *list.begin() = "x"; });
};
template struct ElementsAreReadOnly<StringVector>;

// A text is no range of texts, and a string no list.
static_assert(!std::is_constructible_v<StringVector, const char*>);
static_assert(!std::is_constructible_v<StringVector, std::string>);
static_assert(!std::is_constructible_v<StringVector, String>);
static_assert(!std::is_constructible_v<StringVector, std::vector<int>>);
static_assert(!std::is_convertible_v<std::vector<String>, StringVector>);
static_assert(!std::is_assignable_v<StringVector, StringVector>);

StringVector numbered(std::size_t count) {
  StringVector names;
  for (std::size_t i = 0; i < count; ++i) {
    names.push_back(std::to_string(i).c_str());
  }
  return names;
}

TEST(StringVector_Construct, IsEmptyFromNothing) {
  for (const StringVector& names :
       {StringVector(), StringVector(std::initializer_list<String>{})}) {
    EXPECT_TRUE(names.empty());
    EXPECT_EQ(names.size(), 0U);
    EXPECT_EQ(names.begin(), names.end());
  }
}

TEST(StringVector_Construct, KeepsTheOrderOfElements) {
  const StringVector names = {"wood.png", "", "wood.png"};

  EXPECT_FALSE(names.empty());
  EXPECT_EQ(names.size(), 3U);
  EXPECT_THAT(names, ElementsAre("wood.png", "", "wood.png"));
}

TEST(StringVector_PushBack, AppendsAtTheEnd) {
  StringVector names = {"a"};

  names.push_back("b");
  names.push_back(String());
  names.push_back("a");

  EXPECT_THAT(names, ElementsAre("a", "b", "", "a"));
}

TEST(StringVector_PushBack, KeepsTheOrderOfManyElements) {
  const StringVector names = numbered(5000);

  ASSERT_EQ(names.size(), 5000U);
  for (std::size_t i = 0; i < names.size(); ++i) {
    ASSERT_EQ(names[i], std::to_string(i).c_str());
  }
}

TEST(StringVector_PushBack, TakesItsOwnElements) {
  StringVector names = {"first"};

  for (int i = 0; i < 40; ++i) {
    names.push_back(*names.begin());
  }

  EXPECT_EQ(names, StringVector(std::vector<String>(41, "first")));
}

TEST(StringVector_Index, IsEmptyPastTheEnd) {
  const StringVector none;
  const StringVector names = numbered(5);  // with room for more behind them

  EXPECT_EQ(names[0], "0");
  EXPECT_EQ(names[4], "4");
  EXPECT_EQ(none[0], String());
  EXPECT_EQ(names[5], String());
  EXPECT_EQ(names[std::numeric_limits<std::size_t>::max()], String());
}

TEST(StringVector_Front, IsTheFirstElement) {
  EXPECT_EQ(StringVector({"a", "b"}).front(), "a");
  EXPECT_EQ(StringVector().front(), String());
  EXPECT_STREQ(StringVector().front().buf(), "");
}

TEST(StringVector_Back, IsTheLastElement) {
  EXPECT_EQ(StringVector({"a", "b"}).back(), "b");
  EXPECT_EQ(StringVector().back(), String());
}

TEST(StringVector_Range, TakesWhateverStringsAreMadeFrom) {
  const std::vector<std::string> texts = {"a", "b"};
  const std::vector<String> strings = {"a", "b"};
  const char* const literals[] = {"a", "b"};

  EXPECT_THAT(StringVector(texts), ElementsAre("a", "b"));
  EXPECT_THAT(StringVector{strings}, ElementsAre("a", "b"));
  EXPECT_THAT(StringVector(literals), ElementsAre("a", "b"));
  EXPECT_THAT(StringVector(std::vector<String>()), IsEmpty());
}

TEST(StringVector_Range, MayBeUsedByAlgorithms) {
  const StringVector names = {"wood.png", "look.ksa"};
  StringVector copied = {"scene.ksx"};

  std::copy(names.begin(), names.end(), std::back_inserter(copied));

  EXPECT_THAT(copied, ElementsAre("scene.ksx", "wood.png", "look.ksa"));
  EXPECT_EQ(std::find(names.begin(), names.end(), "look.ksa"), names.begin() + 1);
#ifdef __cpp_lib_ranges
  EXPECT_EQ(std::ranges::find(names, "look.ksa"), names.begin() + 1);
  EXPECT_EQ(std::ranges::count_if(names, &String::isEmpty), 0);
  EXPECT_EQ(std::ranges::max(names), "wood.png");
#endif
}

TEST(StringVector_Compare, OrdersByTheFirstDifference) {
  const StringVector ordered[] = {
      {}, {""}, {"", "a"}, {"a"}, {"a", ""}, {"a", "b"}, {"b"}, {"\x80"}, {"\xFF"},
  };
  for (std::size_t left = 0; left < std::size(ordered); ++left) {
    for (std::size_t right = 0; right < std::size(ordered); ++right) {
      SCOPED_TRACE(testing::Message() << left << " and " << right);
      EXPECT_EQ(ordered[left] <=> ordered[right], left <=> right);
      EXPECT_EQ(ordered[left] == ordered[right], left == right);
    }
  }
}

// ---- Joining -----------------------------------------------------------------------------------

TEST(StringVector_Join, PutsTheSeparatorBetween) {
  struct Row {
    const char* name;
    StringVector elements;
    const char* separator;
    const char* joined;
  };
  const Row rows[] = {
      {"nothing", {}, ", ", ""},
      {"one element", {"a"}, ", ", "a"},
      {"two elements", {"a", "b"}, ", ", "a, b"},
      {"three elements", {"a", "b", "c"}, ", ", "a, b, c"},
      {"no separator", {"a", "b", "c"}, "", "abc"},
      {"one empty element", {""}, ", ", ""},
      {"only empty elements", {"", "", ""}, "|", "||"},
      {"empty elements at the ends", {"", "a", ""}, "|", "|a|"},
      {"elements that hold the separator", {"a|b", "c"}, "|", "a|b|c"},
      {"bytes beyond ASCII", {"\xC3\xA4", "\xFF"}, "\xC2\xB7", "\xC3\xA4\xC2\xB7\xFF"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(row.elements.join(row.separator), row.joined);
  }
}

TEST(StringVector_Join, KeepsNulBytes) {
  const StringVector names = {String(std::string_view("a\0b", 3)), "c"};

  const String joined = names.join(String(std::string_view("\0", 1)));

  EXPECT_EQ(joined.view(), std::string_view("a\0b\0c", 5));
}

// ---- Values ------------------------------------------------------------------------------------

TEST(StringVector_Copy, GrowsApartFromTheOriginal) {
  for (const std::size_t size : {0U, 1U, 3U, 4U, 5U, 8U, 9U}) {
    SCOPED_TRACE(size);
    const StringVector names = numbered(size);
    StringVector copy = names;
    EXPECT_EQ(copy.begin(), names.begin());

    copy.push_back("new");

    EXPECT_EQ(names, numbered(size));
    EXPECT_EQ(copy.size(), size + 1);
    EXPECT_EQ(copy[size], "new");
  }
}

TEST(StringVector_Copy, AllowsGrowthInPlaceOnceDestroyed) {
  StringVector names = numbered(3);  // with room for more behind them
  { const StringVector copy = names; }
  const String* const before = names.begin();

  names.push_back("new");

  EXPECT_EQ(names.begin(), before);
  EXPECT_THAT(names, ElementsAre("0", "1", "2", "new"));
}

TEST(StringVector_Assign, ReplacesTheElements) {
  StringVector names = {"a", "b"};
  const StringVector others = {"c"};
  const StringVector& itself = names;

  names = itself;
  EXPECT_THAT(names, ElementsAre("a", "b"));
  names = others;
  EXPECT_THAT(names, ElementsAre("c"));
  EXPECT_THAT(others, ElementsAre("c"));
  names = StringVector();
  EXPECT_THAT(names, IsEmpty());
}

TEST(StringVector_Move, LeavesAnEmptyUsableList) {
  StringVector names = {"a", "b"};
  const String* const elements = names.begin();

  const StringVector moved = std::move(names);

  EXPECT_EQ(moved.begin(), elements);
  EXPECT_TRUE(names.empty());  // NOLINT(bugprone-use-after-move): documented
  EXPECT_EQ(names.front(), String());
  EXPECT_EQ(names.join(", "), String());
  names.push_back("again");
  EXPECT_THAT(names, ElementsAre("again"));
}

}  // namespace
}  // namespace vx::test
