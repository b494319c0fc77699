// SPDX-License-Identifier: MIT
//
// What strings, lists and paths allocate.

#include "core/vx_path.h"
#include "core/vx_string.h"
#include "core/vx_string_vector.h"
#include "tests/testing/memory_use.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace vx::test {
namespace {

/// Returns how `act` uses the heap, including objects that it makes and destroys.
template <class Act>
HeapUse costOf(Act act) {
  LiveBlocks blocks;
  act();
  blocks.stop();
  return blocks.use();
}

template <class Act>
std::size_t allocationsOf(Act act) {
  return costOf(act).allocations;
}

const volatile void* volatile lastConsumed;

/// Uses a result, so that the compiler cannot remove its computation.
template <class Value>
void consume(const Value& value) {
  lastConsumed = &value;
}

TEST(StringAllocation, IsOneBlockForHeaderAndBytes) {
  for (const std::size_t length : {1U, 2U, 15U, 16U, 100U, 10'000U, 1'000'000U}) {
    SCOPED_TRACE(length);
    const std::string source(length, 'x');

    const HeapUse ofText = costOf([&] { consume(String(source.c_str())); });
    const HeapUse ofTextAndLength = costOf([&] { consume(String(source.c_str(), length)); });
    const HeapUse ofView = costOf([&] { consume(String(std::string_view(source))); });

    for (const HeapUse& cost : {ofText, ofTextAndLength, ofView}) {
      EXPECT_EQ(cost.allocations, 1U);
      EXPECT_EQ(cost.frees, 1U);
      EXPECT_GT(cost.bytes, length);
      EXPECT_LE(cost.bytes, length + 64);
    }
  }
}

TEST(StringAllocation, IsNoneForTheEmptyString) {
  const char* const null = nullptr;
  const String some("abc");
  struct Row {
    const char* name;
    std::function<String()> make;
  };
  const Row rows[] = {
      {"default", [] { return String(); }},
      {"empty literal", [] { return String(""); }},
      {"null pointer", [&] { return String(null); }},
      {"empty view", [] { return String(std::string_view()); }},
      {"concatenation of nothing", [] { return String() + "" + String(); }},
      {"replacement in nothing", [] { return String().replace('a', 'b', false, false); }},
      {"nothing behind the last separator", [&] { return some.fromLast('c', false); }},
      {"joined nothing", [] { return StringVector().join(""); }},
      {"element past the end", [] { return StringVector()[3]; }},
      {"front of nothing", [] { return StringVector().front(); }},
      {"normal form of nothing", [] { return Path::normalize(""); }},
      {"joined path of nothing", [] { return Path::join(StringVector()); }},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    String made;
    const std::size_t allocations = allocationsOf([&] { made = row.make(); });
    EXPECT_EQ(allocations, 0U);
    EXPECT_TRUE(made.isEmpty());
  }
}

TEST(StringAllocation, IsNoneForACopyOrMove) {
  String original("a text that fits into no small buffer whatsoever");
  String target("another text");

  const std::size_t allocations = allocationsOf([&] {
    String copy = original;
    String moved = std::move(copy);
    target = moved;
    target = std::move(moved);
    const String& itself = target;
    target = itself;
    std::swap(target, original);
    const auto byValue = [](String value) { return value; };
    consume(byValue(original));
  });

  EXPECT_EQ(allocations, 0U);
}

TEST(StringAllocation, IsFreedWithTheLastHandleOnly) {
  auto* const first = new String("abc");
  auto* const second = new String(*first);

  const HeapUse withFirst = costOf([&] { *first = String(); });
  const HeapUse withLast = costOf([&] { *second = ""; });

  EXPECT_EQ(withFirst.frees, 0U);
  EXPECT_EQ(withLast.frees, 1U);
  delete first;
  delete second;
}

TEST(StringAllocation, IsNoneForAQuestion) {
  const String whole("vx::Path::exePath() and some more text behind it");
  const String other("VX::PATH::EXEPATH() and some more text behind it");

  const std::size_t allocations = allocationsOf([&] {
    consume(whole.isEmpty());
    consume(whole.buf());
    consume(whole.view());
    consume(whole.startsWith(other, true));
    consume(whole.endsWith(other, false));
    consume(whole.compareNoCase(other));
    consume(whole == other);
    consume(whole == "vx::Path");
    consume(whole < other);
    consume(whole == other.view());
    consume(whole <=> "vx::Path");
    consume(std::hash<String>{}(whole));
    consume(whole.fromLast('|', true));  // the whole text, which is shared
  });

  EXPECT_EQ(allocations, 0U);
}

TEST(StringAllocation, IsOneForEachNewText) {
  const String whole("a/b/c and enough text to outgrow any small buffer");

  EXPECT_EQ(allocationsOf([&] { consume(whole + "more"); }), 1U);
  EXPECT_EQ(allocationsOf([&] { consume(whole + whole); }), 1U);
  EXPECT_EQ(allocationsOf([&] { consume(whole.replace('/', ':', false, false)); }), 1U);
  EXPECT_EQ(allocationsOf([&] { consume(whole.fromLast('/', false)); }), 1U);
}

TEST(StringAllocation, IsRareWhileTextIsAppended) {
  constexpr std::size_t kLength = 100'000;
  String built;

  const HeapUse cost = costOf([&] {
    for (std::size_t i = 0; i < kLength; ++i) {
      built << "x";
    }
  });

  EXPECT_EQ(built.length(), kLength);
  EXPECT_LE(cost.allocations, 60U);
  EXPECT_LE(cost.bytes, 8 * kLength);
}

TEST(StringAllocation, IsNoneWhereTheTextFits) {
  String path("twelve bytes");

  const std::size_t allocations = allocationsOf([&] {
    path = "also, twelve";
    path = "/a";
    path << "/bcdef"
         << "ghij";
    path = path.buf() + 1;
  });

  EXPECT_EQ(allocations, 0U);
  EXPECT_EQ(path, "a/bcdefghij");
}

TEST(StringAllocation, IsOneWhenASharedTextIsChanged) {
  String empty;
  String shared("abc");
  const String copy = shared;

  EXPECT_EQ(allocationsOf([&] { empty << "" << String(); }), 0U);
  EXPECT_EQ(allocationsOf([&] { shared << "" << String(); }), 0U);
  EXPECT_EQ(allocationsOf([&] { shared << "d"; }), 1U);
}

TEST(StringVectorAllocation, IsNoneForTheEmptyList) {
  const std::size_t allocations = allocationsOf([] {
    const StringVector none;
    const StringVector noElements(std::initializer_list<String>{});
    const StringVector copy = none;
    consume(copy);
    consume(noElements);
    consume(String().split('|', true, false));
  });

  EXPECT_EQ(allocations, 0U);
}

TEST(StringVectorAllocation, IsOneForAListAndForAJoinedText) {
  const String name("wood.png");
  const String separator(", ");
  const StringVector names = {name, name, name};

  EXPECT_EQ(allocationsOf([&] { consume(StringVector{name, name, name}); }), 1U);
  EXPECT_EQ(allocationsOf([&] { consume(names.join(separator)); }), 1U);
}

TEST(StringVectorAllocation, IsFreedWithAllItsElements) {
  for (const std::size_t size : {1U, 4U, 5U, 100U}) {
    SCOPED_TRACE(size);

    const HeapUse cost = costOf([size] {
      StringVector names;
      for (std::size_t i = 0; i < size; ++i) {
        names.push_back(String("wood.png"));
      }
      const StringVector copy = names;
      names.push_back(String("look.ksa"));
    });

    EXPECT_GT(cost.allocations, size);
    EXPECT_EQ(cost.frees, cost.allocations);
  }
}

TEST(StringVectorAllocation, IsNoneForACopyOrAnElement) {
  const StringVector names = {"wood.png", "look.ksa"};

  const std::size_t allocations = allocationsOf([&] {
    const StringVector copy = names;
    consume(copy.front());
    consume(copy[1]);
    consume(copy[2]);
    for (const String& name : copy) {
      consume(name);
    }
  });

  EXPECT_EQ(allocations, 0U);
}

TEST(StringVectorAllocation, IsRareWhileElementsAreAppended) {
  constexpr std::size_t kElements = 100'000;
  const String name("wood.png");
  StringVector names;

  const HeapUse cost = costOf([&] {
    for (std::size_t i = 0; i < kElements; ++i) {
      names.push_back(name);
    }
  });

  EXPECT_EQ(names.size(), kElements);
  EXPECT_LE(cost.allocations, 60U);
  EXPECT_LE(cost.bytes, 8 * kElements * sizeof(String));
}

TEST(PathAllocation, IsOneForATextThatIsNotNormal) {
  const String normal("/a/normal/path/of/some/length");
  const String path("/a//path/./of/../some/length/");

  EXPECT_EQ(allocationsOf([&] { consume(Path::normalize(normal)); }), 0U);
  EXPECT_EQ(allocationsOf([&] { consume(Path(normal, true)); }), 0U);
  EXPECT_EQ(allocationsOf([&] { consume(Path::normalize(path)); }), 1U);
}

}  // namespace
}  // namespace vx::test
