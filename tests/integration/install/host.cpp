// SPDX-License-Identifier: MIT
//
// Loads a plug-in and runs it.

#include <cstdio>

#include <dlfcn.h>

int main(int count, char** arguments) {
  void* const plugin = count == 2 ? dlopen(arguments[1], RTLD_NOW | RTLD_GLOBAL) : nullptr;
  if (plugin == nullptr) {
    std::printf("%s\n", dlerror());
    return 1;
  }
  const auto run = reinterpret_cast<int (*)()>(dlsym(plugin, "runPlugin"));
  return run != nullptr && run() == 1 ? 0 : 1;
}
