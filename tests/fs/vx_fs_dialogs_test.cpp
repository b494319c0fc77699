// What the dialogs ask of the dialog library, and what they make of its answers. The library is
// replaced by one without a screen.

#include "core/vx_string.h"
#include "core/vx_string_vector.h"
#include "fs/vx_fs.h"
#include "tests/testing/error_state.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/stand_ins/array_new.h"
#include "tests/testing/stand_ins/tinyfiledialogs.h"
#include "tests/testing/texts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <initializer_list>
#include <ostream>
#include <string>
#include <vector>

using vx::String;
using vx::StringVector;
using vx::fs::browseDir;
using vx::fs::browseFile;
using vx::fs::browseFiles;
using vx::fs::saveFile;
using vx::test::ArrayNewLog;
using vx::test::ErrorStateSentinel;
using vx::test::lines;
using vx::test::LogCapture;
using vx::test::ScriptedDialogs;
using vx::test::texts;

namespace {

/// The library's switch as it was when `main` began.
int winUtf8BeforeMain = 0;

/// What is left of `calls` when only the lines that begin with `name` count.
std::vector<std::string> only(const std::string& name, const ScriptedDialogs& dialogs) {
  std::vector<std::string> found;
  for (const std::string& line : dialogs.calls()) {
    if (line.starts_with(name + " ")) {
      found.push_back(line);
    }
  }
  return found;
}

/// "e0", "e1" and so on.
StringVector extensions(std::size_t count) {
  StringVector list;
  for (std::size_t i = 0; i < count; ++i) {
    list.push_back(String(std::string_view("e" + std::to_string(i))));
  }
  return list;
}

}  // namespace

// ---- The switch -----------------------------------------------------------------------------

TEST(DialogText, IsDeclaredUtf8BeforeMainBegins) {
  EXPECT_EQ(winUtf8BeforeMain, 1);
}

TEST(DialogType, NumbersItsKinds) {
  EXPECT_EQ(static_cast<int>(vx::fs::DialogType::Open), 0);
  EXPECT_EQ(static_cast<int>(vx::fs::DialogType::Save), 1);
  EXPECT_EQ(static_cast<int>(vx::fs::DialogType::Folder), 2);
}

// ---- Every argument of each call ------------------------------------------------------------

TEST(BrowseFile, OpensADialogForOneFile) {
  ScriptedDialogs dialogs("/pictures/a.png");

  const String chosen = browseFile("Pick one", "/pictures/", "Images", {"png", ".jpg", "*.exr"});

  EXPECT_EQ(chosen, "/pictures/a.png");
  EXPECT_EQ(dialogs.calls(), lines("open", "title <Pick one>", "path </pictures/>", "count 3",
                                   "pattern <*.png>", "pattern <*.jpg>", "pattern <*.exr>",
                                   "description <Images (png, .jpg, *.exr)>", "multiple 0"));
}

TEST(BrowseFiles, OpensADialogForSeveralFiles) {
  ScriptedDialogs dialogs("/pictures/a.png|/pictures/b.jpg");

  const StringVector chosen = browseFiles("Pick some", "/pictures/", "Images", {"png", ".jpg"});

  EXPECT_EQ(texts(chosen), lines("/pictures/a.png", "/pictures/b.jpg"));
  EXPECT_EQ(dialogs.calls(),
            lines("open", "title <Pick some>", "path </pictures/>", "count 2", "pattern <*.png>",
                  "pattern <*.jpg>", "description <Images (png, .jpg)>", "multiple 1"));
}

TEST(BrowseDir, OpensAFolderDialog) {
  ScriptedDialogs dialogs("/pictures");

  const String chosen = browseDir("Pick a folder", "/home/");

  EXPECT_EQ(chosen, "/pictures");
  EXPECT_EQ(dialogs.calls(), lines("folder", "title <Pick a folder>", "path </home/>"));
}

