// SPDX-License-Identifier: MIT
//
// Compares operations on strings with plain C that allocates the same results, and with other
// libraries.

#include "core/vx_string.h"

#include "bench/vx_inputs.h"
#include "core/vx_string_vector.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <strings.h>

namespace {

using namespace vx::bench;

// ---- Copying ----------------------------------------------------------------------------------

void copyPlainC(benchmark::State& state) {
  std::atomic<std::size_t> count{1};
  for (auto _ : state) {
    count.fetch_add(1, std::memory_order_relaxed);
    count.fetch_sub(1, std::memory_order_acq_rel);
  }
}
BENCHMARK(copyPlainC)->Name("string copy/plain C");

void copyVx(benchmark::State& state) {
  const vx::String text = kLiteral;
  for (auto _ : state) {
    vx::String copy = text;
    benchmark::DoNotOptimize(copy);
  }
}
BENCHMARK(copyVx)->Name("string copy/vx");

void copySharedPtr(benchmark::State& state) {
  const auto text = std::make_shared<std::string>(kLiteral);
  for (auto _ : state) {
    auto copy = text;
    benchmark::DoNotOptimize(copy);
  }
}
BENCHMARK(copySharedPtr)->Name("string copy/std::shared_ptr");

// ---- Construction from a literal --------------------------------------------------------------

void literalPlainC(benchmark::State& state) {
  for (auto _ : state) {
    const char* text = kLiteral;
    benchmark::DoNotOptimize(text);
    const std::size_t length = std::strlen(text);
    auto* const block = static_cast<char*>(std::malloc(length + 1));
    std::memcpy(block, text, length + 1);
    benchmark::DoNotOptimize(block);
    benchmark::ClobberMemory();
    std::free(block);
  }
}
BENCHMARK(literalPlainC)->Name("string literal 24/plain C");

template <class Text>
void literal(benchmark::State& state) {
  for (auto _ : state) {
    const char* text = kLiteral;
    benchmark::DoNotOptimize(text);
    Text copy(text);
    benchmark::DoNotOptimize(copy);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(literal<vx::String>)->Name("string literal 24/vx");
BENCHMARK(literal<std::string>)->Name("string literal 24/std::string");

// ---- Appending --------------------------------------------------------------------------------

void appendPlainC(benchmark::State& state) {
  for (auto _ : state) {
    std::size_t capacity = std::strlen(kPiece);
    std::size_t length = 0;
    char* block = nullptr;
    for (int i = 0; i < 8; ++i) {
      const char* piece = kPiece;
      benchmark::DoNotOptimize(piece);
      const std::size_t added = std::strlen(piece);
      if (block == nullptr || length + added > capacity) {
        capacity = block == nullptr ? added : 2 * (length + added);
        auto* const larger = static_cast<char*>(std::malloc(capacity + 1));
        if (block != nullptr) {
          std::memcpy(larger, block, length);
        }
        std::free(block);
        block = larger;
      }
      std::memcpy(block + length, piece, added + 1);
      length += added;
    }
    benchmark::DoNotOptimize(block);
    benchmark::ClobberMemory();
    std::free(block);
  }
}
BENCHMARK(appendPlainC)->Name("string append 8/plain C");

void appendVx(benchmark::State& state) {
  for (auto _ : state) {
    vx::String text;
    for (int i = 0; i < 8; ++i) {
      const char* piece = kPiece;
      benchmark::DoNotOptimize(piece);
      text << piece;
    }
    benchmark::DoNotOptimize(text);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(appendVx)->Name("string append 8/vx");

void appendStd(benchmark::State& state) {
  for (auto _ : state) {
    std::string text;
    for (int i = 0; i < 8; ++i) {
      const char* piece = kPiece;
      benchmark::DoNotOptimize(piece);
      text += piece;
    }
    benchmark::DoNotOptimize(text);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(appendStd)->Name("string append 8/std::string");

// ---- Splitting and joining --------------------------------------------------------------------

// Allocates one block for each piece and one for the pointers.
void splitPlainC(benchmark::State& state) {
  const std::string text = sixteenJoined("|");
  for (auto _ : state) {
    std::size_t capacity = 4;
    std::size_t count = 0;
    auto** pieces = static_cast<char**>(std::malloc(capacity * sizeof(char*)));
    const char* rest = text.c_str();
    for (;;) {
      const char* const end = std::strchr(rest, '|');
      const std::size_t length =
          end == nullptr ? std::strlen(rest) : static_cast<std::size_t>(end - rest);
      auto* const piece = static_cast<char*>(std::malloc(length + 1));
      std::memcpy(piece, rest, length);
      piece[length] = '\0';
      if (count == capacity) {
        capacity *= 2;
        pieces = static_cast<char**>(std::realloc(pieces, capacity * sizeof(char*)));
      }
      pieces[count++] = piece;
      if (end == nullptr) {
        break;
      }
      rest = end + 1;
    }
    benchmark::DoNotOptimize(pieces);
    benchmark::ClobberMemory();
    for (std::size_t i = 0; i < count; ++i) {
      std::free(pieces[i]);
    }
    std::free(pieces);
  }
}
BENCHMARK(splitPlainC)->Name("string split 16/plain C");

void splitVx(benchmark::State& state) {
  const vx::String text(std::string_view(sixteenJoined("|")));
  for (auto _ : state) {
    vx::StringVector pieces = text.split('|', true, false);
    benchmark::DoNotOptimize(pieces);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(splitVx)->Name("string split 16/vx");

void splitStd(benchmark::State& state) {
  const std::string text = sixteenJoined("|");
  for (auto _ : state) {
    std::vector<std::string> pieces;
    std::size_t begin = 0;
    for (;;) {
      const std::size_t end = text.find('|', begin);
      pieces.push_back(text.substr(begin, end - begin));
      if (end == std::string::npos) {
        break;
      }
      begin = end + 1;
    }
    benchmark::DoNotOptimize(pieces);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(splitStd)->Name("string split 16/std::string");

void joinPlainC(benchmark::State& state) {
  const std::vector<std::string> names = sixteenNames();
  for (auto _ : state) {
    std::size_t length = 2 * (names.size() - 1);
    for (const std::string& name : names) {
      length += name.size();
    }
    auto* const block = static_cast<char*>(std::malloc(length + 1));
    char* end = block;
    for (const std::string& name : names) {
      if (end != block) {
        std::memcpy(end, ", ", 2);
        end += 2;
      }
      std::memcpy(end, name.data(), name.size());
      end += name.size();
    }
    *end = '\0';
    benchmark::DoNotOptimize(block);
    benchmark::ClobberMemory();
    std::free(block);
  }
}
BENCHMARK(joinPlainC)->Name("string join 16/plain C");

void joinVx(benchmark::State& state) {
  vx::StringVector names;
  for (const std::string& name : sixteenNames()) {
    names.push_back(vx::String(std::string_view(name)));
  }
  const vx::String separator = ", ";
  for (auto _ : state) {
    vx::String joined = names.join(separator);
    benchmark::DoNotOptimize(joined);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(joinVx)->Name("string join 16/vx");

void joinStd(benchmark::State& state) {
  const std::vector<std::string> names = sixteenNames();
  for (auto _ : state) {
    std::string joined;
    for (const std::string& name : names) {
      if (!joined.empty()) {
        joined += ", ";
      }
      joined += name;
    }
    benchmark::DoNotOptimize(joined);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(joinStd)->Name("string join 16/std::string");

// ---- Case-insensitive comparison --------------------------------------------------------------

int lowered(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte >= 'A' && byte <= 'Z' ? byte | 0x20 : byte;
}

int compareByBytes(const char* a, const char* b) {
  for (;; ++a, ++b) {
    const int left = lowered(*a);
    const int right = lowered(*b);
    if (left != right || left == 0) {
      return left - right;
    }
  }
}

using Compare = int (*)(const char*, const char*);

void compareC(benchmark::State& state, Compare compare, Pair pair) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(pair);
    benchmark::DoNotOptimize(compare(pair.a, pair.b));
  }
}

void compareVx(benchmark::State& state, Pair pair) {
  const vx::String a = pair.a;
  const vx::String b = pair.b;
  for (auto _ : state) {
    benchmark::DoNotOptimize(a.compareNoCase(b));
  }
}

BENCHMARK_CAPTURE(compareC, 24, compareByBytes, kLong)->Name("compareNoCase 24/plain C");
BENCHMARK_CAPTURE(compareVx, 24, kLong)->Name("compareNoCase 24/vx");
BENCHMARK_CAPTURE(compareC, 24, strcasecmp, kLong)->Name("compareNoCase 24/strcasecmp");
BENCHMARK_CAPTURE(compareC, 3, compareByBytes, kShort)->Name("compareNoCase 3/plain C");
BENCHMARK_CAPTURE(compareVx, 3, kShort)->Name("compareNoCase 3/vx");
BENCHMARK_CAPTURE(compareC, 3, strcasecmp, kShort)->Name("compareNoCase 3/strcasecmp");

}  // namespace

BENCHMARK_MAIN();
