#include "tests/sim/module.h"

#include <gtest/gtest.h>

#include "platform/error.h"
#include "platform/module.h"
#include "platform/types.h"
#include "tests/sim/file.h"
#include "tests/sim/world.h"

namespace {

using namespace platform;

class SimModule : public testing::Test {
protected:
  static std::wstring NameOf(Module module) {
    wchar_t text[kMaxPath] = {};
    EXPECT_GT(GetModuleFileNameW(module, text, kMaxPath), 0u);
    return text;
  }

  sim::World m_world;
};

int g_data = 0;

TEST_F(SimModule, TheExecutableAndTheLibraryHaveTheirPaths) {
  EXPECT_EQ(NameOf(nullptr), sim::kHostPath);
  EXPECT_EQ(NameOf(GetModuleHandleW(nullptr)), sim::kHostPath);
  EXPECT_EQ(NameOf(GetModuleHandleOfAddress(&g_data)), sim::kLibraryPath);
  sim::SetExecutablePath(L"D:\\x\\y.exe");
  sim::SetLibraryPath(L"D:\\x\\other.dll");
  EXPECT_EQ(NameOf(nullptr), L"D:\\x\\y.exe");
  EXPECT_EQ(NameOf(GetModuleHandleOfAddress(&g_data)), L"D:\\x\\other.dll");
  EXPECT_TRUE(sim::FileExists(L"D:\\x\\other.dll"));
  sim::ReportLibraryPath(L"noseparator");
  EXPECT_EQ(NameOf(GetModuleHandleOfAddress(&g_data)), L"noseparator");
}

TEST_F(SimModule, AnAddressMayBelongToAnotherModuleOrToNone) {
  int stray[2] = {};
  sim::AddressesBelongTo(&stray[0], sizeof stray[0], sim::kHostPath);
  sim::AddressesBelongTo(&stray[1], sizeof stray[1], L"");
  EXPECT_EQ(NameOf(GetModuleHandleOfAddress(&stray[0])), sim::kHostPath);
  EXPECT_EQ(GetModuleHandleOfAddress(&stray[1]), nullptr);
  EXPECT_EQ(GetLastError(), 126u);
  EXPECT_EQ(GetModuleHandleOfAddress(nullptr), nullptr);
}

TEST_F(SimModule, ATextThatDoesNotFitIsCutAndTerminated) {
  wchar_t text[8];
  EXPECT_EQ(GetModuleFileNameW(nullptr, text, 8), 8u);
  EXPECT_EQ(GetLastError(), 122u);
  EXPECT_STREQ(text, L"C:\\Host");
  wchar_t exact[20];
  EXPECT_EQ(GetModuleFileNameW(nullptr, exact, 20), 19u);
  EXPECT_EQ(GetModuleFileNameW(nullptr, exact, 19), 19u);
  EXPECT_EQ(GetLastError(), 122u);
}

TEST_F(SimModule, ReferencesAreCounted) {
  const Module library = ReferenceModuleOfAddress(&g_data);
  EXPECT_EQ(sim::ReferenceCount(sim::kLibraryPath), 2);
  EXPECT_TRUE(FreeLibrary(library));
  EXPECT_EQ(sim::ReferenceCount(sim::kLibraryPath), 1);
  sim::AddLibrary(L"C:\\Vexel\\x.dll", {{"Entry", &g_data}});
  const Module first = LoadLibraryW(L"C:\\Vexel\\x.dll");
  EXPECT_EQ(LoadLibraryW(L"c:\\vexel\\X"), first); // the extension is understood
  EXPECT_EQ(sim::ReferenceCount(L"C:\\Vexel\\x.dll"), 2);
  EXPECT_EQ(GetModuleHandleW(L"x.dll"), first);
  EXPECT_EQ(GetProcAddress(first, "Entry"), &g_data);
  EXPECT_EQ(GetProcAddress(first, "entry"), nullptr);
  EXPECT_EQ(GetLastError(), 127u);
  FreeLibrary(first);
  FreeLibrary(first);
  EXPECT_EQ(GetModuleHandleW(L"x.dll"), nullptr);
  EXPECT_FALSE(FreeLibrary(first));
}

TEST_F(SimModule, OnlyLibrariesThatAreThereLoad) {
  EXPECT_EQ(LoadLibraryW(L"C:\\Vexel\\none.dll"), nullptr);
  EXPECT_EQ(GetLastError(), 126u);
  sim::AddFile(L"C:\\Vexel\\text.dll", "no library");
  EXPECT_EQ(LoadLibraryW(L"C:\\Vexel\\text.dll"), nullptr);
  EXPECT_EQ(GetLastError(), 193u);
  EXPECT_EQ(sim::LoadRequests(), (std::vector<std::wstring>{L"C:\\Vexel\\none.dll", L"C:\\Vexel\\text.dll"}));
}

TEST_F(SimModule, ABareNameGoesThroughTheSearchPath) {
  sim::AddPipeLibrary(L"C:\\Vexel\\vpipearm64.dll");
  EXPECT_EQ(LoadLibraryW(L"vpipearm64.dll"), nullptr); // beside the SDK is no part of it
  sim::AddFile(L"C:\\Windows\\System32\\vpipearm64.dll");
  EXPECT_EQ(NameOf(LoadLibraryW(L"vpipearm64.dll")), L"C:\\Windows\\System32\\vpipearm64.dll");
}

TEST_F(SimModule, PsapiIsOnTheSystemUntilItIsTakenAway) {
  EXPECT_EQ(GetModuleHandleW(L"psapi.dll"), nullptr);
  const Module psapi = LoadLibraryW(L"PSAPI.DLL");
  ASSERT_NE(psapi, nullptr);
  for (const char* name : {"EnumProcessModules", "EnumProcessModulesEx", "EnumProcesses", "GetModuleBaseNameW",
                           "GetModuleFileNameExW", "GetProcessImageFileNameW"}) {
    EXPECT_NE(GetProcAddress(psapi, name), nullptr) << name;
  }
  sim::RemoveEntry("EnumProcessModulesEx");
  EXPECT_EQ(GetProcAddress(psapi, "EnumProcessModulesEx"), nullptr);
  FreeLibrary(psapi);
  sim::SetPsapiPresent(false);
  EXPECT_EQ(LoadLibraryW(L"PSAPI.DLL"), nullptr);
}

} // namespace
