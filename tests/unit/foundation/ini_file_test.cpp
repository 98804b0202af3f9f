#include "foundation/ini_wrapper.h"
#include "platform/file.h"
#include "tests/sim/faults.h"
#include "tests/sim/file.h"
#include "tests/sim/handles.h"
#include "tests/sim/world.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>
#include <string>

// The ini file on a disk that other processes use, that is full, or that fails.
namespace {

using namespace std::string_literals;
using vx::ini::INI_ANSI;
using vx::ini::INI_UTF16;
using vx::ini::INI_UTF8;
using vx::ini::IniEncoding;
using vx::ini::KIniWrapper;

constexpr const wchar_t* kPath = L"C:\\Host\\a.ini";
constexpr std::uint32_t kShareBoth = platform::kFileShareRead | platform::kFileShareWrite;
const std::string kOld = "[a]\r\nk=1\r\n";
const std::string kNew = "\xEF\xBB\xBF[a]\r\nk=2\r\n";

class SimulatedIni : public testing::Test {
protected:
  SimulatedIni() { sim::AddFile(kPath, kOld); }

  static bool Load(KIniWrapper& ini) { return ini.Load(kPath, INI_UTF8, 0); }

  /// Saves another number than the file holds.
  static bool SaveNew() {
    KIniWrapper ini;
    ini.SetInt(L"a", L"k", 2);
    return ini.Save(kPath, INI_UTF8);
  }

