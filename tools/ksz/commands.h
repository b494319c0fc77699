// SPDX-License-Identifier: MIT
//
// The commands of ksz. Each prints its result to standard output and its errors to standard error,
// and returns the exit status of the program.

#pragma once

#include "core/vx_string.h"
#include "core/vx_string_vector.h"

#include <string>

namespace ksz {

struct Options {
  bool force = false;  ///< overwrite files
  bool quiet = false;  ///< hide progress and the list of files
};

// Archives

/// Writes `files` to `archive`. After a failure or a signal, an existing archive is unchanged and
/// no temporary file remains.
int pack(vx::String archive, vx::StringVector files, Options options);

/// Extracts `archive` to the directory that contains it and lists the files. After a signal, no
/// extracted file remains.
int unpack(vx::String archive, Options options);

// Files

/// Lists the subdirectories of `directory` and its files with one of `extensions`, sorted.
int list(vx::String directory, vx::StringVector extensions);

/// Copies the file `from` to `to`, or into `to` if it is a directory, and compares the two.
int copy(vx::String from, vx::String to, Options options);

/// Moves the file `from` to `to`, or into `to` if it is a directory. Fails if a file has the name
/// of the backup, because the move would remove it.
int move(vx::String from, vx::String to, Options options);

// Places

/// Prints every well-known location and whether it exists.
/// @param create  Create the product's directories first.
int where(bool create);

/// Prints the file that `reference` resolves to.
int resolve(vx::String reference, vx::StringVector directories, vx::StringVector extensions);

// Dialogs

enum class Choice { OneFile, SeveralFiles, Folder, NewFile };

struct Dialog {
  vx::String title;
  vx::String start;  ///< the initial file or directory; empty for the current directory
  vx::String description;
  vx::StringVector extensions;
};

/// Opens a dialog and prints the user's choice.
int pick(Choice choice, const Dialog& dialog);

/// Returns why a dialog cannot show `text`, or an empty string if it can.
[[nodiscard]] std::string dialogTextError(const std::string& text);

}  // namespace ksz
