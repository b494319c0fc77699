// SPDX-License-Identifier: MIT
//
// Compares vx::Path with std::filesystem::path where the two agree, and checks invariants.

#include "core/vx_path.h"
#include "fuzz/support/input.h"
#include "fuzz/support/law.h"
#include "fuzz/support/sandbox.h"
#include "tests/testing/temp_dir.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace vx::fuzz {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLongestText = 48;

String ours(std::string_view text) {
  return String(text);
}

std::string text(const String& path) {
  return std::string(path.view());
}

String joined(const String& a, const String& b) {
  return Path::join(StringVector{a, b});
}

/// Converts a path of the standard library to the form of vx: without a separator at the end, and
/// with a single one at the root. The standard allows two to have a special meaning.
std::string asOurs(std::string path) {
  if (path.size() > 1 && path.ends_with('/')) {
    path.pop_back();
  }
  const std::size_t named = std::min(path.find_first_not_of('/'), path.size());
  return named < 2 ? path : path.substr(named - 1);
}

std::string normalByStandard(std::string_view path) {
  return asOurs(fs::path(path).lexically_normal().string());
}

std::vector<std::string> namedLevels(std::string_view path) {
  std::vector<std::string> levels;
  for (const fs::path& level : fs::path(path)) {
    if (!level.empty() && level != "." && !level.has_root_directory()) {
      levels.push_back(level.string());
    }
  }
  return levels;
}

std::vector<std::string> list(const StringVector& ours) {
  std::vector<std::string> texts;
  for (const String& element : ours) {
    texts.push_back(text(element));
  }
  return texts;
}

bool hasName(const Path& path) {
  const String name = path.file(/*withExt=*/true);
  return !name.isEmpty() && name != "." && name != "..";
}

void checkNormalForm(const std::string& given) {
  const String normal = Path::normalize(ours(given));
  expectEqual("the normal form is the standard library's", text(normal), normalByStandard(given),
              given);
  expectEqual("normalizing is idempotent", text(Path::normalize(normal)), text(normal), given);
  expect("a normal path is returned without a copy", Path::normalize(normal).buf() == normal.buf(),
         given);
  expectEqual("normalized() is normalize()", text(Path(ours(given), false).normalized()),
              text(normal), given);
  expectEqual("the constructor's flag normalizes", text(Path(ours(given), true).normalized()),
              text(normal), given);
  expectEqual("dir of a directory is its normal form", text(Path::dir(ours(given), true)),
              text(normal), given);
}

void checkParts(const std::string& given) {
  const Path path(ours(given), /*normalizeFirst=*/false);
  const std::string name = text(path.file(true));
  const std::string directory = text(Path::dir(ours(given), false));

  expectEqual("stem and extension form the name", text(path.file(false)) + text(path.ext(true)),
              name, given);
  expectEqual("the static ext equals the member", text(Path::ext(ours(given), true)),
              text(path.ext(true)), given);
  const std::string dotted = text(path.ext(true));
  expectEqual("ext(false) has no dot", text(path.ext(false)),
              dotted.empty() ? dotted : dotted.substr(1), given);
  expectEqual("directory and name form an equivalent path",
              normalByStandard(text(joined(ours(directory), ours(name)))), normalByStandard(given),
              given);
  expectEqual("a path is relative unless it begins with a separator", path.isRel(),
              fs::path(given).is_relative(), given);

  if (given.ends_with('/')) {
    return;  // the standard library returns an empty name
  }
  const fs::path standard(given);
  expectEqual("file(true) is filename()", name, standard.filename().string(), given);
  expectEqual("file(false) is stem()", text(path.file(false)), standard.stem().string(), given);
  expectEqual("ext(true) is extension()", dotted, standard.extension().string(), given);
  expectEqual("dir is parent_path()", normalByStandard(directory),
              normalByStandard(standard.parent_path().string()), given);
}

void checkPartsOfNormalForm(const std::string& given) {
  const String normal = Path::normalize(ours(given));
  const Path path(normal, /*normalizeFirst=*/false);
  const String directory = Path::dir(normal, false);

  expectEqual("directory and name form the normal path", text(joined(directory, path.file(true))),
              text(normal), given);
  expectEqual("the directory of a normal path is normal", text(Path::normalize(directory)),
              text(directory), given);
  const String root = path.isRel() ? "" : "/";
  String walked = root;
  for (const String& level : path.components()) {
    walked = joined(walked, level);
  }
  expectEqual("the components form the normal path", text(walked),
              normal == "." ? std::string() : text(normal), given);
}

void checkComponents(const std::string& a, const std::string& b) {
  const std::vector<std::string> levels = list(Path(ours(a), false).components());
  expect("the components are the standard library's without the root and dots",
         levels == namedLevels(a), a);

  std::vector<std::string> both = levels;
  const std::vector<std::string> more = list(Path(ours(b), false).components());
  both.insert(both.end(), more.begin(), more.end());
  expect("a joined path has the components of its parts",
         list(Path(joined(ours(a), ours(b)), false).components()) == both, a + "|" + b);
}

void checkJoin(const std::string& a, const std::string& b, const std::string& c) {
  const std::string detail = a + "|" + b + "|" + c;
  const String whole = Path::join(StringVector{ours(a), ours(b), ours(c)});
  expectEqual("the joins agree", text(Path::join(ours(a), ours(b), ours(c))), text(whole), detail);
  expectEqual("joining is associative from the left",
              text(joined(joined(ours(a), ours(b)), ours(c))), text(whole), detail);
  expectEqual("an empty part adds nothing", text(joined(ours(a), "")), a, detail);
  expectEqual("an empty first part adds nothing", text(joined("", ours(b))), b, detail);
  if (!a.empty() && fs::path(b).is_relative()) {
    expectEqual("a relative part is joined as in the standard library",
                normalByStandard(text(joined(ours(a), ours(b)))),
                normalByStandard((fs::path(a) / b).string()), detail);
  }
}

