#include "foundation/ini_wrapper.h"
#include "foundation/k_event.h"
#include "foundation/logger.h"
#include "foundation/paths.h"
#include "foundation/switches.h"
#include "foundation/text_codecs.h"
#include "platform/error.h"
#include "platform/sync.h"
#include "tests/sim/clock.h"
#include "tests/sim/faults.h"
#include "tests/sim/file.h"
#include "tests/sim/handles.h"
#include "tests/sim/registry.h"
#include "tests/sim/world.h"
#include "tests/unit/foundation/fresh_folder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr const wchar_t* kFixedLog = L"C:\\Host\\log\\browser.vexelsdk.dll.log";

/// A fresh simulated system, with a log that has not started.
class Faults : public testing::Test {
protected:
  Faults() { vx::ResetLogger({}); }
  ~Faults() override { vx::ResetLogger({}); }

  static int LineCount() {
    const std::string bytes = test::ReadBytes(kFixedLog);
    return static_cast<int>(std::count(bytes.begin(), bytes.end(), '\n'));
  }

  sim::World m_world;
};

int CallsInAll() {
  int calls = 0;
  for (const std::string& operation : sim::AllOperations()) {
    calls += operation == "GetLastError" || operation == "SetLastError" ? 0 : sim::CallCount(operation);
  }
  return calls;
}

TEST_F(Faults, TheLogLiesBesideTheProgramUnderBothNames) {
  SDKLOG(LOG_INFO) << "x";
  EXPECT_EQ(vx::BuildLogFilePath(), kFixedLog);
  EXPECT_EQ(LineCount(), 1);
}

TEST_F(Faults, ThreadsThatLogTogetherMakeOneStartAndOneOpen) {
  constexpr int kThreads = 8;
  std::atomic<int> waiting{0};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&waiting] {
      ++waiting;
      while (waiting < kThreads) {
        std::this_thread::yield();
      }
      SDKLOG(LOG_INFO) << "x";
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(sim::CallCount("RegOpenKeyExW"), 1);
  EXPECT_EQ(sim::CallCount("CreateMutexW"), 1);
  EXPECT_EQ(sim::CallCount("CreateFileW"), 1);
  EXPECT_EQ(LineCount(), kThreads);
}