TEST(SaveFile, OpensADialogForANewName) {
  ScriptedDialogs dialogs("/pictures/new.png");

  const String chosen = saveFile("Save as", "/pictures/new.png", "Images", {"png", "*.exr"});

  EXPECT_EQ(chosen, "/pictures/new.png");
  EXPECT_EQ(dialogs.calls(),
            lines("save", "title <Save as>", "path </pictures/new.png>", "count 2",
                  "pattern <*.png>", "pattern <*.exr>", "description <Images (png, *.exr)>"));
}

// ---- Without filters ------------------------------------------------------------------------

TEST(BrowseFile, WithoutFiltersPassesNoArrayAndTheDescriptionAsItIs) {
  ScriptedDialogs dialogs("/a");

  EXPECT_EQ(browseFile("Pick", "/", "Everything", {}), "/a");

  EXPECT_EQ(dialogs.calls(), lines("open", "title <Pick>", "path </>", "count 0", "patterns null",
                                   "description <Everything>", "multiple 0"));
}

TEST(BrowseFiles, WithoutFiltersPassesNoArrayAndTheDescriptionAsItIs) {
  ScriptedDialogs dialogs("/a");

  EXPECT_EQ(texts(browseFiles("Pick", "/", "Everything", {})), lines("/a"));

  EXPECT_EQ(dialogs.calls(), lines("open", "title <Pick>", "path </>", "count 0", "patterns null",
                                   "description <Everything>", "multiple 1"));
}

TEST(SaveFile, WithoutFiltersPassesNoArrayAndTheDescriptionAsItIs) {
  ScriptedDialogs dialogs("/a");

  EXPECT_EQ(saveFile("Save", "/", "Everything", {}), "/a");

  EXPECT_EQ(dialogs.calls(), lines("save", "title <Save>", "path </>", "count 0", "patterns null",
                                   "description <Everything>"));
}

// ---- Texts ----------------------------------------------------------------------------------

TEST(Dialogs, PassEmptyTextsAsEmptyTextsNotAsNull) {
  ScriptedDialogs dialogs(nullptr);

  EXPECT_EQ(browseFile("", "", "", {}), "");
  EXPECT_EQ(browseDir("", ""), "");
  EXPECT_EQ(saveFile("", "", "", {}), "");

  EXPECT_EQ(dialogs.calls(),
            lines("open", "title <>", "path <>", "count 0", "patterns null", "description <>",
                  "multiple 0",                     //
                  "folder", "title <>", "path <>",  //
                  "save", "title <>", "path <>", "count 0", "patterns null", "description <>"));
}

TEST(Dialogs, PassTextsThatTheDialogLibraryCannotTakeAsTheyAre) {
  const std::string odd = " it's \"$HOME\" `x`; \\ \n\t| Bäume \xF0\x9F\x8C\xB2 ";
  const std::string title = "title <" + odd + ">";
  const std::string path = "path <" + odd + ">";
  const std::string description = "description <" + odd + ">";
  const String text{std::string_view(odd)};
  ScriptedDialogs dialogs(nullptr);

  EXPECT_EQ(browseFile(text, text, text, {}), "");
  EXPECT_EQ(browseDir(text, text), "");
  EXPECT_EQ(saveFile(text, text, text, {}), "");

  EXPECT_EQ(only("title", dialogs), lines(title, title, title));
  EXPECT_EQ(only("path", dialogs), lines(path, path, path));
  EXPECT_EQ(only("description", dialogs), lines(description, description));
}

TEST(Dialogs, PassTextsOfAnyLength) {
  const std::string longText(5000, 'x');
  const String text{std::string_view(longText)};
  ScriptedDialogs dialogs(nullptr);

  EXPECT_EQ(saveFile(text, text, text, {text}), "");

  EXPECT_EQ(dialogs.calls(), lines("save", "title <" + longText + ">", "path <" + longText + ">",
                                   "count 1", "pattern <*." + longText + ">",
                                   "description <" + longText + " (" + longText + ")>"));
}

// ---- Filters become patterns ----------------------------------------------------------------

