// ksz: packs the files of a scene into a ksz archive and unpacks one beside itself, and shows what
// else vx::fs does for an application.
//
//   ksz pack room.ksz room.ksx lamp.ksa res/*.png
//   ksz unpack room.ksz
//   ksz resolve res/wood.png --in . ~/textures --ext png jpg
//
// All work on files goes through vx::fs, whose own messages say what went wrong. The exit status is
// 0 when everything asked for was done, 1 when something was not, 2 for a wrong command line, and
// 128 plus the signal's number after a signal.
//
// This is the command line; the commands are in the folder ksz.

#include "core/vx_path.h"
#include "core/vx_string.h"
#include "core/vx_string_vector.h"
#include "tools/ksz/commands.h"
#include "tools/ksz/console.h"

#include <CLI/CLI.hpp>

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

"ksz COMMAND --help" tells more about a command.)";

/// What the command line says; each command uses its part.
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
};

vx::String text(const std::string& value) {
  return vx::String(std::string_view(value));
}

vx::StringVector list(const std::vector<std::string>& values) {
  vx::StringVector texts;
  for (const std::string& value : values) {
    texts.push_back(text(value));
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

/// Guards the file that comes first when the name of the archive was forgotten.
std::string requireKsz(const std::string& name) {
  const vx::String extension = vx::Path::ext(text(name), true);
  return extension.compareNoCase(".ksz") == 0 ? "" : "the archive's name must end in .ksz: " + name;
}

/// The program's commands. Parsing the command line fills `arguments` and sets `run` to the one
/// that was asked for.
class CommandLine {
 public:
  CommandLine() {
    app_.require_subcommand(1);
    addArchiveCommands();
    addFileCommands();
    addPlaceCommands();
    addPick();
    app_.footer(kExamples);  // last, or every command would show it too
  }

  int runWith(int argc, char** argv) {
    try {
      app_.parse(argc, argv);
    } catch (const CLI::RequiredError& error) {
      // What is left over would have been the command.
      const std::vector<std::string> left = app_.remaining();
      if (left.empty()) {
        return exitFor(error);
      }
      std::fprintf(stderr, "there is no command %s: ksz --help lists them\n",
                   ksz::printable(text(left.front())).c_str());
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
      return ksz::pack(text(arguments_.archive), list(arguments_.files));
    });
    pack.add_option("OUT.ksz", arguments_.archive, "The archive to write")
        ->required()
        ->check(requireKsz);
    pack.add_option("FILE", arguments_.files, "The scene, its materials and resources")->required();

    CLI::App& unpack = add("unpack", "Expand an archive beside itself",
                           [this] { return ksz::unpack(text(arguments_.archive)); });
    unpack.add_option("ARCHIVE", arguments_.archive, "The archive to read")->required();
  }

  void addFileCommands() {
    CLI::App& ls =
        add("ls", "List the subdirectories of a directory, and its files by extension",
            [this] { return ksz::list(text(arguments_.directory), list(arguments_.extensions)); });
    ls.add_option("DIR", arguments_.directory, "The directory")->required();
    addExtensions(ls, "Files with one of these are listed; without any, no files are");

    CLI::App& cp = add("cp", "Copy the bytes of a file and compare the two",
                       [this] { return ksz::copy(text(arguments_.from), text(arguments_.to)); });
    cp.add_option("FROM", arguments_.from, "The file")->required();
    cp.add_option("TO", arguments_.to, "Its copy, or the directory for it")->required();

    CLI::App& mv = add("mv", "Rename a file, keeping what it replaces until that has succeeded",
                       [this] { return ksz::move(text(arguments_.from), text(arguments_.to)); });
    mv.add_option("FROM", arguments_.from, "The file")->required();
    mv.add_option("TO", arguments_.to, "Its new name, or the directory for it")->required();
  }

  void addPlaceCommands() {
    CLI::App& where = add("where", "Show every well-known location, and which exist",
                          [this] { return ksz::where(arguments_.create); });
    where.add_flag("--create", arguments_.create, "Make the product's directories first");

    CLI::App& resolve = add("resolve", "Find the file that a stored reference means", [this] {
      return ksz::resolve(text(arguments_.reference), list(arguments_.directories),
                          list(arguments_.extensions));
    });
    resolve
        .add_option("REF", arguments_.reference,
                    "The reference, such as res/wood.png, or res/wood.* with any extension")
        ->required();
    resolve.add_option("--in", arguments_.directories, "The directories to search, best first")
        ->type_name("DIR");
    addExtensions(resolve, "The extensions to try for .*, or else behind the name, best first");
  }

  void addPick() {
    CLI::App& pick = add("pick", "Choose in a dialog", [this] {
      return ksz::pick(choice(arguments_.kind), {.title = text(arguments_.title),
                                                 .start = text(arguments_.start),
                                                 .description = text(arguments_.description),
                                                 .extensions = list(arguments_.extensions)});
    });
    pick.add_option("KIND", arguments_.kind, "One file, several, a folder, or a file to write")
        ->required()
        ->check(CLI::IsMember({"open", "several", "folder", "save"}))
        ->type_name("");
    pick.add_option("--title", arguments_.title, "Title of the dialog")
        ->check(ksz::dialogTextTrouble)
        ->type_name("TEXT");
    pick.add_option("--at", arguments_.start, "What it opens with; else the current directory")
        ->type_name("PATH");
    pick.add_option("--about", arguments_.description, "What the files are, such as Images")
        ->check(ksz::dialogTextTrouble)
        ->type_name("TEXT");
    addExtensions(pick, "The files to offer")->check(ksz::dialogTextTrouble);
  }

  CLI::Option* addExtensions(CLI::App& command, const char* meaning) {
    return command.add_option("--ext", arguments_.extensions, meaning)->type_name("EXT");
  }

  CLI::App app_{
      "Packs the files of a scene into a ksz archive, unpacks one beside itself, and more.", "ksz"};
  Arguments arguments_;
  std::function<int()> run_;
};

}  // namespace

int main(int argc, char** argv) {
  try {
    return CommandLine().runWith(argc, argv);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "ksz: %s\n", failure.what());
    return ksz::kExitFailure;
  }
}
