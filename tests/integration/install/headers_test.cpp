// SPDX-License-Identifier: MIT
//
// What the public headers bring to whoever includes them.

#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <set>
#include <string>

namespace {

std::set<std::string> includedBy(const std::string& header) {
  std::ifstream file(VX_TREE "/" + header);
  EXPECT_TRUE(file.is_open()) << header;
  const std::regex include(R"re(^\s*#\s*include\s+[<"]([^>"]+)[>"])re");
  std::set<std::string> names;
  for (std::string line; std::getline(file, line);) {
    std::smatch match;
    if (std::regex_search(line, match, include)) {
      names.insert(match[1]);
    }
  }
  return names;
}

class PublicHeader : public testing::TestWithParam<const char*> {};

TEST_P(PublicHeader, IncludesOnlyTheStandardLibraryAndOtherPublicHeaders) {
  static const std::regex standard("[a-z_]+");
  static const std::set<std::string> ours = {VX_PUBLIC_HEADERS};

  for (const std::string& name : includedBy(GetParam())) {
    EXPECT_TRUE(ours.contains(name) || std::regex_match(name, standard)) << name;
  }
}

INSTANTIATE_TEST_SUITE_P(Each, PublicHeader, testing::Values(VX_PUBLIC_HEADERS));

}  // namespace
