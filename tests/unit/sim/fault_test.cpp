#include "tests/sim/faults.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include "platform/debug.h"
#include "platform/error.h"
#include "platform/file.h"
#include "platform/module.h"
#include "platform/process.h"
#include "platform/registry.h"
#include "platform/sync.h"
#include "platform/text.h"
#include "platform/window.h"
#include "tests/sim/debug.h"
#include "tests/sim/handles.h"
#include "tests/sim/window.h"
#include "tests/sim/world.h"

namespace {

class SimFaults : public testing::Test {
protected:
  sim::World m_world;
};

TEST_F(SimFaults, OnlyTheNthCallFails) {
  sim::FailNth("CreateEventW", 2);
  const platform::Handle first = platform::CreateEventW(false, false);
  const platform::Handle second = platform::CreateEventW(false, false);
  EXPECT_EQ(platform::GetLastError(), 8u);
  const platform::Handle third = platform::CreateEventW(false, false);
  EXPECT_NE(first, nullptr);
  EXPECT_EQ(second, nullptr);
  EXPECT_NE(third, nullptr);
  EXPECT_EQ(sim::CallCount("CreateEventW"), 3);
  EXPECT_EQ(sim::FaultsFired("CreateEventW"), 1);
  platform::CloseHandle(first);
  platform::CloseHandle(third);
}

TEST_F(SimFaults, EveryCallFromTheNthOnFails) {
  sim::FailNth("CreateEventW", 2, sim::kForever, 1450);
  EXPECT_TRUE(platform::CloseHandle(platform::CreateEventW(false, false)));
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(platform::CreateEventW(false, false), nullptr);
    EXPECT_EQ(platform::GetLastError(), 1450u);
  }
  sim::ClearFaults();
  EXPECT_TRUE(platform::CloseHandle(platform::CreateEventW(false, false)));
  EXPECT_EQ(sim::FaultsFired(), 3);
}

TEST_F(SimFaults, AFailedCloseLeavesTheHandleOpen) {
  const platform::Handle event = platform::CreateEventW(false, false);
  sim::FailNth("CloseHandle", 1);
  EXPECT_FALSE(platform::CloseHandle(event));
  EXPECT_EQ(sim::OpenHandles(sim::HandleKind::kEvent), 1);
  EXPECT_TRUE(platform::CloseHandle(event));
  EXPECT_EQ(sim::OpenHandles(), 0);
}

