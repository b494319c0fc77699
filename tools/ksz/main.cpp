// SPDX-License-Identifier: MIT
//
// ksz packs the files of a scene into a ksz archive, extracts such an archive, and offers other
// functions of vx::fs on the command line.
//
//   ksz pack room.ksz room.ksx lamp.ksa res/*.png
//   ksz unpack room.ksz
//   ksz resolve res/wood.png --in . ~/textures --ext png jpg
//
// The exit status is 0 on success, 1 on failure and 2 for an invalid command line. After a signal
// the program removes its temporary files before it terminates.

#include "core/vx_path.h"
#include "core/vx_string.h"
#include "core/vx_string_vector.h"
#include "tools/ksz/commands.h"
#include "tools/ksz/console.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr const char* kExamples = R"(Examples:
  ksz pack room.ksz room.ksx lamp.ksa res/*.png
  ksz unpack room.ksz
  ksz resolve res/wood.png --in . ~/textures --ext png jpg
  ksz ls res --ext png jpg
  ksz pick several --title "Add textures" --ext png jpg

All arguments after "--" are file names. "ksz COMMAND --help" shows the options of a command.)";

/// The values of all options. Each command uses some of them.
struct Arguments {
  std::string archive;
  std::vector<std::string> files;
  std::string from;
  std::string to;
  std::string directory;
  std::string reference;
  std::vector<std::string> directories;
  std::vector<std::string> extensions;
  bool create = false;
  std::string kind;
  std::string title = "ksz";
  std::string start;
  std::string description;
  ksz::Options options;
};

vx::StringVector list(const std::vector<std::string>& values) {
  vx::StringVector texts;
  for (const std::string& value : values) {
    texts.push_back(ksz::text(value));
  }
  return texts;
}

ksz::Choice choice(const std::string& kind) {
  if (kind == "several") {
    return ksz::Choice::SeveralFiles;
  }
  if (kind == "folder") {
    return ksz::Choice::Folder;
  }
  return kind == "save" ? ksz::Choice::NewFile : ksz::Choice::OneFile;
}

/// Without this check, a command line without the archive would overwrite its first file.
std::string requireKsz(const std::string& name) {
  const vx::String extension = vx::Path::ext(ksz::text(name), true);
  return extension.compareNoCase(".ksz") == 0 ? "" : "the archive's name must end in .ksz: " + name;
}

/// Removes "--" from the arguments of `pack` and adds "./" to later names that look like options,
/// because CLI11 accepts "--" only before the last required name. Other commands are unchanged.
std::vector<std::string> withPlainNames(std::vector<std::string> arguments) {
  auto mark = std::find(arguments.begin(), arguments.end(), "--");
  if (mark == arguments.end() || arguments.front() != "pack") {
    return arguments;
  }
  for (mark = arguments.erase(mark); mark != arguments.end(); ++mark) {
    if (mark->starts_with('-')) {
      mark->insert(0, "./");
    }
  }
  return arguments;
}

/// CLI11 expects the arguments in reverse order.
std::vector<std::string> reversed(std::vector<std::string> arguments) {
  std::reverse(arguments.begin(), arguments.end());
  return arguments;
}

/// The program's commands. Parsing fills `arguments_` and sets `run_` to the selected command.
class CommandLine {
 public:
  CommandLine() {
    app_.require_subcommand(1);
    app_.set_version_flag("--version", "ksz " KSZ_VERSION);
    addArchiveCommands();
    addFileCommands();
    addPlaceCommands();
    addPick();
    app_.footer(kExamples);  // last, because commands inherit the footer
  }

  int runWith(int argc, char** argv) {
    try {
      app_.parse(reversed(withPlainNames({argv + 1, argv + argc})));
    } catch (const CLI::RequiredError& error) {
      // The first unparsed argument is an unknown command.
      const std::vector<std::string> left = app_.remaining();
      if (left.empty()) {
        return exitFor(error);
      }
      ksz::complain("no such command, see ksz --help", ksz::text(left.front()));
      return ksz::kExitUsage;
    } catch (const CLI::ParseError& error) {
      return exitFor(error);
    }
    return run_();
  }

 private:
  int exitFor(const CLI::ParseError& error) {
    return app_.exit(error) == EXIT_SUCCESS ? EXIT_SUCCESS : ksz::kExitUsage;
  }

  CLI::App& add(const char* name, const char* effect, std::function<int()> run) {
    CLI::App* const command = app_.add_subcommand(name, effect);
    command->callback([this, run] { run_ = run; });
    return *command;
  }

  void addArchiveCommands() {
    CLI::App& pack = add("pack", "Write an archive from files", [this] {
      return ksz::pack(ksz::text(arguments_.archive), list(arguments_.files), arguments_.options);
    });
    pack.add_option("OUT.ksz", arguments_.archive, "The archive to write")
        ->required()
        ->check(requireKsz);
    pack.add_option("FILE", arguments_.files, "The scene, its materials and resources")->required();
    addForce(pack);
    addQuiet(pack, "Show no progress");

    CLI::App& unpack =
        add("unpack", "Extract an archive into the directory that contains it",
            [this] { return ksz::unpack(ksz::text(arguments_.archive), arguments_.options); });
    unpack.add_option("ARCHIVE", arguments_.archive, "The archive to read")->required();
    addForce(unpack);
    addQuiet(unpack, "Do not list the files");
  }

  void addFileCommands() {
    CLI::App& ls = add(
        "ls", "List the subdirectories of a directory and its files by extension",
        [this] { return ksz::list(ksz::text(arguments_.directory), list(arguments_.extensions)); });
    ls.add_option("DIR", arguments_.directory, "The directory")->required();
    addExtensions(ls, "The extensions of the files to list (default: none)");

    CLI::App& cp = add("cp", "Copy a file and check the copy", [this] {
      return ksz::copy(ksz::text(arguments_.from), ksz::text(arguments_.to), arguments_.options);
    });
    cp.add_option("FROM", arguments_.from, "The file")->required();
    cp.add_option("TO", arguments_.to, "The copy, or an existing directory")->required();
    addForce(cp);

    CLI::App& mv = add("mv", "Rename a file", [this] {
      return ksz::move(ksz::text(arguments_.from), ksz::text(arguments_.to), arguments_.options);
    });
    mv.add_option("FROM", arguments_.from, "The file")->required();
    mv.add_option("TO", arguments_.to, "The new name, or an existing directory")->required();
    addForce(mv);
  }

  void addPlaceCommands() {
    CLI::App& where = add("where", "Print every well-known location and whether it exists",
                          [this] { return ksz::where(arguments_.create); });
    where.add_flag("--create", arguments_.create, "Create the product's directories first");

    CLI::App& resolve = add("resolve", "Find the file for a stored reference", [this] {
      return ksz::resolve(ksz::text(arguments_.reference), list(arguments_.directories),
                          list(arguments_.extensions));
    });
    resolve
        .add_option("REF", arguments_.reference,
                    "The reference, such as res/wood.png, or res/wood.* with any extension")
        ->required();
    resolve.add_option("--in", arguments_.directories, "The directories to search, in order")
        ->type_name("DIR");
    addExtensions(resolve, "The extensions to try for .* or after the name, in order");
  }

  void addPick() {
    CLI::App& pick = add("pick", "Open a file dialog and print the choice", [this] {
      return ksz::pick(choice(arguments_.kind), {.title = ksz::text(arguments_.title),
                                                 .start = ksz::text(arguments_.start),
                                                 .description = ksz::text(arguments_.description),
                                                 .extensions = list(arguments_.extensions)});
    });
    pick.add_option("KIND", arguments_.kind, "One file, several files, a folder, or a file to save")
        ->required()
        ->check(CLI::IsMember({"open", "several", "folder", "save"}))
        ->type_name("");
    pick.add_option("--title", arguments_.title, "The title of the dialog")
        ->check(ksz::dialogTextError)
        ->type_name("TEXT");
    pick.add_option("--at", arguments_.start, "The initial file or directory (default: current)")
        ->type_name("PATH");
    pick.add_option("--about", arguments_.description, "A description of the files, such as Images")
        ->check(ksz::dialogTextError)
        ->type_name("TEXT");
    addExtensions(pick, "The extensions of the files to show")->check(ksz::dialogTextError);
  }

  void addForce(CLI::App& command) {
    command.add_flag("--force", arguments_.options.force, "Overwrite files");
  }

  void addQuiet(CLI::App& command, const char* meaning) {
    command.add_flag("-q,--quiet", arguments_.options.quiet, meaning);
  }

  CLI::Option* addExtensions(CLI::App& command, const char* meaning) {
    return command.add_option("--ext", arguments_.extensions, meaning)->type_name("EXT");
  }

  CLI::App app_{"Packs the files of a scene into a ksz archive, extracts such archives, and more.",
                "ksz"};
  Arguments arguments_;
  std::function<int()> run_;
};

}  // namespace

int main(int argc, char** argv) {
  ksz::openClosedStreams();
  try {
    return ksz::finishOutput(CommandLine().runWith(argc, argv));
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "ksz: %s\n", failure.what());
    return ksz::kExitFailure;
  }
}
