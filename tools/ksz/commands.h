// The commands of ksz. Each does what was asked for, shows what comes of it, and returns the exit
// status of the program: success, or a failure about which standard error says more.

#pragma once

#include "core/vx_string.h"
#include "core/vx_string_vector.h"

#include <string>

namespace ksz {

// Archives

/// Writes `files` to `archive`. Nothing stays there when one of them is missing, or when a signal
/// ends the process.
int pack(vx::String archive, vx::StringVector files);

/// Expands `archive` beside itself and shows what landed where.
int unpack(vx::String archive);

// Files

/// Shows the subdirectories of `directory`, and its files with one of `extensions`, sorted.
int list(vx::String directory, vx::StringVector extensions);

/// Copies the file `from` to `to`, or into it when it is a directory, and compares the two.
int copy(vx::String from, vx::String to);

/// Moves the file `from` to `to`, or into it when it is a directory. Refuses where the move would
/// cost a file that is called like its backup.
int move(vx::String from, vx::String to);

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
