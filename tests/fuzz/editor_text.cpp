#include "foundation/logger.h"
#include "tests/fuzz/fuzz.h"
#include "tests/sim/editor.h"
#include "tests/sim/process.h"
#include "tests/sim/world.h"
#include "vexelsdk/engine/vexel_sdk_thread.h"

#include <nlohmann/json.hpp>

#include <array>
#include <deque>
#include <memory>
#include <set>
#include <utility>
#include <vector>

// The fuzzer's window into the engine. Its threads are ended, so that one thread does all their work in a known order.
class EngineProbe {
public:
  static void StopThreads(VexelSDKThread& engine) { engine.StopThreads(); }
  static void AddHelper(VexelSDKThread& engine, std::uint32_t pid, std::shared_ptr<VexelSDKHelper> helper) {
    engine.m_helpers[pid] = std::move(helper);
  }
  static bool Bind(VexelSDKThread& engine, std::int32_t id, std::uint32_t pid) { return engine.BindIdToPid(id, pid); }
  static void SetModifyClose(VexelSDKThread& engine, std::int32_t id) { engine.SetModifyClose(id); }
  static void Poll(VexelSDKThread& engine) { engine.PollEditors(); }
  static const std::set<std::uint32_t>& Exited(const VexelSDKThread& engine) { return engine.m_exitedPids; }
  static void Forget(VexelSDKThread& engine) {
    engine.m_callbacks.clear();
    engine.m_callbackData.clear();
    engine.m_exitedPids.clear();
    engine.m_finishedIds.clear();
    engine.m_modifyCloseIds.clear();
    engine.m_pidToId.clear();
    engine.m_idToPid.clear();
    engine.m_pidsByNumber.clear();
  }
};

namespace {

constexpr std::int32_t kId = 7;
constexpr std::array<std::uint32_t, 2> kPids = {5000, 5004}; // the second has no id

using Event = std::pair<std::int32_t, std::string>; // the id that a callback was registered for, and its text

std::vector<Event> g_events;

void Record(char* text, void* data) {
  g_events.emplace_back(data == nullptr ? 0 : kId, text);
  FreeCallbackText(text);
}

/// An engine with two editors in a system of its own.
struct Session {
  sim::World world;
  std::shared_ptr<VexelSDKThread> engine;
  std::array<std::shared_ptr<VexelSDKHelper>, kPids.size()> helpers;

  Session() {
    vx::ResetLogger({});
    vx::EnsureLoggerReady();
    vx::SetMinLogLevel(vx::LOG_WARNING);
    sim::InstallEditors();
    engine = VexelSDKThread::GetInstance();
    EngineProbe::StopThreads(*engine);
    for (std::size_t i = 0; i < kPids.size(); ++i) {
      sim::ProcessSpec spec;
      spec.path = sim::kEditorPath;
      spec.pid = kPids.at(i);
      sim::StartProcess(spec);
      sim::AttachEditor(spec.pid);
      helpers.at(i) = std::make_shared<VexelSDKHelper>();
      fuzz::Check(helpers.at(i)->StartServer(spec.pid), "a link serves its editor");
      EngineProbe::AddHelper(*engine, spec.pid, helpers.at(i));
    }
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  ~Session() {
    helpers = {};
    VexelSDKThread::DestroyInstance(std::move(engine));
    vx::ResetLogger({});
  }
};

/// What the engine is to do, worked out from the texts alone.
struct Expected {
  std::array<std::deque<std::string>, kPids.size()> queues;
  std::array<bool, kPids.size()> modified{};
  std::vector<Event> events;
  std::set<std::uint32_t> exited;
  std::set<std::int32_t> finished;
  std::set<std::int32_t> asking; // the ids whose close waits for the user
  std::set<std::int32_t> heard;  // the ids with a callback

  void Arrive(std::size_t editor, const std::string& text) {
    auto& queue = queues.at(editor);
    const bool repeated = !queue.empty() && queue.back() == text;
    if (!text.empty() && !repeated && text.find("testserver") == std::string::npos) {
      queue.push_back(text);
    }
  }

