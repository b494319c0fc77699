// SPDX-License-Identifier: MIT

#include "core/vx_path.h"
#include "fs/vx_fs.h"
#include "tools/ksz/commands.h"
#include "tools/ksz/console.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace ksz {
namespace {

// The dialog library inserts every text into a shell command, in a buffer of fixed size.
constexpr std::string_view kNotInDialogs = "'\"`$\\";
constexpr std::size_t kRoomInDialogs = 600;

bool fitsDialogs(std::string_view text) {
  return text != "tinyfd_query" && text.find_first_of(kNotInDialogs) == std::string_view::npos &&
         printable(vx::String(text)) == text;
}

/// Returns `start` as an absolute path, as the library requires. The "/" after a directory makes
/// the dialog open in it instead of in its parent directory.
vx::String absoluteStart(vx::String start) {
  const vx::String path = vx::Path(start, true).canonical();
  return vx::fs::isDir(path) && !path.endsWith("/", /*ignoreCase=*/false) ? path + "/" : path;
}

std::size_t roomTaken(const Dialog& dialog, vx::String start) {
  constexpr std::size_t kAroundEach = 4;
  std::size_t filters = 0;
  for (const vx::String& extension : dialog.extensions) {
    filters += extension.length() + kAroundEach;
  }
  return dialog.title.length() + start.length() + dialog.description.length() + 2 * filters;
}

vx::StringVector chosen(Choice choice, const Dialog& dialog, vx::String start) {
  switch (choice) {
    case Choice::OneFile:
      return {vx::fs::browseFile(dialog.title, start, dialog.description, dialog.extensions)};
    case Choice::SeveralFiles:
      return vx::fs::browseFiles(dialog.title, start, dialog.description, dialog.extensions);
    case Choice::Folder:
      return {vx::fs::browseDir(dialog.title, start)};
    case Choice::NewFile:
      return {vx::fs::saveFile(dialog.title, start, dialog.description, dialog.extensions)};
  }
  return {};
}

}  // namespace

std::string dialogTextError(const std::string& text) {
  return fitsDialogs(text) ? "" : "a dialog cannot show this text: " + text;
}

int pick(Choice choice, const Dialog& dialog) {
  const Messages messages;
  const vx::String start = absoluteStart(dialog.start);
  if (!fitsDialogs(start.view())) {
    return fail("a dialog cannot open with this path", start);
  }
  if (roomTaken(dialog, start) > kRoomInDialogs) {
    return fail("the texts are too long for a dialog", dialog.title);
  }
  const vx::StringVector paths = chosen(choice, dialog, start);
  if (paths.front().isEmpty()) {
    return fail("nothing was chosen", dialog.title);
  }
  for (const vx::String& path : paths) {
    std::printf("%s\n", printable(path).c_str());
  }
  return messages.none() ? EXIT_SUCCESS : kExitFailure;
}

}  // namespace ksz