namespace {

struct FilterRow {
  const char* situation;
  const char* filter;
  const char* pattern;
};

void PrintTo(const FilterRow& row, std::ostream* out) {
  *out << row.situation;
}

class DialogPattern : public testing::TestWithParam<FilterRow> {};

}  // namespace

TEST_P(DialogPattern, IsMadeFromItsFilter) {
  const std::string pattern = std::string("pattern <") + GetParam().pattern + ">";
  ScriptedDialogs dialogs(nullptr);

  EXPECT_EQ(browseFile("", "", "", {GetParam().filter}), "");
  EXPECT_TRUE(browseFiles("", "", "", {GetParam().filter}).empty());
  EXPECT_EQ(saveFile("", "", "", {GetParam().filter}), "");

  EXPECT_EQ(only("pattern", dialogs), lines(pattern, pattern, pattern));
  EXPECT_EQ(only("count", dialogs), lines("count 1", "count 1", "count 1"));
}

INSTANTIATE_TEST_SUITE_P(
    , DialogPattern,
    testing::Values(
        FilterRow{"BareExtension", "png", "*.png"}, FilterRow{"ExtensionWithDot", ".png", "*.png"},
        FilterRow{"Pattern", "*.png", "*.png"}, FilterRow{"StarAlone", "*", "*"},
        FilterRow{"StarInName", "*_color.png", "*_color.png"}, FilterRow{"TwoStars", "**", "**"},
        FilterRow{"Empty", "", "*."}, FilterRow{"DotAlone", ".", "*."},
        FilterRow{"TwoDots", "..png", "*..png"}, FilterRow{"InnerDot", "tar.gz", "*.tar.gz"},
        FilterRow{"InnerStar", "p*g", "*.p*g"}, FilterRow{"LeadingBlank", " *.png", "*. *.png"},
        FilterRow{"UpperCase", "PNG", "*.PNG"}, FilterRow{"QuestionMark", "?.png", "*.?.png"},
        FilterRow{"Utf8", "bäume", "*.bäume"}),
    [](const auto& row) { return std::string(row.param.situation); });

TEST(DialogPatterns, KeepTheirOrderAndTheirDuplicates) {
  ScriptedDialogs dialogs(nullptr);

  EXPECT_EQ(browseFile("", "", "", {"z", ".a", "*.z", "", "z", "*"}), "");

  EXPECT_EQ(only("pattern", dialogs), lines("pattern <*.z>", "pattern <*.a>", "pattern <*.z>",
                                            "pattern <*.>", "pattern <*.z>", "pattern <*>"));
}

TEST(DialogPatterns, LeaveTheCallersArgumentsAlone) {
  const String title = "Pick";
  const String path = "/";
  const String description = "Images";
  const StringVector filters = {"png", ".jpg"};
  ScriptedDialogs dialogs(nullptr);

  EXPECT_EQ(browseFile(title, path, description, filters), "");
  EXPECT_TRUE(browseFiles(title, path, description, filters).empty());
  EXPECT_EQ(saveFile(title, path, description, filters), "");

  EXPECT_EQ(title, "Pick");
  EXPECT_EQ(path, "/");
  EXPECT_EQ(description, "Images");
  EXPECT_EQ(texts(filters), lines("png", ".jpg"));
  EXPECT_EQ(only("description", dialogs),
            lines("description <Images (png, .jpg)>", "description <Images (png, .jpg)>",
                  "description <Images (png, .jpg)>"));
}

// ---- The description ------------------------------------------------------------------------

namespace {

/// The description that the dialog shows.
std::string shownDescription(const char* description, const StringVector& filters) {
  ScriptedDialogs dialogs(nullptr);
  EXPECT_EQ(browseFile("", "", description, filters), "");
  const std::vector<std::string> shown = only("description", dialogs);
  return shown.size() == 1 ? shown.front() : std::to_string(shown.size()) + " descriptions";
}

}  // namespace

