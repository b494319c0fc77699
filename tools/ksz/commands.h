// SPDX-License-Identifier: MIT
//
// The commands of ksz. Each shows its result on standard output and its errors on standard error,
// and returns the exit status of the program.

#pragma once

#include "core/vx_string.h"
#include "core/vx_string_vector.h"

#include <string>

namespace ksz {

struct Options {
  bool force = false;  ///< overwrites files
  bool quiet = false;  ///< shows neither progress nor the files
};

// Archives

/// Writes `files` to `archive`. A failure or a signal leaves the archive that was there
/// before, and no temporary file.
int pack(vx::String archive, vx::StringVector files, Options options);

/// Extracts `archive` next to itself and shows the files. A signal leaves no file behind.
int unpack(vx::String archive, Options options);

// Files

/// Shows the subdirectories of `directory`, and its files with one of `extensions`, sorted.
int list(vx::String directory, vx::StringVector extensions);

/// Copies the file `from` to `to`, or into it when it is a directory, and compares the two.
int copy(vx::String from, vx::String to, Options options);

/// Moves the file `from` to `to`, or into it when it is a directory. Refuses where the move would
/// remove a file that has the name of its backup.
int move(vx::String from, vx::String to, Options options);

// Places

/// Shows every well-known location and whether it exists. With `create`, the product's directories
/// are made.
int where(bool create);

/// Shows the file that `reference` means.
int resolve(vx::String reference, vx::StringVector directories, vx::StringVector extensions);

// Dialogs

enum class Choice { OneFile, SeveralFiles, Folder, NewFile };

struct Dialog {
  vx::String title;
  vx::String start;  ///< the file or directory that it opens with; empty for the current directory
  vx::String description;
  vx::StringVector extensions;
};

/// Lets the user choose, and shows the choice.
int pick(Choice choice, const Dialog& dialog);

/// What is wrong with `text` as the title or description of a dialog; empty when nothing is.
[[nodiscard]] std::string dialogTextTrouble(const std::string& text);

}  // namespace ksz
