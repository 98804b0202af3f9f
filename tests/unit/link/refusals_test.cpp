#include "tests/sim/editor.h"
#include "tests/sim/faults.h"
#include "tests/sim/module.h"
#include "tests/sim/process.h"
#include "tests/sim/world.h"
#include "vexelsdk/link/pipe_binding.h"
#include "vexelsdk/link/vexel_sdk_helper.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

class Refusals : public testing::Test {
protected:
  sim::World m_world;
};

TEST_F(Refusals, ALinkThatFoundNoLibraryDoesNotLookAgain) {
  const std::uint32_t pid = sim::StartProcess(sim::kEditorPath);
  VexelSDKHelper helper;
  EXPECT_FALSE(helper.StartServer(pid));
  const auto requests = sim::LoadRequests();
  sim::AddPipeLibrary();
  EXPECT_FALSE(helper.StartServer(pid));
  EXPECT_EQ(sim::LoadRequests(), requests);
  EXPECT_EQ(sim::LiveServers(), 0);
}

TEST_F(Refusals, AHostThatReportsOddSeparatorsIsSearchedInItsFolder) {
  const struct {
    const wchar_t* host;
    const wchar_t* library;
  } rows[] = {
      {L"C:\\Host\\\\browser.exe", L"C:\\Host\\vpipearm64.dll"},
      {L"C:\\Host/\\browser.exe", L"C:\\Host/vpipearm64.dll"},
      {L"\\browser.exe", L"\\vpipearm64.dll"},
  };
  for (const auto& row : rows) {
    sim::ReportExecutablePath(row.host);
    const std::size_t before = sim::LoadRequests().size();
    const PipeClientBinding binding;
    ASSERT_GT(sim::LoadRequests().size(), before);
    EXPECT_EQ(sim::LoadRequests()[before], row.library);
  }
}

TEST_F(Refusals, AHostWithoutAFolderIsNotSearched) {
  sim::ReportExecutablePath(L"browser.exe");
  const PipeClientBinding binding;
  EXPECT_EQ(sim::LoadRequests(), std::vector<std::wstring>{sim::kPipeLibraryPath});
}

} // namespace
