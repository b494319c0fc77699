// SPDX-License-Identifier: MIT

#include "tests/testing/dialog_program.h"

#include <cstdlib>
#include <filesystem>
#include <sstream>

namespace vx::test {
namespace {

constexpr const char* kScript = R"(#!/bin/sh
if [ "$1" = --version ]; then
  echo 3.44.0
  exit 0
fi
printf '%s\0' "$@" >"$DIALOG_ARGUMENTS"
[ -f "$DIALOG_ANSWER" ] || exit 1
exec cat "$DIALOG_ANSWER"
)";

std::string searchPath() {
  const char* const path = std::getenv("PATH");
  return path == nullptr ? "/usr/bin:/bin" : path;
}

}  // namespace

DialogProgram::DialogProgram(const std::string& name, const char* desktop)
    : path_("PATH", tmp_.path("bin") + ":" + searchPath()),
      desktop_("XDG_SESSION_DESKTOP", desktop) {
  std::filesystem::permissions(tmp_.write("bin/" + name, kScript),
                               std::filesystem::perms::owner_all);
}

std::vector<std::string> DialogProgram::arguments() const {
  std::istringstream stream(tmp_.exists("arguments") ? tmp_.read("arguments") : "");
  std::vector<std::string> all;
  for (std::string argument; std::getline(stream, argument, '\0');) {
    all.push_back(argument);
  }
  return all;
}

}  // namespace vx::test
