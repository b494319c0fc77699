// SPDX-License-Identifier: MIT
//
// A main function for fuzzers without the fuzzing engine. Runs the files on the command line and
// the files in the directories on the command line.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

// The entry points of a fuzzer, with the names that the fuzzing engine requires.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> inputsIn(const std::vector<std::string>& arguments) {
  std::vector<fs::path> inputs;
  for (const std::string& argument : arguments) {
    if (!fs::is_directory(argument)) {
      inputs.emplace_back(argument);
      continue;
    }
    for (const fs::directory_entry& entry : fs::directory_iterator(argument)) {
      inputs.push_back(entry.path());
    }
  }
  std::sort(inputs.begin(), inputs.end());
  for (fs::path& input : inputs) {
    input = fs::absolute(input);  // a fuzzer may change the current directory
  }
  return inputs;
}

std::vector<std::uint8_t> bytesOf(const fs::path& file) {
  std::ifstream stream;
  stream.exceptions(std::ios::failbit | std::ios::badbit);
  stream.open(file, std::ios::binary);
  stream.exceptions(std::ios::badbit);
  return {std::istreambuf_iterator<char>(stream), {}};
}

int replay(const std::vector<fs::path>& inputs) {
  for (const fs::path& input : inputs) {
    // Flushed, so that the last line names the input that crashes.
    std::printf("%s\n", input.filename().c_str());
    std::fflush(stdout);
    const std::vector<std::uint8_t> bytes = bytesOf(input);
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  }
  std::printf("%zu inputs\n", inputs.size());
  return inputs.empty() ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const std::vector<fs::path> inputs = inputsIn({argv + 1, argv + argc});
    LLVMFuzzerInitialize(&argc, &argv);
    return replay(inputs);
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "%s\n", exception.what());
    return 1;
  }
}