TEST(DialogDescription, NamesTheFiltersAsTheCallerGaveThem) {
  EXPECT_EQ(shownDescription("Images", {"png", ".jpg", "*.exr"}),
            "description <Images (png, .jpg, *.exr)>");
  EXPECT_EQ(shownDescription("All", {"*"}), "description <All (*)>");
  EXPECT_EQ(shownDescription("Twice", {"png", "png"}), "description <Twice (png, png)>");
}

TEST(DialogDescription, IsTheFiltersAloneWhenTheCallerGivesNone) {
  EXPECT_EQ(shownDescription("", {"png"}), "description < (png)>");
}

TEST(DialogDescription, NamesAnEmptyFilterToo) {
  EXPECT_EQ(shownDescription("Bare", {""}), "description <Bare ()>");
  EXPECT_EQ(shownDescription("Bare", {"", "png"}), "description <Bare (, png)>");
}

// ---- The pattern array ----------------------------------------------------------------------

namespace {

/// How the array comes to hold `filters` patterns, in numbers of pointers.
struct ArrayRow {
  std::size_t filters;
  std::vector<std::size_t> capacities;
};

void PrintTo(const ArrayRow& row, std::ostream* out) {
  *out << row.filters << " filters";
}

std::string inBytes(std::size_t pointers) {
  return std::to_string(pointers * sizeof(char*));
}

/// The allocations of an array that has grown through `capacities` and is in use.
std::vector<std::string> growth(const std::vector<std::size_t>& capacities) {
  std::vector<std::string> events;
  for (std::size_t i = 0; i < capacities.size(); ++i) {
    events.push_back("new " + inBytes(capacities[i]));
    if (i > 0) {
      events.push_back("delete " + inBytes(capacities[i - 1]));
    }
  }
  return events;
}

class DialogPatternArray : public testing::TestWithParam<ArrayRow> {
 protected:
  /// Shows one dialog with the row's number of filters, by `show`, and checks its array.
  template <class Show>
  void check(Show show) {
    const StringVector filters = extensions(GetParam().filters);
    std::vector<std::string> eventsWhileOpen;
    std::vector<std::string> events;
    ScriptedDialogs dialogs(nullptr);
    {
      const ArrayNewLog arrays;
      dialogs.whileOpen = [&] { eventsWhileOpen = arrays.events(); };

      show(filters);

      events = arrays.events();
    }

    std::vector<std::string> expected = growth(GetParam().capacities);
    EXPECT_EQ(eventsWhileOpen, expected);
    if (!GetParam().capacities.empty()) {
      expected.push_back("delete " + inBytes(GetParam().capacities.back()));
    }
    EXPECT_EQ(events, expected);
    EXPECT_EQ(only("count", dialogs), lines("count " + std::to_string(GetParam().filters)));
    EXPECT_EQ(only("pattern", dialogs), patterns());
  }

 private:
  static std::vector<std::string> patterns() {
    std::vector<std::string> expected;
    for (std::size_t i = 0; i < GetParam().filters; ++i) {
      expected.push_back("pattern <*.e" + std::to_string(i) + ">");
    }
    return expected;
  }
};

}  // namespace

TEST_P(DialogPatternArray, OfAnOpenDialogDoublesAndIsFreedAfterIt) {
  check([](const StringVector& filters) { EXPECT_EQ(browseFile("", "", "", filters), ""); });
}

TEST_P(DialogPatternArray, OfAMultiOpenDialogDoublesAndIsFreedAfterIt) {
  check([](const StringVector& filters) { EXPECT_TRUE(browseFiles("", "", "", filters).empty()); });
}

TEST_P(DialogPatternArray, OfASaveDialogDoublesAndIsFreedAfterIt) {
  check([](const StringVector& filters) { EXPECT_EQ(saveFile("", "", "", filters), ""); });
}

INSTANTIATE_TEST_SUITE_P(, DialogPatternArray,
                         testing::Values(ArrayRow{0, {}}, ArrayRow{1, {2}}, ArrayRow{2, {2}},
                                         ArrayRow{3, {2, 4}}, ArrayRow{4, {2, 4}},
                                         ArrayRow{5, {2, 4, 8}}, ArrayRow{8, {2, 4, 8}},
                                         ArrayRow{9, {2, 4, 8, 16}},
                                         ArrayRow{100, {2, 4, 8, 16, 32, 64, 128}}),
                         [](const auto& row) { return "Of" + std::to_string(row.param.filters); });

