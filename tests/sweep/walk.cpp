#include "tests/sweep/walk.h"

#include "foundation/logger.h"
#include "include/vexelsdk.h"
#include "platform/registry.h"
#include "tests/sim/clock.h"
#include "tests/sim/editor.h"
#include "tests/sim/faults.h"
#include "tests/sim/file.h"
#include "tests/sim/handles.h"
#include "tests/sim/module.h"
#include "tests/sim/process.h"
#include "tests/sim/registry.h"
#include "tests/sim/window.h"
#include "tests/sim/world.h"
#include "tests/sweep/callback_buffers.h"
#include "tests/sweep/child_runs.h"
#include "tests/sweep/life.h"

#include <algorithm>
#include <array>
#include <map>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

namespace {

using Pid = std::uint32_t;

constexpr const wchar_t* kEditorParam = L"L2FwcHR5cGU6Mg=="; // base64 of "/apptype:2"
constexpr std::uint64_t kConnectLimitMs = 101'000;
constexpr wchar_t kLogKey[] = L"Software\\Tarnwick\\antivirus\\sysopt";
constexpr wchar_t kSwitchKey[] = L"SOFTWARE\\Norvel\\NVBrowser\\NVBStrategy";

/// Where one of these fails, a living process reads as gone, and its end may be told: nothing known is not running.
const std::set<std::string>& InventoryOperations() {
  static const std::set<std::string>& names = *new std::set<std::string>{
      "OpenProcess",          "CreateToolhelp32Snapshot", "Process32FirstW",          "Process32NextW",
      "GetModuleFileNameExW", "GetProcessImageFileNameW", "QueryDosDeviceW",          "GetLogicalDriveStringsW",
      "LoadLibraryW",         "GetProcAddress",           "ExpandEnvironmentStringsW"};
  return names;
}

/// Beside threads that never wait each call of the others takes long, and where all waits fail the walks end much alike:
/// one in so many goes on to the look at the rest.
constexpr int kOneIn = 4;

class Walker {
public:
  explicit Walker(Fault fault) : m_fault(std::move(fault)) {}

  std::string Run();

private:
  void BuildWorld() const;
  bool FirstEngine();
  bool SecondEngine();
  void Teardown();
  void CheckRemains();
  void WorkOn();

  /// Builds an engine. False when a thread of it has no brake.
  bool StartEngine();
  bool Rests();
  bool Advance(std::uint64_t milliseconds);
  void Leap(std::uint64_t milliseconds);
  void Drain();
  std::int32_t Open(platform::Window window, const wchar_t* param = nullptr);
  bool Close(std::int32_t id);
  void Send(Pid pid, const std::string& text);
  void End(Pid pid);
  Pid PidOf(std::int32_t id);
  bool WaitsFail() const;
  bool Forever(const char* operation) const { return m_fault.operation == operation && m_fault.forever; }

  static void OnEvent(char* text, void* data);
  void Wrong(const std::string& what) {
    if (m_wrong.empty()) {
      m_wrong = what;
    }
  }

  Fault m_fault;
  life::KillWatch m_killWatch;
  bool m_unstoppable = false;
  int m_signalsBefore = 0; // the teardown

