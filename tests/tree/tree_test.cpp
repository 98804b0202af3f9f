#include "tests/tree/source_tree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace {

using Faults = std::vector<std::string>;

std::string Join(const Faults& faults) {
  std::string text;
  for (const std::string& fault : faults) {
    text += fault + "\n";
  }
  return text;
}

// A folder on disk that goes away with the test.
class ScratchFolder {
public:
  ScratchFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "vexel-tree-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
      throw std::runtime_error("no scratch folder");
    }
    m_path = name;
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  const std::filesystem::path& Path() const { return m_path; }

  void Write(const std::string& path, const std::string& text) const {
    std::filesystem::create_directories((m_path / path).parent_path());
    std::ofstream(m_path / path) << text;
  }

private:
  std::filesystem::path m_path;
};

TEST(SourceTree, OfThisProjectHasNoFault) {
  const std::vector<tree::SourceFile> files = tree::ReadTree(VEXEL_SOURCE_DIR);
  for (const char* folder :
       {"platform/win32/", "foundation/", "public/vexelsdk/", "vexelsdk/link/", "vexelsdk/engine/"}) {
    EXPECT_TRUE(
        std::any_of(files.begin(), files.end(), [folder](const auto& file) { return file.path.starts_with(folder); }))
        << "nothing was read in " << folder;
  }
  EXPECT_GT(tree::FindEdges(files).size(), 50U);
  const Faults faults = tree::FindFaults(files);
  EXPECT_TRUE(faults.empty()) << Join(faults);
}

TEST(SourceTree, AnIncludeDownOrWithinALayerIsNoFault) {
  EXPECT_EQ(
      tree::FindFaults({{"include/sdk.h", ""},
                        {"platform/types.h", ""},
                        {"platform/win32/file.cpp", "#include \"platform/types.h\"\n#include <windows.h>\n"},
                        {"foundation/text.h", "#include \"platform/types.h\"\n"},
                        {"foundation/log.h", "#include \"text.h\"\n#include <vector>\n"},
                        {"public/vexelsdk/util.h", "#include \"foundation/log.h\"\n"},
                        {"vexelsdk/link/helper.h", "#include \"public/vexelsdk/util.h\"\n"},
                        {"vexelsdk/engine/engine.h", "#include \"vexelsdk/link/helper.h\"\n"},
                        {"vexelsdk/exports.cpp", "#include \"vexelsdk/engine/engine.h\"\n#include \"include/sdk.h\"\n"},
                        {"tests/unit/engine_test.cpp", "#include \"vexelsdk/engine/engine.h\"\n"}}),
      Faults{});
}

TEST(SourceTree, AnIncludeThatPointsUpIsFoundAtEachLayer) {
  const std::vector<std::string> layers{"include/a.h",         "platform/b.h",      "foundation/c.h",
                                        "public/vexelsdk/d.h", "vexelsdk/link/e.h", "vexelsdk/engine/f.h",
                                        "vexelsdk/g.h"};
  for (std::size_t low = 0; low < layers.size(); ++low) {
    for (std::size_t high = low + 1; high < layers.size(); ++high) {
      EXPECT_EQ(tree::FindFaults({{layers[low], "\n#include \"" + layers[high] + "\"\n"}, {layers[high], ""}}),
                Faults{layers[low] + ":2: includes upwards: " + layers[high]});
    }
  }
}

TEST(SourceTree, AnIncludeThatPointsUpIsFoundBehindARelativeName) {
  EXPECT_EQ(tree::FindFaults(
                {{"vexelsdk/link/helper.h", "#include \"../engine/engine.h\"\n"}, {"vexelsdk/engine/engine.h", ""}}),
            Faults{"vexelsdk/link/helper.h:1: includes upwards: vexelsdk/engine/engine.h"});
}

TEST(SourceTree, ALibraryThatIncludesATestOrAProgramIsFound) {
  EXPECT_EQ(tree::FindFaults({{"foundation/log.cpp", "#include <tests/sim/sim.h>\n"}, {"tests/sim/sim.h", ""}}),
            Faults{"foundation/log.cpp:1: includes tests/sim/sim.h, which is no part of the library"});
}

TEST(SourceTree, APipeLibraryThatLeansOnTheSdkIsFound) {
  EXPECT_EQ(tree::FindFaults({{"pipe/frame.cpp", "#include \"pipe/frame.h\"\n#include \"platform/file.h\"\n"},
                              {"pipe/frame.h", ""},
                              {"platform/file.h", ""}}),
            Faults{"pipe/frame.cpp:2: the pipe library stands alone, and includes platform/file.h"});
}