TEST(BrowseDir, AllocatesNoPatternArray) {
  std::vector<std::string> events;
  ScriptedDialogs dialogs("/pictures");
  {
    const ArrayNewLog arrays;

    EXPECT_EQ(browseDir("", ""), "/pictures");

    events = arrays.events();
  }
  EXPECT_EQ(events, lines());
}

TEST(ArrayNewLog, NotesWhatIsAllocatedAndFreed) {
  std::vector<std::string> events;
  {
    const ArrayNewLog arrays;
    // Called by name: a compiler may leave out what an expression allocates for nothing.
    ::operator delete[](::operator new[](3 * sizeof(const char*)));
    events = arrays.events();
  }
  EXPECT_EQ(events, lines("new " + inBytes(3), "delete " + inBytes(3)));
}

TEST(DialogPatterns, LiveWhileTheDialogIsOpen) {
  const StringVector filters = {"first", "second", "third"};
  std::vector<String> noise;
  ScriptedDialogs dialogs(nullptr);
  dialogs.whileOpen = [&noise] {
    // Memory that had been freed too early would be handed out again here.
    for (int i = 0; i < 100; ++i) {
      noise.push_back(String("noise") + std::to_string(i).c_str());
    }
  };

  EXPECT_EQ(browseFile("Pick", "/", "Images", filters), "");

  EXPECT_EQ(dialogs.calls(), lines("open", "title <Pick>", "path </>", "count 3",
                                   "pattern <*.first>", "pattern <*.second>", "pattern <*.third>",
                                   "description <Images (first, second, third)>", "multiple 0"));
}

// ---- What comes of the answer ---------------------------------------------------------------

TEST(Dialogs, ReturnNothingOnCancel) {
  const ScriptedDialogs dialogs(nullptr);

  EXPECT_EQ(browseFile("Pick", "/", "Images", {"png"}), "");
  EXPECT_EQ(texts(browseFiles("Pick", "/", "Images", {"png"})), lines());
  EXPECT_EQ(browseDir("Pick", "/"), "");
  EXPECT_EQ(saveFile("Save", "/", "Images", {"png"}), "");
}

namespace {

/// An answer of the library, the list that comes of it, and the choice of one.
struct AnswerRow {
  const char* situation;
  const char* answer;
  std::vector<std::string> chosen;
};

void PrintTo(const AnswerRow& row, std::ostream* out) {
  *out << row.situation;
}

class DialogAnswer : public testing::TestWithParam<AnswerRow> {
 protected:
  [[nodiscard]] static std::string first() {
    return GetParam().chosen.empty() ? "" : GetParam().chosen.front();
  }
};

}  // namespace

TEST_P(DialogAnswer, IsTheListOfAMultiOpenDialog) {
  const ScriptedDialogs dialogs(GetParam().answer);

  EXPECT_EQ(texts(browseFiles("", "", "", {})), GetParam().chosen);
}

TEST_P(DialogAnswer, GivesItsFirstPieceInTheOtherDialogs) {
  const ScriptedDialogs dialogs(GetParam().answer);

  EXPECT_EQ(browseFile("", "", "", {}).view(), first());
  EXPECT_EQ(browseDir("", "").view(), first());
  EXPECT_EQ(saveFile("", "", "", {}).view(), first());
}