  std::mutex m_lock; // guards what follows
  std::string m_wrong;
  std::set<std::int32_t> m_cleared;     // of this engine
  std::set<std::int32_t> m_everCleared; // of both
  std::set<std::pair<std::int32_t, Pid>> m_crashes;
  std::map<Pid, int> m_successes;
  std::set<Pid> m_linked;
  int m_earlyLosses = 0;
  int m_linksBefore = 0;
  int m_lostLinks = 0;
};

void Walker::OnEvent(char* text, void* data) {
  auto& walker = *static_cast<Walker*>(data);
  const std::string event = text;
  const std::lock_guard lock(walker.m_lock);
  if (!buffers::IsLive(text)) {
    walker.Wrong("a buffer was handed out twice: " + event);
  }
  ReleaseCallbackData(text);
  const auto pid = static_cast<Pid>(life::NumberOf(event, "process_id").value_or(0));
  const auto id = static_cast<std::int32_t>(life::NumberOf(event, "id").value_or(0));
  const std::string param = life::TextOf(event, "param");
  if (walker.m_cleared.contains(id)) {
    walker.Wrong("told after the callback was cleared: " + event);
  }
  if (param == "open_pic_process_success" && !sim::IsRunning(pid) && !sim::ExitCode(pid).has_value()) {
    // One that has just ended may be said to: whoever holds a handle to it keeps it in being.
    walker.Wrong("a process that never ran is said to serve: " + event);
  } else if (param == "open_pic_success") {
    ++walker.m_successes[pid];
  } else if (param == "crash") {
    if (!walker.m_crashes.emplace(id, pid).second) {
      walker.Wrong("a crash was told twice: " + event);
    }
    if (sim::IsRunning(pid) && !InventoryOperations().contains(walker.m_fault.operation)) {
      walker.Wrong("a living process is said to have crashed: " + event);
    }
  }
}

bool Walker::WaitsFail() const { return Forever("WaitForSingleObject") && sim::FaultsFired() > 0; }

bool Walker::StartEngine() {
  // A look at the engine builds it. Only when its threads wait does it get a record, so that each walk begins alike.
  const int events = sim::CallCount("CreateEventW");
  IsClose(0);
  // The engine's two events are the brakes of the watches.
  const int nth = m_fault.nth - events;
  if (m_fault.operation == "CreateEventW" && m_fault.nth > 0 && nth <= 2) {
    m_unstoppable = nth > 0 || m_fault.forever;
  }
  const bool rests = Advance(20);
  VexelSDK_Init(nullptr);
  return rests && Advance(20);
}

bool Walker::Rests() {
  if (!Forever("WaitForSingleObject")) {
    return life::Rest(20);
  }
  // Where waits fail the watches run on, unless they still are in a wait that began before.
  constexpr int kLooks = 10;
  int looks = 0;
  bool rests = false;
  sim::WaitFor([&] {
    rests = sim::LiveThreads() >= 4 && sim::WaitForRest(0);
    looks += WaitsFail() ? 1 : 0;
    return rests || looks > kLooks;
  });
  return rests;
}

/// Lets time run, and looks at each rest.
bool Walker::Advance(std::uint64_t milliseconds) {
  const std::uint64_t until = sim::NowMs() + milliseconds;
  if (m_unstoppable) {
    return false;
  }
  do {
    if (!Rests()) {
      if (WaitsFail()) {
        m_unstoppable = true;
      } else {
        const std::lock_guard lock(m_lock);
        Wrong("the world does not come to rest");
        m_unstoppable = true;
      }
      return false;
    }
    const std::lock_guard lock(m_lock);
    if (const std::string wrong = m_killWatch.Look(); !wrong.empty()) {
      Wrong(wrong);
    }
  } while (sim::StepToNextWake(until - sim::NowMs()) || sim::NowMs() < until);
  return true;
}

void Walker::Leap(std::uint64_t milliseconds) {
  if (!m_unstoppable) {
    sim::LeapMs(milliseconds);
    Advance(1);
  }
}

/// Waits until the queue is empty, for as long as the connecting that may be in it can take.
void Walker::Drain() {
  for (int i = 0; i < 30 && !m_unstoppable; ++i) {
    if (!Advance(20) || life::Probe().OperatorIsIdle()) {
      return;
    }
    if (i % 6 == 5) {
      Leap(kConnectLimitMs);
    }
  }
  if (!m_unstoppable) {
    const std::lock_guard lock(m_lock);
    Wrong("the queue does not get empty");
  }
}

std::int32_t Walker::Open(platform::Window window, const wchar_t* param) {
  const std::int32_t id = OpenEditor(L"C:\\pics\\a.png", reinterpret_cast<VexelWindow>(window), 1, param);
  SetBrowserCallback(id, &Walker::OnEvent, this);
  m_earlyLosses += 2; // its first two events may come before the callback
  Drain();
  return id;
}

bool Walker::Close(std::int32_t id) {
  if (m_unstoppable) {
    return false;
  }
  // At INFO a close without a link ends the host, as its header tells, so its log is turned down for it.
  const bool linked = life::Probe().GetHelperByPid(PidOf(id)) != nullptr;
  const int level = vx::GetMinLogLevel();
  if (!linked) {
    vx::SetMinLogLevel(vx::LOG_WARNING);
  }
  const bool waits = CloseEditor(id, false);
  vx::SetMinLogLevel(level);
  Drain();
  if (!waits) {
    const std::lock_guard lock(m_lock);
    m_cleared.insert(id);
    m_everCleared.insert(id);
  }
  return waits;
}

void Walker::Send(Pid pid, const std::string& text) {
  if (pid != 0 && !m_unstoppable) {
    sim::SendEvent(pid, text);
    Advance(30);
  }
}

void Walker::End(Pid pid) {
  if (pid != 0 && !m_unstoppable) {
    {
      const std::lock_guard lock(m_lock);
      m_killWatch.EndsBySelf(pid, life::CreatedAt(pid));
    }
    sim::CrashProcess(pid);
    Advance(1);
  }
}

Pid Walker::PidOf(std::int32_t id) {
  const auto all = VexelSDKThread::GetInstance()->CopyIdToPid();
  const auto found = all.find(id);
  return found == all.end() ? 0 : found->second;
}

void Walker::BuildWorld() const {
  sim::StopAtFullMinute();
  sim::TakeTurns(true);
  sim::SetDword(platform::kHkeyLocalMachine, kLogKey, L"LogLevel", 1);
  sim::SetDword(platform::kHkeyLocalMachine, kSwitchKey, L"OpenPIC_enable", 1);
  sim::InstallEditors();
  sim::Program launcher;
  launcher.editor = sim::EditorScript();
  launcher.process.moduleRoute = false; // so that the other route is gone, too
  sim::InstallProgram(sim::kLauncherPath, launcher);
  sim::SetUserAdmin(true);
  sim::SetHostElevated(true);
  if (m_fault.operation == "SetEndOfFile") {
    // A log too large to go on with, which is cut.
    std::string log;
    log.resize(0xA00001, 'x');
    sim::AddFile(L"C:\\Host\\log\\browser.vexelsdk.dll.log", log);
  }
  // Others of the programs' names, listed before them, with a path that needs the environment.
  for (const wchar_t* const name : {L"webvexlaunch.exe", L"vxpixeleditor.exe"}) {
    sim::ProcessSpec other;
    other.path = std::wstring(L"C:\\Windows\\System32\\") + name;
    other.moduleText = std::wstring(L"\\SystemRoot\\System32\\") + name;
    other.pid = name[0] == L'w' ? 4040 : 4044;
    sim::StartProcess(other);
  }
}

bool Walker::FirstEngine() {
  if (!StartEngine()) {
    return false;
  }
  Drain();
  IsSupportPreview();
  GetSwitchValue("OpenPIC_enable");

  // Open, operate, edit, and a close that the user calls off.
  const platform::Window first = sim::MakeWindow();
  const std::int32_t id = Open(first);
  SetWindowsPos(id, 0, 0, 800, 600);
  FullScreen(id, true);
  OperatePic(id, 1);
  DoBrowserCommand(id, 1);
  ChangeThemeMode(true);
  Drain();
  Send(PidOf(id), R"({"type":"edit","status":true})");
  if (Close(id)) {
    Send(PidOf(id), R"({"type":"cancel_process_exit"})");
    Send(PidOf(id), R"({"type":"edit","status":false})");
  }

  // Another picture in place of the first.
  const Pid old = PidOf(id);
  if (const std::int32_t again = Open(first); again == id && PidOf(id) != old) {
    End(old);
  }

  // A close in good order.
  const platform::Window second = sim::MakeWindow();
  const std::int32_t closed = Open(second, kEditorParam);
  Send(PidOf(closed), R"({"type":"edit","status":true})");
  if (Close(closed)) {
    Send(PidOf(closed), R"({"type":"finish_operator"})");
    Send(PidOf(closed), "{\"type\":\"process_exit\",\"process_id\":" + std::to_string(PidOf(closed)) + "}");
  }
  End(PidOf(closed));

  // A crash. An administrator's look at the process would keep it in being and its end untold.
  sim::SetUserAdmin(false);
  const platform::Window third = sim::MakeWindow();
  const std::int32_t crashed = Open(third);
  End(PidOf(crashed));
  for (int i = 0; i < 6; ++i) {
    Leap(1100);
  }

  // An editor that nobody can connect to, which is ended.
  const platform::Window fourth = sim::MakeWindow();
  sim::EditorScript deaf;
  deaf.serves = false;
  for (const Pid pid : sim::RunningPids(sim::kEditorPath)) {
    if (pid != PidOf(id)) {
      sim::AttachEditor(pid, deaf);
    }
  }
  Open(fourth, kEditorParam);
  for (int i = 0; i < 4; ++i) {
    Leap(2600);
  }
  return !m_unstoppable;
}

bool Walker::SecondEngine() {
  sim::SetUserAdmin(true);
  if (!StartEngine()) {
    return false;
  }
  Drain();
  const std::int32_t id = Open(sim::MakeWindow());
  OperatePic(id, 2);
  Drain();
  Close(id);
  Drain();
  return !m_unstoppable;
}

void Walker::Teardown() {
  Advance(10);
  for (int i = 0; i < 60 && !m_unstoppable && sim::SomeoneWaitsFor(1000); ++i) {
    Advance(100);
  }
  if (m_unstoppable) {
    return;
  }
  for (const sim::StartedProgram& started : sim::StartedPrograms()) {
    if (life::Probe().GetHelperByPid(started.pid) != nullptr) {
      m_linked.insert(started.pid);
    }
  }
  // A process that is linked a second time lets its first link go, on purpose.
  const int links = sim::CallCount("PipeServer::Start") - sim::FaultsFired("PipeServer::Start");
  m_lostLinks += links - m_linksBefore - static_cast<int>(life::Probe().Links());
  m_linksBefore = links;
  m_signalsBefore = sim::CallCount("SetEvent");
  const int nth = m_fault.nth - m_signalsBefore;
  if (m_fault.operation == "SetEvent" && m_fault.nth > 0 && (m_fault.forever ? nth <= 2 : nth == 1 || nth == 2)) {
    m_unstoppable = true; // the stop signal of one of the watches, which is given once
    return;
  }
  const bool returned = life::UnInit();
  const std::lock_guard lock(m_lock);
  if (!returned) {
    Wrong("the teardown does not return");
    m_unstoppable = true;
  }
  for (const auto& [pid, successes] : m_successes) {
    if (m_linked.contains(pid) && successes > static_cast<int>(sim::ReceivedTexts(pid).size())) {
      Wrong("process " + std::to_string(pid) + " is said to have got more than it has");
    }
  }
  // In the next engine ids and links begin again.
  m_successes.clear();
  m_linked.clear();
  m_crashes.clear();
  m_cleared.clear();
}

void Walker::CheckRemains() {
  vx::ResetLogger({});
  const int unclosed = sim::FaultsFired("CloseHandle");
  // A look at a process's elevation keeps its two handles open on purpose.
  const int looks = sim::CallCount("OpenProcessToken");
  const int tokens = looks - sim::FaultsFired("OpenProcessToken");
  // Without its entry for that a server can't be given back, and its name stays taken.
  const bool serversStay = m_fault.operation == "GetProcAddress";
  const int kept = serversStay ? sim::CallCount("CreatePipeSvr") - sim::CallCount("ReleasePipeSvr") : 0;
  struct Kind {
    sim::HandleKind kind;
    const char* name;
    int meant;
    int excess;
    int missing = 0;
  };
  const Kind kinds[] = {{sim::HandleKind::kProcess, "process", looks, unclosed},
                        {sim::HandleKind::kThread, "thread", 0, unclosed},
                        {sim::HandleKind::kToken, "token", tokens, 0},
                        {sim::HandleKind::kSnapshot, "snapshot", 0, unclosed},
                        {sim::HandleKind::kFile, "file", 0, unclosed},
                        {sim::HandleKind::kMutex, "mutex", 0, unclosed},
                        {sim::HandleKind::kEvent, "event", m_lostLinks, unclosed, serversStay ? m_lostLinks : 0},
                        {sim::HandleKind::kRegistryKey, "registry", 0, sim::FaultsFired("RegCloseKey")}};
  for (const Kind& kind : kinds) {
    const int open = sim::OpenHandles(kind.kind);
    if (open < kind.meant - kind.missing || open > kind.meant + kind.excess) {
      Wrong(std::to_string(open) + " handles of the kind " + kind.name + " are open, and " +
            std::to_string(kind.meant) + " are meant to be");
    }
  }
  if (sim::BadCloses() != 0) {
    Wrong("something was closed that was no open handle");
  }
  if (sim::LiveServers() > kept || sim::OpenConnections() > m_lostLinks) {
    Wrong("a link was left behind");
  }
  for (const std::string& text : buffers::LiveTexts()) {
    const std::string type = life::TextOf(text, "type");
    const auto id = static_cast<std::int32_t>(life::NumberOf(text, "id").value_or(0));
    const bool deliberate = type == "process_exit" || type == "cancel_process_exit" || m_everCleared.contains(id) ||
                            life::TextOf(text, "param") == "open_pic_process_fail" ||
                            (type == "custom_message" && m_earlyLosses-- > 0);
    if (!deliberate) {
      Wrong("an event had a callback and was not told: " + text);
    }
  }
  buffers::DropLive();
}

/// Where a thread has lost its brake or its stop, the rest works on, and says nothing false. The threads that run on never
/// let the world rest, so time runs by itself here.
void Walker::WorkOn() {
  constexpr double kSpeed = 10;
  constexpr double kWatchSpeed = 1000;
  constexpr int kSeconds = 60;
  constexpr int kDrainSeconds = 30;
  constexpr char kPicture[] = "last.png";
  sim::TakeTurns(false);
  sim::SetClockSpeed(kSpeed);
  for (int i = 0; i < kDrainSeconds && !life::Probe().OperatorIsIdle(); ++i) {
    sim::AdvanceMs(kConnectLimitMs); // a connect that is under way is given up
    sim::WaitFor([] { return life::Probe().OperatorIsIdle(); }, 1);
  }
  const platform::Window window = sim::MakeWindow();
  const std::int32_t id = OpenEditor(L"C:\\pics\\last.png", reinterpret_cast<VexelWindow>(window), 1, nullptr);
  SetBrowserCallback(id, &Walker::OnEvent, this);
  Pid pid = 0;
  const bool reached = sim::WaitFor(
      [&] {
        for (const auto& [receiver, text] : sim::AllReceivedTexts()) {
          pid = text.text.find(kPicture) != std::string::npos ? receiver : pid;
        }
        return pid != 0 && life::Probe().OperatorIsIdle();
      },
      kSeconds);
  if (id <= 0 || !reached || pid != PidOf(id) || !sim::IsRunning(pid)) {
    const std::lock_guard lock(m_lock);
    Wrong("an open reaches no editor any more");
    return;
  }
  const bool operated = OperatePic(id, 7);
  if (!operated || IsClose(id) || !sim::WaitFor([pid] { return sim::ReceivedTexts(pid).size() >= 2; }, kSeconds)) {
    const std::lock_guard lock(m_lock);
    Wrong("an operation reaches its editor no more");
    return;
  }
  // The crash watch looks at it some times, with at least one snapshot in each pass.
  constexpr int kSnapshots = 12;
  sim::SetClockSpeed(kWatchSpeed);
  const int snapshots = sim::CallCount("CreateToolhelp32Snapshot") + kSnapshots;
  const bool watched = sim::WaitFor([=] { return sim::CallCount("CreateToolhelp32Snapshot") > snapshots; }, kSeconds);
  {
    const std::lock_guard lock(m_lock);
    if (!watched) {
      Wrong("nobody looks after the editors any more");
    } else if (m_crashes.contains({id, pid})) {
      Wrong("an editor that runs is said to have crashed");
    }
  }
  if (m_fault.operation != "SetEvent") {
    return;
  }
  // The stop that gets lost, counted from here again: all threads end but those that it was for.
  const int nth = std::max(1, m_fault.nth - m_signalsBefore);
  const int fired = sim::FaultsFired("SetEvent");
  sim::FailNth("SetEvent", nth, m_fault.forever ? sim::kForever : sim::kOnce);
  std::thread([] {
    sim::StandAside();
    VexelSDK_UnInit();
  }).detach();
  const int left = m_fault.forever && nth == 1 ? 2 : 1;
  if (!sim::WaitFor([=] { return sim::FaultsFired("SetEvent") > fired && sim::LiveThreads() == left; }, kSeconds)) {
    const std::lock_guard lock(m_lock);
    Wrong("a lost stop leaves " + std::to_string(sim::LiveThreads()) + " threads in place of " + std::to_string(left));
  }
}

std::string Walker::Run() {
  BuildWorld();
  if (m_fault.nth > 0) {
    sim::FailNth(m_fault.operation, m_fault.nth, m_fault.forever ? sim::kForever : sim::kOnce);
  }
  if (FirstEngine()) {
    const std::lock_guard lock(m_lock);
    if (m_fault.nth == 0 && (m_crashes.size() != 1 || m_killWatch.Kills() != 1 || m_successes.size() < 3)) {
      Wrong("the walk without a fault does not see what it is there for: crashes " + std::to_string(m_crashes.size()) +
            ", kills " + std::to_string(m_killWatch.Kills()) + ", editors " + std::to_string(m_successes.size()));
    }
  }
  Teardown();
  if (!m_unstoppable && SecondEngine()) {
    Teardown();
  }
  if (!m_unstoppable) {
    CheckRemains();
  } else if (!Forever("WaitForSingleObject") || m_fault.nth % kOneIn == 0) {
    WorkOn();
  }
  const std::lock_guard lock(m_lock);
  return m_wrong.empty() && m_unstoppable ? kUnstoppable : m_wrong;
}

} // namespace

std::string EntriesOfWalk() {
  const sim::World world;
  Walker walker({});
  const std::string wrong = walker.Run();
  std::string names;
  for (const std::string& name : sim::RequestedEntries()) {
    names += name + "\n";
  }
  return wrong.empty() ? names : wrong;
}

std::string Walk(const Fault& fault, bool* fired) {
  // Left behind when its threads can't be stopped.
  auto* const world = new sim::World;
  auto* const walker = new Walker(fault);
  std::string wrong = walker->Run();
  *fired = sim::FaultsFired() > 0;
  if (wrong.empty()) {
    delete walker;
    delete world;
  }
  return wrong;
}