  sim::World m_world;
};

struct HolderCase {
  const char* name;
  std::uint32_t access;
  std::uint32_t share;
  bool loads;
  bool saves;
};

void PrintTo(const HolderCase& row, std::ostream* out) { *out << row.name; }

class IniBesideAnotherProcess : public SimulatedIni, public testing::WithParamInterface<HolderCase> {};

TEST_P(IniBesideAnotherProcess, LoadsOrSavesOrFailsAndLeavesTheFile) {
  std::optional<sim::ForeignFile> held(std::in_place, kPath, GetParam().access, GetParam().share);
  KIniWrapper ini;
  ini.SetInt(L"a", L"k", 9);
  EXPECT_EQ(Load(ini), GetParam().loads);
  EXPECT_EQ(ini.GetInt(L"a", L"k", 5), GetParam().loads ? 1 : 5);
  EXPECT_EQ(SaveNew(), GetParam().saves);
  EXPECT_EQ(sim::FileBytes(kPath), GetParam().saves ? kNew : kOld);
  held.reset();
  EXPECT_TRUE(Load(ini));
  EXPECT_EQ(ini.GetInt(L"a", L"k", 5), GetParam().saves ? 2 : 1);
}

INSTANTIATE_TEST_SUITE_P(
    Ini, IniBesideAnotherProcess,
    testing::Values(
        HolderCase{"AReaderThatLetsOthersRead", platform::kGenericRead, platform::kFileShareRead, true, false},
        HolderCase{"AReaderThatLetsOthersWrite", platform::kGenericRead, kShareBoth, true, true},
        HolderCase{"AReaderThatLetsNobodyIn", platform::kGenericRead, 0, false, false},
        HolderCase{"AWriterThatLetsOthersRead", platform::kGenericWrite, platform::kFileShareRead, false, false},
        HolderCase{"AWriterThatLetsOthersWrite", platform::kGenericWrite, kShareBoth, false, false}),
    [](const auto& entry) { return std::string(entry.param.name); });

TEST_F(SimulatedIni, WhileItIsSavedItDoesNotLoadAndOthersSeeAPart) {
  KIniWrapper ini;
  ini.SetInt(L"a", L"k", 2);
  EXPECT_TRUE(ini.Save(kPath, INI_UTF8, [](const void*, std::uint32_t) -> std::int32_t {
    KIniWrapper other;
    EXPECT_FALSE(other.Load(kPath, INI_UTF8, 0));
    EXPECT_EQ(other.GetInt(L"a", L"k", 0), 0);
    EXPECT_FALSE(SaveNew());
    const sim::ForeignFile reader(kPath, platform::kGenericRead, kShareBoth); // ends the program when it is refused
    EXPECT_EQ(sim::FileBytes(kPath), "\xEF\xBB\xBF");
    return 1;
  }));
  EXPECT_EQ(sim::FileBytes(kPath), kNew);
}

TEST_F(SimulatedIni, ItIsClosedBeforeItsBytesAreLookedAt) {
  KIniWrapper ini;
  EXPECT_TRUE(ini.Load(kPath, INI_UTF8, 0, [](const void*, std::uint32_t) -> std::int32_t {
    EXPECT_EQ(sim::OpenHandles(), 0);
    return SaveNew();
  }));
  EXPECT_EQ(ini.GetInt(L"a", L"k", 5), 1); // what was read before
}

TEST_F(SimulatedIni, AReadThatFallsShortFails) {
  sim::SetReadLimit(static_cast<std::uint32_t>(kOld.size()) - 1);
  KIniWrapper ini;
  ini.SetInt(L"a", L"k", 9);
  EXPECT_FALSE(Load(ini));
  EXPECT_EQ(sim::CallCount("ReadFile"), 1);
  EXPECT_EQ(ini.GetInt(L"a", L"k", 5), 5);
  sim::SetReadLimit(static_cast<std::uint32_t>(kOld.size()));
  EXPECT_TRUE(Load(ini));
}

TEST_F(SimulatedIni, AWriteThatFallsShortFails) {
  const struct {
    IniEncoding encoding;
    std::uint32_t limit;
    std::string left;
  } cases[] = {{INI_ANSI, 9, "[a]\r\nk=2\r"},
               {INI_UTF8, 2, "\xEF\xBB"},
               {INI_UTF8, 9, "\xEF\xBB\xBF[a]\r\nk=2\r"},
               {INI_UTF16, 1, "\xFF"},
               {INI_UTF16, 19, "\xFF\xFE[\0a\0]\0\r\0\n\0k\0=\0002\0\r\0\n"s}};
  for (const auto& entry : cases) {
    sim::SetWriteLimit(entry.limit);
    KIniWrapper ini;
    ini.SetInt(L"a", L"k", 2);
    EXPECT_FALSE(ini.Save(kPath, entry.encoding)) << entry.limit;
    EXPECT_EQ(sim::FileBytes(kPath), entry.left) << entry.limit;
  }
}

TEST_F(SimulatedIni, ASaveThatCanNotOpenKeepsTheOldContentAndOneThatCanNotWriteLosesIt) {
  sim::FailNth("CreateFileW", 1);
  EXPECT_FALSE(SaveNew());
  EXPECT_EQ(sim::FileBytes(kPath), kOld);
  sim::FailNth("WriteFile", 1);
  EXPECT_FALSE(SaveNew());
  EXPECT_TRUE(sim::FileExists(kPath));
  EXPECT_EQ(sim::FileBytes(kPath), "");
}

TEST_F(SimulatedIni, ABodyIsOneWrite) {
  const int writes = sim::CallCount("WriteFile");
  KIniWrapper ini;
  for (int key = 0; key < 1000; ++key) {
    ini.SetInt(L"a", std::to_wstring(key), key);
  }
  EXPECT_TRUE(ini.Save(kPath, INI_ANSI));
  EXPECT_EQ(sim::CallCount("WriteFile"), writes + 1);
}

TEST_F(SimulatedIni, AnEmptyModelSavesAsItsMarkAlone) {
  const struct {
    IniEncoding encoding;
    std::string bytes;
  } cases[] = {{INI_ANSI, ""}, {INI_UTF8, "\xEF\xBB\xBF"}, {INI_UTF16, "\xFF\xFE"}};
  for (const auto& entry : cases) {
    KIniWrapper ini;
    EXPECT_TRUE(ini.Save(kPath, entry.encoding));
    EXPECT_EQ(sim::FileBytes(kPath), entry.bytes);
  }
}

TEST_F(SimulatedIni, AFileThatCanNotBeMadeLeavesTheModelAlone) {
  constexpr const wchar_t* kMissing = L"C:\\Host\\sub\\b.ini";
  const std::function<void()> refusals[] = {[] { sim::FailNth("SHCreateDirectoryExW", 1, sim::kOnce, 5); },
                                            [] { sim::FailNth("CreateFileW", 1); }};
  for (const auto& refuse : refusals) {
    refuse();
    KIniWrapper ini;
    ini.SetInt(L"a", L"k", 9);
    EXPECT_FALSE(ini.Load(kMissing, INI_UTF8, 1));
    EXPECT_EQ(ini.GetInt(L"a", L"k", 5), 9);
    EXPECT_FALSE(sim::FileExists(kMissing));
  }
}

TEST_F(SimulatedIni, OneFaultAnywhereLeavesNoHandleOpenAndNoLine) {
  for (const std::string& operation : sim::FailableOperations()) {
    if (operation == "CloseHandle") { // which leaves its handle open, as the system does
      continue;
    }
    for (int nth = 1;; ++nth) {
      sim::Reset();
      sim::AddFile(kPath, kOld);
      sim::FailNth(operation, nth);
      KIniWrapper ini;
      Load(ini);
      ini.Load(L"C:\\Host\\sub\\b.ini", INI_UTF16, 1);
      ini.Save(kPath, INI_UTF8);
      ini.Save(kPath, INI_UTF16, [](const void*, std::uint32_t) -> std::int32_t { return 0; });
      ini.Load(kPath, INI_ANSI, 1, [](const void*, std::uint32_t) -> std::int32_t { return 0; });
      vx::ini::CreateEmptyFile(kPath);
      EXPECT_EQ(sim::OpenHandles(), 0) << operation << nth;
      EXPECT_EQ(sim::BadCloses(), 0) << operation << nth;
      EXPECT_FALSE(sim::FolderExists(L"C:\\Host\\log")) << operation << nth; // nothing is logged
      if (sim::FaultsFired() == 0) {
        break;
      }
      ASSERT_LT(nth, 20) << operation;
    }
  }
}

} // namespace
