#include "foundation/logger.h"
#include "tests/sim/editor.h"
#include "tests/sim/faults.h"
#include "tests/sim/file.h"
#include "tests/sim/module.h"
#include "tests/sim/process.h"
#include "tests/sim/world.h"
#include "vexelsdk/link/pipe_binding.h"
#include "vexelsdk/link/vexel_sdk_helper.h"

#include <gtest/gtest.h>

#include <string>

namespace {

/// A link whose log cannot be: a plain file stands where its folder would.
class LinkWithoutALog : public testing::Test {
protected:
  LinkWithoutALog() {
    vx::ResetLogger({});
    sim::AddFile(L"C:\\Host\\log");
    sim::AddPipeLibrary();
    m_pid = sim::StartProcess(sim::kEditorPath);
    sim::AttachEditor(m_pid);
  }
  ~LinkWithoutALog() override {
    EXPECT_FALSE(vx::EnsureLoggerReady());
    vx::ResetLogger({});
  }

  static SDK_OperatorData Open() {
    SDK_OperatorData record;
    record.m_op = SDK_OPEN;
    record.m_id = 3;
    return record;
  }

  sim::World m_world;
  std::uint32_t m_pid = 0;
};

TEST_F(LinkWithoutALog, TriesUntilTheEditorServes) {
  sim::EditorScript script;
  script.refusedConnects = 3;
  sim::AttachEditor(m_pid, script);
  VexelSDKHelper helper;
  ASSERT_TRUE(helper.StartServer(m_pid));
  EXPECT_TRUE(helper.WriteOperator(Open(), nullptr));
  EXPECT_EQ(sim::ConnectAttempts(m_pid), 4);
}

TEST_F(LinkWithoutALog, GivesUpAtOnceWhenTheEditorIsGone) {
  VexelSDKHelper helper;
  ASSERT_TRUE(helper.StartServer(m_pid));
  sim::EndProcess(m_pid);
  bool sent = true;
  EXPECT_FALSE(helper.WriteOperator(Open(), &sent));
  EXPECT_FALSE(sent);
}

TEST_F(LinkWithoutALog, ARefusedNameIsAFailedStart) {
  sim::FailNth("PipeServer::Start", 1, sim::kOnce, 231);
  VexelSDKHelper helper;
  EXPECT_FALSE(helper.StartServer(m_pid));
}

TEST_F(LinkWithoutALog, AHostWhosePathIsUnknownHasNoLibrary) {
  sim::FailAlways("GetModuleFileNameW");
  const PipeServerBinding binding;
  EXPECT_EQ(binding.CreatePipeSvr(), nullptr);
  EXPECT_TRUE(sim::LoadRequests().empty());
}

} // namespace
