#include "vexelsdk/link/pipe_binding.h"

#include "platform/module.h"
#include "tests/sim/faults.h"
#include "tests/sim/file.h"
#include "tests/sim/module.h"
#include "tests/sim/process.h"
#include "tests/sim/world.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

constexpr wchar_t kBesideHost[] = L"C:\\Host\\vpipearm64.dll";
constexpr wchar_t kBesideSdk[] = L"C:\\Vexel\\vpipearm64.dll";
constexpr wchar_t kElsewhere[] = L"D:\\Other\\vpipearm64.dll";

std::vector<std::string> Sorted(std::vector<std::string> names) {
  std::sort(names.begin(), names.end());
  return names;
}

class PipeBinding : public testing::Test {
protected:
  sim::World m_world;
};

TEST_F(PipeBinding, WithoutALibraryEveryEntryIsNull) {
  const PipeClientBinding client;
  EXPECT_EQ(client.CltConnectServer("anybody"), 0u);
  const PipeServerBinding server;
  EXPECT_EQ(server.CreatePipeSvr(), nullptr);
  server.ReleasePipeSvr(nullptr);
}

TEST_F(PipeBinding, LooksBesideTheHostThenBesideTheSdkAndTheServersTwiceAtEach) {
  const PipeClientBinding client;
  EXPECT_EQ(sim::LoadRequests(), (std::vector<std::wstring>{kBesideHost, kBesideSdk}));
  const PipeServerBinding server;
  EXPECT_EQ(sim::LoadRequests(),
            (std::vector<std::wstring>{kBesideHost, kBesideSdk, kBesideHost, kBesideHost, kBesideSdk, kBesideSdk}));
}

TEST_F(PipeBinding, FindsALibraryThatLiesOnlyBesideTheSdk) {
  sim::AddPipeLibrary(kBesideSdk);
  const PipeServerBinding binding;
  PipeServer* const server = binding.CreatePipeSvr();
  ASSERT_NE(server, nullptr);
  binding.ReleasePipeSvr(server);
  EXPECT_EQ(sim::LiveServers(), 0);
}

TEST_F(PipeBinding, TakesTheCopyInTheProcessAndNeverUnloadsIt) {
  sim::AddPipeLibrary(kBesideHost);
  { const PipeClientBinding first; }
  EXPECT_EQ(sim::ReferenceCount(kBesideHost), 1);
  sim::AddPipeLibrary(kBesideSdk);
  const std::size_t attempts = sim::LoadRequests().size();
  { const PipeServerBinding second; }
  EXPECT_EQ(sim::LoadRequests().size(), attempts);
  EXPECT_EQ(sim::ReferenceCount(kBesideHost), 1);
}

TEST_F(PipeBinding, TakesACopyThatSomebodyLoadedFromAnotherFolder) {
  sim::AddPipeLibrary(kElsewhere);
  sim::AddPipeLibrary(kBesideHost);
  ASSERT_NE(platform::LoadLibraryW(kElsewhere), nullptr);
  const std::size_t attempts = sim::LoadRequests().size();
  const PipeServerBinding server;
  PipeServer* const made = server.CreatePipeSvr();
  ASSERT_NE(made, nullptr);
  server.ReleasePipeSvr(made);
  const PipeClientBinding client;
  EXPECT_EQ(sim::LoadRequests().size(), attempts);
  EXPECT_EQ(sim::ReferenceCount(kBesideHost), 0);
  EXPECT_EQ(sim::ReferenceCount(kElsewhere), 1);
}

TEST_F(PipeBinding, ALoadThatFailsOnceSendsAClientOnAndAServerBackToTheSamePlace) {
  sim::AddPipeLibrary(kBesideHost);
  sim::AddPipeLibrary(kBesideSdk);
  sim::FailNth("LoadLibraryW", 1);
  { const PipeServerBinding server; }
  EXPECT_EQ(sim::LoadRequests(), (std::vector<std::wstring>{kBesideHost, kBesideHost}));
  EXPECT_EQ(sim::ReferenceCount(kBesideHost), 1);
  sim::Reset();
  sim::AddPipeLibrary(kBesideHost);
  sim::AddPipeLibrary(kBesideSdk);
  sim::FailNth("LoadLibraryW", 1);
  { const PipeClientBinding client; }
  EXPECT_EQ(sim::LoadRequests(), (std::vector<std::wstring>{kBesideHost, kBesideSdk}));
  EXPECT_EQ(sim::ReferenceCount(kBesideSdk), 1);
  EXPECT_EQ(sim::CallCount("FreeLibrary"), 0);
}

TEST_F(PipeBinding, LooksUpItsOwnEntriesByTheirExactNames) {
  sim::AddPipeLibrary(kBesideHost);
  { const PipeClientBinding client; }
  EXPECT_EQ(Sorted(sim::RequestedEntries()),
            (std::vector<std::string>{"CltComunicate", "CltConnectServer", "CltDisConnect"}));
  { const PipeServerBinding server; }
  EXPECT_EQ(Sorted(sim::RequestedEntries()),
            (std::vector<std::string>{"CltComunicate", "CltConnectServer", "CltDisConnect", "CreatePipeSvr",
                                      "ReleasePipeSvr"}));
}

TEST_F(PipeBinding, AnEntryThatTheLibraryLacksStaysNull) {
  sim::AddPipeLibrary(kBesideHost);
  sim::RemoveEntry("CltConnectServer");
  sim::RemoveEntry("CreatePipeSvr");
  sim::RemoveEntry("ReleasePipeSvr");
  const PipeClientBinding client;
  EXPECT_EQ(client.CltConnectServer("anybody"), 0u);
  const PipeServerBinding server;
  EXPECT_EQ(server.CreatePipeSvr(), nullptr);
  server.ReleasePipeSvr(nullptr);
}

TEST_F(PipeBinding, AModuleWithoutABackslashHasNoDirectory) {
  wchar_t buffer[520] = {};
  sim::ReportExecutablePath(L"browser.exe");
  EXPECT_FALSE(BuildModuleDirectory(nullptr, buffer));
  sim::ReportExecutablePath(L"C:\\browser.exe");
  ASSERT_TRUE(BuildModuleDirectory(nullptr, buffer));
  EXPECT_EQ(std::wstring(buffer), L"C:\\");
  sim::ReportExecutablePath(L"C:\\a/\\browser.exe"); // what is left ends in a separator already
  ASSERT_TRUE(BuildModuleDirectory(nullptr, buffer));
  EXPECT_EQ(std::wstring(buffer), L"C:\\a/");
}

TEST_F(PipeBinding, APathOfMoreThan260UnitsIsCutBeforeItsFolderIsTaken) {
  wchar_t buffer[520] = {};
  const std::wstring folder = L"C:\\" + std::wstring(250, L'a') + L"\\";
  sim::ReportExecutablePath(folder + std::wstring(50, L'b') + L"\\browser.exe");
  ASSERT_TRUE(BuildModuleDirectory(nullptr, buffer));
  EXPECT_EQ(std::wstring(buffer), folder);
}

} // namespace