// One call of every operation of the platform that can fail, with its own form of failure.
TEST_F(SimFaults, EachOperationFailsInItsOwnWay) {
  using namespace platform;
  for (const std::string& name : sim::FailableOperations()) {
    sim::FailAlways(name);
  }
  wchar_t text[300] = L"C:\\a\\b.c";
  char bytes[8];
  std::uint32_t number = 0;
  std::int64_t size = 0;
  Handle handle = nullptr;
  Handle other = nullptr;
  RegistryKey key = nullptr;
  FileTime time{};
  SystemTime parts{};
  ProcessEntry entry{};
  EXPECT_EQ(OpenProcess(1, sim::kHostPid), nullptr);
  EXPECT_FALSE(TerminateProcess(handle, 0));
  EXPECT_FALSE(GetProcessCreationTime(handle, &time));
  EXPECT_FALSE(FileTimeToLocalFileTime(time, &time));
  EXPECT_FALSE(FileTimeToSystemTime(time, &parts));
  EXPECT_FALSE(CreateProcessW(text, &number, &handle, &other));
  EXPECT_FALSE(OpenProcessToken(handle, kTokenQuery, &other));
  EXPECT_FALSE(GetTokenElevation(handle, &number));
  EXPECT_FALSE(IsUserAnAdmin());
  EXPECT_EQ(CreateToolhelp32Snapshot(kSnapProcess, 0), kInvalidHandle);
  EXPECT_FALSE(Process32FirstW(handle, &entry));
  EXPECT_FALSE(Process32NextW(handle, &entry));
  EXPECT_EQ(CreateFileW(sim::kHostPath, kGenericRead, 0, kOpenExisting, 0), kInvalidHandle);
  EXPECT_EQ(GetFileSize(handle, &number), kInvalidFileSize);
  EXPECT_FALSE(GetFileSizeEx(handle, &size));
  EXPECT_EQ(SetFilePointer(handle, 0, kFileBegin), 0xFFFFFFFFu);
  EXPECT_FALSE(SetEndOfFile(handle));
  EXPECT_FALSE(ReadFile(handle, bytes, sizeof bytes, &number));
  EXPECT_FALSE(WriteFile(handle, bytes, sizeof bytes, &number));
  EXPECT_FALSE(DeleteFileW(sim::kHostPath));
  EXPECT_FALSE(CreateDirectoryW(L"C:\\new"));
  EXPECT_EQ(GetFileAttributesW(sim::kHostPath), kInvalidFileAttributes);
  EXPECT_FALSE(PathFileExistsW(sim::kHostPath));
  EXPECT_EQ(SHCreateDirectoryExW(L"C:\\new"), 5);
  EXPECT_FALSE(SHGetSpecialFolderPathW(text, kCsidlLocalAppData));
  EXPECT_NE(SHGetFolderPathW(kCsidlLocalAppData, nullptr, text), 0);
  EXPECT_EQ(GetLogicalDriveStringsW(300, text), 0u);
  EXPECT_EQ(QueryDosDeviceW(L"C:", text, 300), 0u);
  EXPECT_EQ(ExpandEnvironmentStringsW(L"%SystemRoot%", text, 300), 0u);
  EXPECT_FALSE(PathRemoveFileSpecW(text));
  EXPECT_FALSE(PathAppendW(text, L"x"));
  EXPECT_EQ(GetModuleHandleW(nullptr), nullptr);
  EXPECT_EQ(GetModuleHandleOfAddress(text), nullptr);
  EXPECT_EQ(ReferenceModuleOfAddress(text), nullptr);
  EXPECT_EQ(LoadLibraryW(L"PSAPI.DLL"), nullptr);
  EXPECT_EQ(GetProcAddress(nullptr, "x"), nullptr);
  EXPECT_FALSE(FreeLibrary(nullptr));
  EXPECT_EQ(GetModuleFileNameW(nullptr, text, 300), 0u);
  EXPECT_NE(RegOpenKeyW(kHkeyCurrentUser, L"a", &key), 0);
  EXPECT_NE(RegOpenKeyExW(kHkeyCurrentUser, L"a", kKeyRead, &key), 0);
  EXPECT_NE(RegCreateKeyExW(kHkeyCurrentUser, L"a", kKeyAllAccess, &key, &number), 0);
  EXPECT_NE(RegQueryValueExW(kHkeyCurrentUser, L"a", nullptr, nullptr, &number), 0);
  EXPECT_NE(RegCloseKey(kHkeyCurrentUser), 0);
  EXPECT_EQ(CreateMutexW(false, nullptr), nullptr);
  EXPECT_FALSE(ReleaseMutex(nullptr));
  EXPECT_EQ(CreateEventW(false, false), nullptr);
  EXPECT_FALSE(SetEvent(nullptr));
  EXPECT_EQ(WaitForSingleObject(nullptr, 0), 0xFFFFFFFFu);
  EXPECT_FALSE(CloseHandle(nullptr));
  const Window window = sim::MakeWindow();
  EXPECT_FALSE(IsWindow(window));
  EXPECT_EQ(GetWindowLongPtrW(window, kGwlExStyle), 0);
  EXPECT_EQ(SetWindowLongPtrW(window, kGwlExStyle, 1), 0);
  EXPECT_EQ(sim::ExStyle(window), 0);
  EXPECT_EQ(WideCharToMultiByte(kCodePageUtf8, L"a", 1, bytes, 8), 0);
  EXPECT_EQ(MultiByteToWideChar(kCodePageUtf8, "a", 1, text, 8), 0);
  // What is left are the entries of the libraries, which have tests of their own.
  int unfired = 0;
  for (const std::string& name : sim::FailableOperations()) {
    unfired += sim::FaultsFired(name) == 0 ? 1 : 0;
  }
  EXPECT_EQ(unfired, 10);
}

TEST_F(SimFaults, NamesAreKnownOnce) {
  std::vector<std::string> names = sim::AllOperations();
  std::sort(names.begin(), names.end());
  EXPECT_EQ(std::adjacent_find(names.begin(), names.end()), names.end());
  EXPECT_GT(names.size(), sim::FailableOperations().size());
}

TEST(SimFaultsDeathTest, AnUnknownNameEndsTheProgram) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(sim::FailNth("CreateEvent", 1), "no operation is called CreateEvent");
}

TEST(SimFaultsDeathTest, WhatCantFailIsRefused) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(sim::FailNth("Sleep", 1), "a fault can't be set for Sleep");
}

TEST_F(SimFaults, TheDebuggerHearsTextsAndBreaks) {
  platform::OutputDebugStringA("one");
  platform::OutputDebugStringA("two");
  platform::DebugBreak();
  EXPECT_EQ(sim::DebugTexts(), (std::vector<std::string>{"one", "two"}));
  EXPECT_EQ(sim::DebugBreaks(), 1);
}

TEST_F(SimFaults, ExitNowIsRecordedAndDoesNotReturn) {
  sim::SetExitAction(sim::ExitAction::kThrow);
  try {
    platform::ExitNow(3);
    FAIL() << "it returned";
  } catch (const sim::ProcessExit& exit) {
    EXPECT_EQ(exit.status, 3u);
  }
  EXPECT_EQ(sim::ExitStatuses(), (std::vector<std::uint32_t>{3}));
}

TEST(SimFaultsDeathTest, ExitNowEndsTheProgramWithItsStatus) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(platform::ExitNow(7), testing::ExitedWithCode(7), "ExitNow\\(7\\)");
}

TEST(SimFaultsDeathTest, ALastLookSeesTheWorldThatEnds) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const sim::World world;
  platform::DebugBreak();
  sim::AtExitNow([] { std::fprintf(stderr, "breaks=%d\n", sim::DebugBreaks()); });
  EXPECT_EXIT(platform::ExitNow(7), testing::ExitedWithCode(7), "^breaks=1\nsimulated platform: ExitNow\\(7\\)");
}

} // namespace