INSTANTIATE_TEST_SUITE_P(
    , DialogAnswer,
    testing::Values(AnswerRow{"Empty", "", {}},                                           //
                    AnswerRow{"One", "/d/a.png", {"/d/a.png"}},                           //
                    AnswerRow{"Three", "/d/c|/d/a|/d/b", {"/d/c", "/d/a", "/d/b"}},       //
                    AnswerRow{"Twice", "/d/a|/d/a", {"/d/a", "/d/a"}},                    //
                    AnswerRow{"EmptyPiece", "/d/a||/d/b", {"/d/a", "/d/b"}},              //
                    AnswerRow{"LeadingSeparator", "|/d/a|/d/b", {"/d/a", "/d/b"}},        //
                    AnswerRow{"TrailingSeparator", "/d/a|/d/b|", {"/d/a", "/d/b"}},       //
                    AnswerRow{"SeparatorsAlone", "|||", {}},                              //
                    AnswerRow{"Blanks", " /d/a | /d/b ", {" /d/a ", " /d/b "}},           //
                    AnswerRow{"BlankPiece", "/d/a| |/d/b", {"/d/a", " ", "/d/b"}},        //
                    AnswerRow{"LineBreaks", "/d/a\n|\t/d/b", {"/d/a\n", "\t/d/b"}},       //
                    AnswerRow{"Backslashes", "C:\\a.png|C:\\b", {"C:\\a.png", "C:\\b"}},  //
                    AnswerRow{"Utf8", "/d/Dämmerung.jpg|/d/夕方", {"/d/Dämmerung.jpg", "/d/夕方"}}),
    [](const auto& row) { return std::string(row.param.situation); });

TEST(Dialogs, CopyTheAnswerOutOfTheLibrarysMemory) {
  ScriptedDialogs dialogs("/d/first|/d/second");
  const StringVector files = browseFiles("", "", "", {});
  const String file = browseFile("", "", "", {});
  const String directory = browseDir("", "");
  const String saved = saveFile("", "", "", {});

  dialogs.answer("/other/place/altogether");

  EXPECT_EQ(texts(files), lines("/d/first", "/d/second"));
  EXPECT_EQ(file, "/d/first");
  EXPECT_EQ(directory, "/d/first");
  EXPECT_EQ(saved, "/d/first");
}

TEST(Dialogs, KeepNothingBetweenCalls) {
  ScriptedDialogs dialogs("/d/a|/d/b");
  EXPECT_EQ(browseFiles("Pick", "/", "Images", {"png", "jpg", "exr"}).size(), 2U);

  dialogs.answer(nullptr);
  EXPECT_EQ(texts(browseFiles("", "", "", {})), lines());
  dialogs.answer("/d/c");
  EXPECT_EQ(browseFile("", "", "", {}), "/d/c");

  EXPECT_EQ(only("count", dialogs), lines("count 3", "count 0", "count 0"));
  EXPECT_EQ(only("multiple", dialogs), lines("multiple 1", "multiple 1", "multiple 0"));
}

// ---- Silence --------------------------------------------------------------------------------

TEST_P(DialogAnswer, IsTakenInSilence) {
  const ScriptedDialogs dialogs(GetParam().answer);
  const LogCapture log;
  const ErrorStateSentinel sentinel;

  EXPECT_EQ(browseFiles("", "", "", {"png"}).size(), GetParam().chosen.size());
  EXPECT_EQ(browseFile("", "", "", {"png"}).view(), first());
  EXPECT_EQ(browseDir("", "").view(), first());
  EXPECT_EQ(saveFile("", "", "", {"png"}).view(), first());

  EXPECT_EQ(log.all(), lines());
  EXPECT_TRUE(sentinel.isUntouched());
}

TEST(Dialogs, AreSilentOnCancel) {
  const ScriptedDialogs dialogs(nullptr);
  const LogCapture log;
  const ErrorStateSentinel sentinel;

  EXPECT_EQ(browseFile("", "", "", {}), "");
  EXPECT_EQ(texts(browseFiles("", "", "", {})), lines());
  EXPECT_EQ(browseDir("", ""), "");
  EXPECT_EQ(saveFile("", "", "", {}), "");

  EXPECT_EQ(log.all(), lines());
  EXPECT_TRUE(sentinel.isUntouched());
}

int main(int argc, char** argv) {
  winUtf8BeforeMain = tinyfd_winUtf8;
  testing::InitGoogleMock(&argc, argv);
  return RUN_ALL_TESTS();
}
