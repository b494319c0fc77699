// What it costs to hand a string on, which happens at every call, beside the standard string.

#include "core/vx_string.h"

#include <benchmark/benchmark.h>

#include <string>

namespace {

constexpr const char* kText = "/home/somebody/projects/kitchen/res/oak veneer.png";

template <class Text>
void copyAndDrop(benchmark::State& state) {
  const Text text(kText);
  for (auto _ : state) {
    Text copy(text);
    benchmark::DoNotOptimize(copy);
  }
}
BENCHMARK(copyAndDrop<vx::String>);
BENCHMARK(copyAndDrop<std::string>);

template <class Text>
void makeAndDrop(benchmark::State& state) {
  for (auto _ : state) {
    Text text(kText);
    benchmark::DoNotOptimize(text);
  }
}
BENCHMARK(makeAndDrop<vx::String>);
BENCHMARK(makeAndDrop<std::string>);

}  // namespace