void checkChangeExt(const std::string& given) {
  const Path path(ours(given), /*normalizeFirst=*/false);
  const String backup = Path::changeExt(ours(given), ".bak");
  if (!hasName(path)) {
    expectEqual("a path without a name keeps its extension", text(backup), given, given);
    return;
  }
  expectEqual("the extension is the new one", text(Path(backup, false).ext(true)),
              std::string(".bak"), given);
  expectEqual("the stem is unchanged", text(Path(backup, false).file(false)),
              text(path.file(false)), given);
  expectEqual("the directory is unchanged", text(Path::dir(backup, false)),
              text(Path::dir(ours(given), false)), given);
  expectEqual("a second change replaces the first", text(Path::changeExt(backup, ".x")),
              text(Path::changeExt(ours(given), ".x")), given);
  expectEqual("setting the same extension removes only trailing separators",
              text(Path::changeExt(ours(given), path.ext(true))),
              given.substr(0, given.find_last_not_of('/') + 1), given);
  if (given.ends_with('/')) {
    return;
  }
  expectEqual("changeExt is replace_extension()", text(backup),
              fs::path(given).replace_extension(".bak").string(), given);
  expectEqual("an empty extension is replace_extension()", text(Path::changeExt(ours(given), "")),
              fs::path(given).replace_extension().string(), given);
}

bool hasDirectoryBit(const std::string& path) {
  std::error_code ignored;
  const fs::file_type type = fs::status(path, ignored).type();
  return type == fs::file_type::directory || type == fs::file_type::block ||
         type == fs::file_type::socket;
}

void checkQueries(const std::string& given) {
  const Path path(ours(given), /*normalizeFirst=*/false);
  std::error_code ignored;
  const bool exists = fs::exists(given, ignored);
  expectEqual("exists() is the standard library's", path.exists(), exists, given);
  expectEqual("isDir() is the directory bit", path.isDir(), hasDirectoryBit(given), given);
  expectEqual("isFile() is true for other entries", path.isFile(), exists && !path.isDir(), given);
  expectEqual("the static isDir equals the member", Path::isDir(ours(given), false), path.isDir(),
              given);
  expectEqual("the static isFile equals the member", Path::isFile(ours(given), false),
              path.isFile(), given);
  expectEqual("dir() of an existing directory is the path itself", text(path.dir()),
              path.isDir() ? given : text(Path::dir(ours(given), false)), given);
}

/// Returns the canonical path of the standard library, or nothing if it fails.
std::optional<std::string> canonicalByStandard(const std::string& path) {
  std::error_code error;
  const fs::path found = fs::weakly_canonical(fs::absolute(path), error);
  if (error) {
    return std::nullopt;
  }
  return asOurs(found.string());
}

void checkCanonical(const std::string& given) {
  const String canonical = Path(ours(given), /*normalizeFirst=*/false).canonical();
  expect("a canonical path is absolute", !Path(canonical, false).isRel(), given);
  expectEqual("a canonical path is normal", text(Path::normalize(canonical)), text(canonical),
              given);
  if (!given.empty()) {
    if (const auto standard = canonicalByStandard(given)) {
      expectEqual("canonical() is weakly_canonical()", text(canonical), *standard, given);
    }
  }
  // Removing a missing directory and the ".." after it may expose a link, so only the canonical
  // form of a normal path is stable.
  const String ofNormal = Path(ours(given), /*normalizeFirst=*/true).canonical();
  expectEqual("canonical() of a normal path is idempotent", text(Path(ofNormal, false).canonical()),
              text(ofNormal), given);
}

/// Creates files, directories and links with the names that the generated paths use.
void createFiles(const std::string& directory) {
  fs::current_path(directory);
  fs::create_directories("a/b/a");
  fs::create_directories("b");
  test::writeFile("f", "");
  test::writeFile("a/f.a", "");
  test::writeFile("a.f", "");
  fs::create_symlink("a/b", "l");
  fs::create_symlink("missing/b", "b/l");
  fs::create_symlink("../f", "a/l");
  fs::create_symlink("loop", "loop");
  fs::create_symlink("..", "a/b/l");
}

std::string anyPath(Input& input) {
  switch (input.below(4)) {
    case 0:
      return std::string(input.bytes(kLongestText));
    case 1:
      return input.text("/.", kLongestText);
    default:
      return input.text("/./.ablf", kLongestText);
  }
}

bool containsNul(const std::string& path) {
  return path.find('\0') != std::string::npos;
}

}  // namespace
}  // namespace vx::fuzz

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  static const vx::fuzz::Sandbox sandbox;
  vx::fuzz::createFiles(sandbox.path());
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace vx::fuzz;
  Input input(data, size);
  const std::string a = anyPath(input);
  const std::string b = anyPath(input);
  const std::string c = anyPath(input);
  checkNormalForm(a);
  checkParts(a);
  checkPartsOfNormalForm(a);
  checkComponents(a, b);
  checkJoin(a, b, c);
  checkChangeExt(a);
  if (!containsNul(a)) {
    checkQueries(a);
    checkCanonical(a);
  }
  return 0;
}
