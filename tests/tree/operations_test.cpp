#include "tests/sim/faults.h"
#include "tests/tree/source_tree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <set>
#include <sstream>
#include <string>

// What can be made to fail is what the platform has: a new operation that the simulated platform does not count and let
// fail would be in no walk, and nobody would miss it.
namespace {

using Names = std::set<std::string>;

std::string TextOf(const std::vector<tree::SourceFile>& files, const std::string& folder, const std::string& end) {
  std::string text;
  for (const tree::SourceFile& file : files) {
    if (file.path.starts_with(folder) && file.path.ends_with(end) &&
        file.path.find('/', folder.size()) == std::string::npos) {
      text += file.text;
    }
  }
  return text;
}

/// The functions that headers declare and don't define.
Names DeclaredFunctions(const std::string& headers) {
  static const std::regex function(R"(^\s*(?:\[\[\w+\]\]\s*)?[\w:]+[\w:\s*]*?[\s*](\w+)\s*\([^{}=]*\)\s*$)");
  Names names;
  std::string text = tree::WithoutComments(headers);
  std::replace_if(
      text.begin(), text.end(), [](char each) { return each == '{' || each == '}'; }, ';');
  std::istringstream lines(text);
  std::string plain;
  for (std::string line; std::getline(lines, line);) {
    plain += line.starts_with('#') ? std::string() : line + " ";
  }
  std::istringstream statements(plain);
  for (std::string statement; std::getline(statements, statement, ';');) {
    std::smatch found;
    if (std::regex_match(statement, found, function)) {
      names.insert(found[1]);
    }
  }
  return names;
}

/// The names that the sources of the simulated platform count.
Names CountedOperations(const std::string& sources) {
  static const std::regex call(R"#(\bCall call\("([\w:]+)"\))#");
  Names names;
  for (auto at = std::sregex_iterator(sources.begin(), sources.end(), call); at != std::sregex_iterator(); ++at) {
    names.insert((*at)[1]);
  }
  return names;
}

/// The entries of loaded libraries, which the platform hands out by name and declares nowhere.
Names EntriesOfLibraries() {
  return {"EnumProcessModules",      "EnumProcessModulesEx", "EnumProcesses",     "GetModuleBaseNameW",
          "GetModuleFileNameExW",    "CltConnectServer",     "CltDisConnect",     "CltComunicate",
          "CreatePipeSvr",           "ReleasePipeSvr",       "PipeServer::Start", "PipeServer::SetMsgProcessor",
          "GetProcessImageFileNameW"};
}

TEST(Operations, OfThePlatformAreAllCountedBySimulation) {
  const std::vector<tree::SourceFile> files = tree::ReadTree(VEXEL_SOURCE_DIR);
  Names expected = DeclaredFunctions(TextOf(files, "platform/", ".h"));
  EXPECT_GT(expected.size(), 60u);
  expected.merge(EntriesOfLibraries());
  EXPECT_EQ(CountedOperations(TextOf(files, "tests/sim/", ".cpp")), expected);
  EXPECT_EQ(Names(sim::AllOperations().begin(), sim::AllOperations().end()), expected);
}

TEST(Operations, ADeclarationIsFoundInEachForm) {
  EXPECT_EQ(DeclaredFunctions("#pragma once\n"
                              "#include \"a.h\"\n"
                              "namespace platform {\n"
                              "using Handle = void*;\n"
                              "inline const Handle kNone = reinterpret_cast<Handle>(static_cast<int>(-1));\n"
                              "inline constexpr int kOne = 1; // NotMe()\n"
                              "struct Row {\n  int size;\n};\n"
                              "/// Neither(int) this.\n"
                              "bool One(Handle file,\n         const wchar_t* name);\n"
                              "void* Two();\n"
                              "std::uint32_t Three(int); int Four(int a, int b);\n"
                              "[[noreturn]] void Five(std::uint32_t status);\n"
                              "}\n"),
            (Names{"One", "Two", "Three", "Four", "Five"}));
}

} // namespace