TEST(SourceTree, ACircleOfFilesIsFound) {
  EXPECT_EQ(tree::FindFaults({{"foundation/a.h", "#include \"foundation/b.h\"\n"},
                              {"foundation/b.h", "#include \"foundation/c.h\"\n"},
                              {"foundation/c.h", "#include \"foundation/b.h\"\n"}}),
            Faults{"foundation/b.h: circle: foundation/b.h -> foundation/c.h -> foundation/b.h"});
}

TEST(SourceTree, AFileThatIncludesItselfIsFound) {
  EXPECT_EQ(tree::FindFaults({{"tools/a.h", "#include \"a.h\"\n"}}),
            Faults{"tools/a.h: circle: tools/a.h -> tools/a.h"});
}

TEST(SourceTree, ACircleOfFoldersIsFoundWhereTheFilesHaveNone) {
  EXPECT_EQ(tree::FindFaults({{"tests/sim/a.h", "#include \"tests/unit/b.h\"\n"},
                              {"tests/unit/b.h", ""},
                              {"tests/unit/c.h", "#include \"tests/sim/d.h\"\n"},
                              {"tests/sim/d.h", ""}}),
            Faults{"tests/sim: circle: tests/sim -> tests/unit -> tests/sim"});
}

TEST(SourceTree, TheSystemsHeadersAreFoundAwayFromItsDoor) {
  EXPECT_EQ(tree::FindFaults({{"foundation/log.cpp", "#include <Windows.h>\n"},
                              {"platform/file.h", "  #  include <tlhelp32.h>\n"},
                              {"tests/unit/a_test.cpp", "#include \"shlobj.h\"\n"},
                              {"pipe/a.cpp", "#include <windows.h>\n"},
                              {"tests/windows/a.cpp", "#include <windows.h>\n"}}),
            (Faults{"foundation/log.cpp:1: includes <Windows.h>, the system's own header",
                    "platform/file.h:1: includes <tlhelp32.h>, the system's own header",
                    "tests/unit/a_test.cpp:1: includes <shlobj.h>, the system's own header"}));
}

TEST(SourceTree, ATestOfTheSystemByThePreprocessorIsFoundAboveThePlatform) {
  const std::string fault = "asks the preprocessor for the system; the link decides that";
  EXPECT_EQ(
      tree::FindFaults({{"foundation/a.h", "#ifdef _WIN32\n#endif\n"},
                        {"include/sdk.h", "#ifdef _WIN32\n#endif\n"},
                        {"public/vexelsdk/b.h", "\n# if !defined(__linux__)\n#endif\n"},
                        {"vexelsdk/engine/c.cpp", "#if 0\n#elif defined(_WIN64)\n#endif\n"}}),
      (Faults{"foundation/a.h:1: " + fault, "public/vexelsdk/b.h:2: " + fault, "vexelsdk/engine/c.cpp:2: " + fault}));
}

TEST(SourceTree, CommentsAndLiteralsIncludeNothing) {
  EXPECT_EQ(tree::FindFaults({{"foundation/a.h", "// #include <windows.h>\n/*\n#include <windows.h>\n*/\n"
                                                 "const char* t = R\"x(\n#include <windows.h>\n)\" )x\";\n"
                                                 "const char* u = \"/*\";\nconst char q = '\"';\nint n = 1'000;\n"},
                              {"foundation/b.h", "#include \"foundation/a.h\" // \"/*\"\n#include <psapi.h>\n"}}),
            Faults{"foundation/b.h:2: includes <psapi.h>, the system's own header"});
}

TEST(SourceTree, LinesKeepTheirNumbersWithoutComments) {
  EXPECT_EQ(tree::WithoutComments("a /* b\nc */ d // e\nf \"g // h\" i\n"), "a     \n     d     \nf \"      \" i\n");
}

TEST(SourceTree, IsReadFromDiskWithoutBuildAndHiddenFolders) {
  const ScratchFolder folder;
  folder.Write("foundation/a.h", "#include \"vexelsdk/b.h\"\n");
  folder.Write("vexelsdk/b.h", "");
  folder.Write("build/native/c.h", "#include <windows.h>\n");
  folder.Write(".cache/d.h", "#include <windows.h>\n");
  folder.Write("foundation/notes.md", "#include <windows.h>\n");
  const std::vector<tree::SourceFile> files = tree::ReadTree(folder.Path());
  ASSERT_EQ(files.size(), 2U);
  EXPECT_EQ(files[0].path, "foundation/a.h");
  EXPECT_EQ(files[1].path, "vexelsdk/b.h");
  EXPECT_EQ(tree::FindFaults(files), Faults{"foundation/a.h:1: includes upwards: vexelsdk/b.h"});
}

} // namespace