  void Pass() {
    for (std::size_t editor = 0; editor < kPids.size(); ++editor) {
      if (!queues.at(editor).empty()) {
        const std::string text = std::move(queues.at(editor).front());
        queues.at(editor).pop_front();
        Take(editor, text);
      }
    }
  }

  void Take(std::size_t editor, const std::string& text) {
    const std::int32_t id = editor == 0 ? kId : 0;
    const auto value = nlohmann::json::parse(text, nullptr, false);
    const auto type = value.is_object() && value.contains("type") && value["type"].is_string()
                          ? value["type"].get<std::string>()
                          : std::string();
    bool forward = heard.contains(id);
    if (type == "edit" && value.contains("status") && value["status"].is_boolean()) {
      modified.at(editor) = value["status"].get<bool>();
    } else if (type == "finish_operator") {
      finished.insert(id);
    } else if (type == "cancel_process_exit") {
      forward = false;
      asking.erase(id);
    } else if (type == "process_exit") {
      forward = false;
      if (value.contains("process_id") && value["process_id"].is_number_integer()) {
        exited.insert(static_cast<std::uint32_t>(value["process_id"].get<std::int64_t>())); // its lowest 32 bits
        asking.erase(id);
      }
    }
    if (forward) {
      events.emplace_back(id, text);
    }
  }
};

} // namespace

// The first byte chooses who listens and whether a close is waiting. Then come texts, each up to a NUL behind a byte that
// says which editor sends it and whether the engine looks for texts behind it. What reaches the callback is what was
// sent, in order, but for what a rule keeps back, and the tables say what the texts said.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Session* session = nullptr; // the last one is left to the end of the program
  static int count = 0;
  if (count++ % 4096 == 0) { // the simulated system remembers what the debugger heard
    delete session;
    session = new Session;
  }
  VexelSDKThread& engine = *session->engine;
  EngineProbe::Forget(engine);
  g_events.clear();
  Expected expected;
  for (std::size_t i = 0; i < kPids.size(); ++i) {
    expected.modified.at(i) = session->helpers.at(i)->IsModify();
  }

  fuzz::Input input(data, size);
  const std::uint8_t choice = input.Byte();
  EngineProbe::Bind(engine, kId, kPids[0]);
  if ((choice & 1) == 0) {
    engine.SetCallback(kId, Record, &engine);
    expected.heard.insert(kId);
  } else if ((choice & 2) != 0) {
    engine.SetCallback(kId, nullptr, nullptr);
  }
  if ((choice & 4) != 0) {
    engine.SetCallback(0, Record, nullptr);
    expected.heard.insert(0);
  }
  for (const std::int32_t id : {kId, 0}) {
    if ((choice & 8) != 0) {
      EngineProbe::SetModifyClose(engine, id);
      expected.asking.insert(id);
    }
  }
  while (!input.IsEmpty()) {
    const std::uint8_t how = input.Byte();
    const std::size_t editor = how & 1;
    const std::string text(input.Until('\0'));
    fuzz::Check(sim::SendEventHere(kPids.at(editor), text), "an editor can send");
    expected.Arrive(editor, text);
    if ((how & 2) != 0) {
      EngineProbe::Poll(engine);
      expected.Pass();
    }
  }
  while (!expected.queues[0].empty() || !expected.queues[1].empty()) {
    EngineProbe::Poll(engine);
    expected.Pass();
  }
  EngineProbe::Poll(engine); // which finds nothing

  fuzz::Check(g_events == expected.events, "the browser hears what was sent, in order, but for what a rule keeps back");
  fuzz::Check(EngineProbe::Exited(engine) == expected.exited, "the processes that are named have ended");
  for (const std::int32_t id : {kId, 0}) {
    fuzz::Check(engine.IsFinished(id) == expected.finished.contains(id), "an id is over when its editor says so");
    fuzz::Check(engine.IsModifyClose(id) == expected.asking.contains(id),
                "a question to the user ends as the editor says");
  }
  for (std::size_t i = 0; i < kPids.size(); ++i) {
    fuzz::Check(session->helpers.at(i)->IsModify() == expected.modified.at(i), "an edit notes the unsaved state");
  }
  return 0;
}