TEST_F(Faults, ThreadsThatLogTogetherSurviveStartsThatFail) {
  constexpr int kThreads = 4;
  constexpr int kStatements = 50;
  sim::FailAlways("CreateDirectoryW", 5);
  std::vector<std::thread> threads;
  std::atomic<int> evaluated{0};
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&evaluated] {
      for (int statement = 0; statement < kStatements; ++statement) {
        SDKLOG(LOG_INFO) << ++evaluated;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(evaluated, 0);
  EXPECT_EQ(vx::log_init_state.load(), 0);
  sim::ClearFaults();
  SDKLOG(LOG_INFO) << ++evaluated;
  EXPECT_EQ(LineCount(), 1);
}

TEST_F(Faults, ASuppressedStatementTouchesNothing) {
  SDKLOG(LOG_INFO) << "x";
  const int calls = CallsInAll();
  const int errors = sim::CallCount("GetLastError") + sim::CallCount("SetLastError");
  SDKLOG(LOG_DEBUG) << platform::GetLastError();
  EXPECT_EQ(CallsInAll(), calls);
  EXPECT_EQ(sim::CallCount("GetLastError") + sim::CallCount("SetLastError"), errors);
}

TEST_F(Faults, EachStatementTriesAgainWhileTheFolderCanNotBeMade) {
  sim::FailAlways("CreateDirectoryW", 5);
  for (int statement = 1; statement <= 3; ++statement) {
    SDKLOG(LOG_ERROR) << "lost";
    EXPECT_EQ(sim::CallCount("RegOpenKeyExW"), statement);
    EXPECT_EQ(vx::log_init_state.load(), 0);
  }
  sim::ClearFaults();
  SDKLOG(LOG_ERROR) << "kept";
  SDKLOG(LOG_ERROR) << "kept";
  EXPECT_EQ(sim::CallCount("RegOpenKeyExW"), 4);
  EXPECT_EQ(LineCount(), 2);
}

TEST_F(Faults, AFolderThatIsThereIsNoFault) {
  ASSERT_TRUE(vx::CreateDirectoryTree(L"C:\\Host\\log"));
  SDKLOG(LOG_INFO) << "x";
  EXPECT_EQ(LineCount(), 1);
}

TEST_F(Faults, WithoutAMutexLinesAreStillWrittenAndEachAsksForItAgain) {
  sim::FailAlways("CreateMutexW", 5);
  SDKLOG(LOG_INFO) << "1";
  const int calls = sim::CallCount("CreateMutexW");
  SDKLOG(LOG_INFO) << "2";
  EXPECT_EQ(sim::CallCount("CreateMutexW"), calls + 1);
  EXPECT_EQ(sim::CallCount("CreateFileW"), 1);
  sim::ClearFaults();
  SDKLOG(LOG_INFO) << "3";
  SDKLOG(LOG_INFO) << "4";
  EXPECT_EQ(sim::CallCount("CreateMutexW"), calls + 2);
  EXPECT_EQ(LineCount(), 4);
}

TEST_F(Faults, ThreadsWithoutAMutexDoNotStumbleOverEachOther) {
  sim::FailNth("CreateMutexW", 1, sim::kForever);
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([thread] {
      for (int statement = 0; statement < 25; ++statement) {
        SDKLOG(LOG_INFO) << thread;
        if (thread == 0 && statement == 10) {
          sim::ClearFaults();
        }
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(sim::CallCount("CreateFileW"), 1);
  EXPECT_GT(LineCount(), 0);
}

TEST_F(Faults, AMutexThatCanNotBeGivenUpStaysWithItsThreadUntilThatEnds) {
  sim::SetClockSpeed(0);
  SDKLOG(LOG_INFO) << "1";
  const platform::Handle end = platform::CreateEventW(false, false);
  std::thread owner([end] {
    sim::FailNth("ReleaseMutex", 1);
    SDKLOG(LOG_INFO) << "2";
    SDKLOG(LOG_INFO) << "3"; // its own thread goes on
    platform::WaitForSingleObject(end, platform::kInfinite);
  });
  EXPECT_TRUE(sim::WaitFor([] { return sim::LiveThreads() == 1; }));
  EXPECT_TRUE(sim::WaitForRest());
  EXPECT_EQ(LineCount(), 3);
  std::thread other([] { SDKLOG(LOG_INFO) << "4"; });
  EXPECT_TRUE(sim::WaitFor([] { return sim::LiveThreads() == 2; }));
  EXPECT_TRUE(sim::WaitForRest());
  sim::AdvanceMs(1000ull * 60 * 60 * 24 * 365);
  EXPECT_TRUE(sim::WaitForRest());
  EXPECT_EQ(LineCount(), 3);
  platform::SetEvent(end);
  owner.join();
  other.join();
  EXPECT_EQ(LineCount(), 4);
  EXPECT_EQ(sim::FaultsFired("ReleaseMutex"), 1);
  EXPECT_TRUE(platform::CloseHandle(end));
}

TEST_F(Faults, ALineThatCanNotBeWrittenIsLostAlone) {
  SDKLOG(LOG_INFO) << "1";
  sim::FailNth("WriteFile", 1);
  SDKLOG(LOG_INFO) << "2";
  SDKLOG(LOG_INFO) << "3";
  EXPECT_EQ(LineCount(), 2);
}

TEST_F(Faults, AFullDiskCostsTheLinesThatDoNotFitAndNoMore) {
  SDKLOG(LOG_INFO) << "1";
  const std::string before = sim::FileBytes(kFixedLog);
  sim::SetFreeSpace(L"C:", 0);
  platform::SetLastError(17);
  SDKLOG(LOG_INFO) << "2";
  EXPECT_EQ(platform::GetLastError(), 17u);
  EXPECT_EQ(sim::FileBytes(kFixedLog), before);
  sim::SetFreeSpace(L"C:", before.size());
  SDKLOG(LOG_INFO) << "3";
  EXPECT_EQ(sim::CallCount("CreateFileW"), 1);
  EXPECT_EQ(LineCount(), 2);
}

TEST_F(Faults, ASizeThatIsNotKnownEmptiesNothing) {
  ASSERT_TRUE(vx::CreateDirectoryTree(L"C:\\Host\\log"));
  const std::size_t oversized = 10485761;
  test::WriteBytes(kFixedLog, std::string(oversized, 'x'));
  sim::FailNth("GetFileSizeEx", 1);
  SDKLOG(LOG_INFO) << "x";
  EXPECT_GT(test::ReadBytes(kFixedLog).size(), oversized);
}

TEST_F(Faults, ALineThatCanNotBeConvertedIsLostAlone) {
  SDKLOG(LOG_INFO) << "1";
  sim::FailNth("WideCharToMultiByte", 1, sim::kOnce, 87);
  platform::SetLastError(17);
  SDKLOG(LOG_INFO) << "2";
  EXPECT_EQ(platform::GetLastError(), 17u);
  SDKLOG(LOG_INFO) << "3";
  EXPECT_EQ(LineCount(), 2);
}

TEST_F(Faults, OneFaultAnywhereCostsTheLogAtMostItsOwnLine) {
  for (const std::string& operation : sim::FailableOperations()) {
    for (int nth = 1;; ++nth) {
      vx::ResetLogger({});
      sim::Reset();
      sim::FailNth(operation, nth);
      platform::SetLastError(31);
      SDKLOG(LOG_INFO) << "1";
      EXPECT_EQ(platform::GetLastError(), 31u) << operation << nth;
      SDKLOG(LOG_INFO) << "2";
      EXPECT_EQ(platform::GetLastError(), 31u) << operation << nth;
      const int fired = sim::FaultsFired();
      sim::ClearFaults();
      SDKLOG(LOG_INFO) << "3";
      const std::string bytes = test::ReadBytes(kFixedLog);
      EXPECT_NE(bytes.find(" 3\r\n"), std::string::npos) << operation << nth;
      EXPECT_GE(LineCount(), 2) << operation << nth;
      vx::ResetLogger({});
      EXPECT_EQ(sim::BadCloses(), 0) << operation << nth;
      if (operation != "CloseHandle" && operation != "RegCloseKey") {
        EXPECT_EQ(sim::OpenHandles(), 0) << operation << nth;
      }
      if (fired == 0) {
        EXPECT_EQ(LineCount(), 3);
        break;
      }
      ASSERT_LT(nth, 100) << operation;
    }
  }
}

TEST_F(Faults, AConversionThatNeedsMoreRoomAsksOnce) {
  sim::FailNth("WideCharToMultiByte", 1, sim::kOnce, 122);
  const vx::NarrowText narrow(L"text", platform::kCodePageUtf8);
  EXPECT_STREQ(narrow.Get(), "text");
  EXPECT_EQ(sim::CallCount("WideCharToMultiByte"), 3);
  sim::FailNth("MultiByteToWideChar", 1, sim::kOnce, 122);
  const vx::WideText wide("text", platform::kCodePageUtf8);
  EXPECT_EQ(std::wstring(wide.Get()), L"text");
  EXPECT_EQ(sim::CallCount("MultiByteToWideChar"), 3);
}

TEST_F(Faults, UpToTheLongestFormAConversionIsOneCall) {
  for (const std::size_t length : {0u, 31u, 32u, 127u, 128u, 5000u}) {
    const int narrowings = sim::CallCount("WideCharToMultiByte");
    const vx::NarrowText narrow(std::wstring(length, L'\u20AC').c_str(), platform::kCodePageUtf8);
    EXPECT_EQ(narrow.Length(), 3 * length);
    EXPECT_EQ(sim::CallCount("WideCharToMultiByte"), narrowings + 1) << length;
    const int widenings = sim::CallCount("MultiByteToWideChar");
    const vx::WideText wide(std::string(length, '\xFF').c_str(), platform::kCodePageUtf8);
    EXPECT_EQ(wide.Length(), length);
    EXPECT_EQ(sim::CallCount("MultiByteToWideChar"), widenings + 1) << length;
  }
}

TEST_F(Faults, TheSecondCallOfAWholeConversionIsNotExamined) {
  sim::FailNth("WideCharToMultiByte", 2);
  EXPECT_EQ(vx::WideToUtf8(L"a\u00E9"), std::string(3, '\0'));
  sim::FailNth("MultiByteToWideChar", 2);
  EXPECT_EQ(vx::MultiByteToWide("a\xC3\xA9", platform::kCodePageUtf8), std::wstring(2, L'\0'));
  EXPECT_EQ(sim::FaultsFired(), 2);
}

TEST_F(Faults, AConversionThatFailsTwiceOrOtherwiseThrows) {
  for (const std::uint32_t error : {122u, 87u, 1113u}) {
    sim::FailAlways("WideCharToMultiByte", error);
    sim::FailAlways("MultiByteToWideChar", error);
    EXPECT_THROW(vx::NarrowText(L"text", platform::kCodePageUtf8), vx::TextError);
    EXPECT_THROW(vx::WideText("text", platform::kCodePageUtf8), vx::TextError);
    EXPECT_EQ(vx::WideToUtf8(L"text"), "");
    EXPECT_EQ(vx::MultiByteToWide("text", platform::kCodePageUtf8), L"");
  }
}

TEST_F(Faults, AnEmptyTextMakesNoCall) {
  const int calls = CallsInAll();
  EXPECT_EQ(vx::WideToUtf8(L""), "");
  EXPECT_EQ(vx::MultiByteToWide("", platform::kCodePageUtf8), L"");
  EXPECT_EQ(CallsInAll(), calls);
}

TEST_F(Faults, ANullSwitchNameTouchesNoKey) {
  EXPECT_EQ(vx::GetSwitchValue(nullptr), -100);
  EXPECT_EQ(sim::CallCount("RegOpenKeyW"), 0);
  EXPECT_EQ(vx::GetSwitchValue("a"), -101);
  EXPECT_EQ(sim::CallCount("RegOpenKeyW"), 1);
  EXPECT_EQ(sim::CallCount("RegCreateKeyExW"), 0);
}

TEST_F(Faults, ASwitchThatCanNotBeReadIsMinusOne) {
  const std::wstring key = L"SOFTWARE\\Norvel\\NVBrowser\\NVBStrategy";
  sim::SetDword(platform::kHkeyCurrentUser, key, L"OpenPIC_enable", 1);
  EXPECT_TRUE(vx::IsSupportPreview());
  EXPECT_EQ(vx::GetSwitchValue("OpenPIC_enable"), 1);
  sim::FailNth("RegQueryValueExW", 1);
  EXPECT_FALSE(vx::IsSupportPreview());
  sim::FailNth("RegQueryValueExW", 1);
  EXPECT_EQ(vx::GetSwitchValue("OpenPIC_enable"), -1);
  sim::FailNth("RegOpenKeyW", 1);
  EXPECT_FALSE(vx::IsSupportPreview());
  EXPECT_EQ(sim::OpenHandles(), 0);
}

TEST_F(Faults, TheLevelIsReadAgainAtEachStart) {
  sim::SetDword(platform::kHkeyLocalMachine, L"Software\\Tarnwick\\antivirus\\sysopt", L"LogLevel", 3);
  sim::FailAlways("CreateDirectoryW", 5);
  SDKLOG(LOG_ERROR) << "lost";
  EXPECT_EQ(vx::GetMinLogLevel(), 3);
  sim::ClearFaults();
  sim::FailNth("RegQueryValueExW", 1);
  SDKLOG(LOG_INFO) << "kept";
  EXPECT_EQ(vx::GetMinLogLevel(), 1);
  EXPECT_EQ(LineCount(), 1);
}

TEST_F(Faults, AnEventThatFailsSaysSo) {
  vx::KEvent event;
  event.Attach(platform::CreateEventW(false, true));
  sim::FailNth("SetEvent", 1);
  EXPECT_EQ(event.Set(), -1);
  sim::FailNth("WaitForSingleObject", 1);
  EXPECT_FALSE(event.WaitFor(platform::kInfinite));
  EXPECT_TRUE(event.WaitFor(platform::kInfinite));
}

TEST_F(Faults, AFolderLookupThatFailsLeavesASeparator) {
  sim::FailAlways("SHGetSpecialFolderPathW");
  EXPECT_EQ(vx::GetSpecialFolder(28, nullptr), L"\\");
  EXPECT_EQ(vx::GetConfigFilePath(), L"\\norvelVexel\\config_temp.ini");
  static int token; // any that is not null
  sim::FailAlways("SHGetFolderPathW");
  EXPECT_EQ(vx::GetSpecialFolder(28, &token), L"\\");
  EXPECT_EQ(sim::CallCount("SHGetFolderPathW"), 1);
}

TEST_F(Faults, TheConfigurationsPathIsTheUsersAndItsFolderIsMadeOnlyOnce) {
  EXPECT_EQ(vx::GetConfigFilePath(), std::wstring(sim::kLocalAppData) + L"\\norvelVexel\\config_temp.ini");
  const int made = sim::CallCount("CreateDirectoryW");
  EXPECT_GE(made, 1);
  vx::GetConfigFilePath();
  EXPECT_EQ(sim::CallCount("CreateDirectoryW"), made);
}

TEST_F(Faults, APlainFileInThePlaceOfTheConfigurationsFolderIsLeftAlone) {
  test::WriteBytes(std::wstring(sim::kLocalAppData) + L"\\norvelVexel", "x");
  const std::wstring path = vx::GetConfigFilePath();
  vx::ini::KIniWrapper ini;
  EXPECT_FALSE(ini.Load(path.c_str(), vx::ini::INI_UTF8, 1));
  EXPECT_EQ(ini.GetInt(L"common", L"pid", 0), 0);
}

TEST_F(Faults, AModuleWithoutAPathLeavesASeparator) {
  EXPECT_EQ(vx::GetModuleDirectory(), L"C:\\Vexel\\");
  sim::FailNth("GetModuleHandleOfAddress", 1);
  EXPECT_EQ(vx::GetModuleDirectory(), L"\\");
  sim::FailAlways("GetModuleFileNameW");
  EXPECT_EQ(vx::GetModuleFilePath(nullptr), L"");
  EXPECT_EQ(vx::GetModuleDirectory(), L"\\");
}

TEST_F(Faults, AFolderThatCanNotBeMadeIsNotThere) {
  for (int nth = 1;; ++nth) {
    sim::Reset();
    sim::FailNth("CreateDirectoryW", nth);
    const std::wstring path = L"C:\\a\\b\\c";
    const bool made = vx::CreateDirectoryTree(path);
    EXPECT_EQ(made, vx::DirectoryExists(path)) << nth;
    if (sim::FaultsFired() == 0) {
      EXPECT_TRUE(made);
      break;
    }
    ASSERT_LT(nth, 20);
  }
}

constexpr const wchar_t* kIni = L"C:\\Host\\a.ini";

TEST_F(Faults, AFileThatIsNotReadWholeDoesNotLoad) {
  test::WriteBytes(kIni, "[a]\nk=1\n");
  for (const char* operation : {"CreateFileW", "GetFileSize", "ReadFile", "MultiByteToWideChar"}) {
    sim::ClearFaults();
    sim::FailNth(operation, 1);
    vx::ini::KIniWrapper ini;
    ini.SetInt(L"a", L"k", 9);
    EXPECT_FALSE(ini.Load(kIni, vx::ini::INI_UTF8, 0)) << operation;
    EXPECT_EQ(ini.GetInt(L"a", L"k", 5), 5) << operation;
    EXPECT_TRUE(ini.Load(kIni, vx::ini::INI_UTF8, 0)) << operation;
    EXPECT_EQ(ini.GetInt(L"a", L"k", 5), 1) << operation;
  }
}

TEST_F(Faults, AFileThatIsNotWrittenWholeDoesNotSave) {
  vx::ini::KIniWrapper ini;
  ini.SetInt(L"a", L"k", 1);
  sim::FailNth("CreateFileW", 1);
  EXPECT_FALSE(ini.Save(kIni, vx::ini::INI_UTF8));
  EXPECT_FALSE(test::Exists(kIni));
  sim::FailNth("WriteFile", 1);
  EXPECT_FALSE(ini.Save(kIni, vx::ini::INI_UTF8));
  EXPECT_EQ(test::ReadBytes(kIni), "");
  sim::FailNth("WriteFile", 2);
  EXPECT_FALSE(ini.Save(kIni, vx::ini::INI_UTF8));
  EXPECT_EQ(test::ReadBytes(kIni), "\xEF\xBB\xBF");
  EXPECT_TRUE(ini.Save(kIni, vx::ini::INI_UTF8));
  EXPECT_EQ(test::ReadBytes(kIni), "\xEF\xBB\xBF[a]\r\nk=1\r\n");
}

TEST_F(Faults, ABodyThatCanNotBeConvertedIsDroppedAndSaved) {
  vx::ini::KIniWrapper ini;
  ini.SetInt(L"a", L"k", 1);
  sim::FailNth("WideCharToMultiByte", 1, sim::kOnce, 122);
  EXPECT_TRUE(ini.Save(kIni, vx::ini::INI_UTF8));
  EXPECT_EQ(test::ReadBytes(kIni), "\xEF\xBB\xBF");
}

TEST_F(Faults, AnEmptyFileIsMadeUnlessItsFolderOrItselfFails) {
  sim::FailNth("SHCreateDirectoryExW", 1, sim::kOnce, 5);
  EXPECT_EQ(vx::ini::CreateEmptyFile(kIni), static_cast<std::int32_t>(0x80070005u));
  sim::FailNth("CreateFileW", 1, sim::kOnce, 32);
  EXPECT_EQ(vx::ini::CreateEmptyFile(kIni), static_cast<std::int32_t>(0x80070020u));
  for (const std::uint32_t there : {80u, 183u}) {
    platform::DeleteFileW(kIni);
    sim::FailNth("SHCreateDirectoryExW", 1, sim::kOnce, there);
    EXPECT_EQ(vx::ini::CreateEmptyFile(kIni), 0);
    EXPECT_TRUE(test::Exists(kIni));
  }
}

} // namespace
