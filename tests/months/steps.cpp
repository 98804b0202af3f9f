#include "tests/months/driver.h"

#include "tests/sim/clock.h"
#include "tests/sim/faults.h"
#include "tests/sim/process.h"
#include "tests/sim/window.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>

namespace {

constexpr std::size_t kMostWindows = 1000;

// base64 of "/apptype:1", "/apptype:2", and of "/apptype:9", which no program has.
constexpr const wchar_t* kLauncherParam = L"L2FwcHR5cGU6MQ==";
constexpr const wchar_t* kEditorParam = L"L2FwcHR5cGU6Mg==";
constexpr const wchar_t* kNoProgramParam = L"L2FwcHR5cGU6OQ==";

VexelWindow HandleOf(platform::Window window) { return reinterpret_cast<VexelWindow>(window); }

} // namespace

// What the user, the editors and the machine do.

/// As many windows and editors as there may be.
void MonthsDriver::GatherCrowd() {
  while (m_windows.size() < kMostWindows) {
    m_windows.push_back(sim::MakeWindow(0x100));
  }
  m_figures.mostWindows = kMostWindows;
  for (std::size_t i = 0; i < kMostEditors && Wrong().empty(); ++i) {
    OpenPicture();
    Advance(40);
    LimitEditors();
  }
}

void MonthsDriver::OpenPicture() {
  platform::Window window = 0;
  if (m_windows.empty() || (m_windows.size() < kMostWindows && Chance(60))) {
    platform::Window value = 0;
    if (!m_goneWindows.empty() && Chance(20)) { // a value comes again
      value = m_goneWindows.back();
      m_goneWindows.pop_back();
    }
    window = sim::MakeWindow(0x100, 0, value);
    m_windows.push_back(window);
    m_figures.mostWindows = std::max(m_figures.mostWindows, m_windows.size());
  } else {
    window = Pick(m_windows);
  }
  constexpr const wchar_t* kParams[] = {nullptr, kLauncherParam, kEditorParam};
  const bool hasProgram = !Chance(2);
  const wchar_t* const param = hasProgram ? kParams[Draw(3)] : kNoProgramParam;

  const std::lock_guard lock(m_lock);
  const Id before = m_idOfWindow[window];
  const bool keeps =
      before > 0 && life::Probe().KnowsWindow(window) && !m_engine->IsFinished(before) && !m_engine->IsClosing(before);
  const int failedStarts = sim::FaultsFired("CreateProcessW"); // the record may be run before the call returns
  const Id id = OpenEditor(L"C:\\pics\\a.png", HandleOf(window), static_cast<std::int32_t>(m_nextNumber), param);
  if (keeps ? id != before : id != m_lastId + 1) {
    Fail("a window of the id " + std::to_string(before) + " got the id " + std::to_string(id) + " behind " +
         std::to_string(m_lastId));
  }
  if (!keeps) {
    m_lastId = id;
    m_idOfWindow[window] = id;
    m_ids[id].window = window;
    m_ids[id].early = 2;
  }
  if (m_ids[id].slot == nullptr || Chance(10)) {
    Register(id);
  }
  Record& record = Queued(SDK_OPEN, id, 0, static_cast<std::int64_t>(m_nextNumber));
  record.hasProgram = hasProgram;
  record.failedStarts = failedStarts;
  m_bindingsMoved = true;
  ++m_figures.opens;
}

void MonthsDriver::Operate() {
  const int times = Chance(10) ? 20 : 1 + static_cast<int>(Draw(3));
  for (int i = 0; i < times; ++i) {
    {
      const std::lock_guard lock(m_lock);
      const Id id = PickId();
      const bool finished = m_engine->IsFinished(id);
      const Pid pid = PidOf(id);
      const auto number = static_cast<std::int32_t>(m_nextNumber);
      switch (Draw(6)) {
      case 0:
        if (const bool full = Chance(50); FullScreen(id, full), !finished) {
          Queued(SDK_FULLSCREEN, id, pid, full ? 1 : 0);
        }
        break;
      case 1:
        if (SetWindowsPos(id, number, 0, 800, 600); !finished) {
          Queued(SDK_SETPOS, id, pid, number);
        }
        break;
      case 2: {
        if (!Chance(10)) {
          break;
        }
        const bool dark = Chance(50);
        const auto all = m_engine->CopyIdToPid();
        ChangeThemeMode(dark);
        for (const auto& [each, itsPid] : all) {
          if (!m_engine->IsFinished(each)) {
            Queued(SDK_CHANGE_THEME, each, itsPid, dark ? 2 : 1);
          }
        }
        break;
      }
      case 3:
        if (DoBrowserCommand(id, number) == finished) {
          Fail("a command on the id " + std::to_string(id) + " gave the wrong result");
        } else if (!finished) {
          Queued(SDK_BROWSER_COMMAND, id, pid, number);
        }
        break;
      default:
        if (OperatePic(id, number) == finished) {
          Fail("an operation on the id " + std::to_string(id) + " gave the wrong result");
        } else if (!finished) {
          Queued(SDK_OPERATE, id, pid, number);
        }
        break;
      }
    }
    Advance(0);
  }
}

void MonthsDriver::Close() {
  const std::lock_guard lock(m_lock);
  const Id id = PickId();
  const bool finished = m_engine->IsFinished(id);
  const bool closing = m_engine->IsClosing(id);
  const Pid pid = PidOf(id);
  const auto link = m_engine->CopyIdToPid().contains(id) ? life::Probe().GetHelperByPid(pid) : nullptr;
  const bool sends = link != nullptr && !link->IsConnecting();
  const bool asks = sends && link->IsModify();
  const bool all = Chance(50);
  const bool result = CloseEditor(id, all);
  if (result != (asks && !finished)) {
    Fail("a close of the id " + std::to_string(id) + " gave the wrong result");
  }
  if (finished) {
    return;
  }
  if (sends) {
    Queued(SDK_CLOSE, id, pid, all ? 1 : 0);
  }
  if (!asks) {
    Clear(id);
  }
  if (IsClose(id) != (closing || !asks)) {
    // A queued close may fail at once and finish the id.
    if (!m_engine->IsFinished(id)) {
      Fail("the id " + std::to_string(id) + " does not know whether it is closed");
    }
  }
}

void MonthsDriver::ChangeCallback() {
  const std::lock_guard lock(m_lock);
  const Id id = PickId();
  if (!m_ids.contains(id)) {
    return;
  }
  if (Chance(40)) {
    SetBrowserCallback(id, nullptr, nullptr);
    Clear(id);
  } else {
    Register(id);
  }
}

void MonthsDriver::EditorEvent() {
  const Pid pid = PickEditor();
  if (pid == 0) {
    return;
  }
  std::string text;
  {
    const std::lock_guard lock(m_lock);
    const std::uint64_t drawn = Draw(100);
    if (drawn < 30) {
      text = EventText(pid, "edit", drawn < 15 ? ",\"status\":true" : ",\"status\":false");
    } else if (drawn < 36) {
      text = EventText(pid, "finish_operator");
    } else if (drawn < 42) {
      text = EventText(pid, "cancel_process_exit");
    } else if (drawn < 45) {
      text = EventText(pid, "process_exit", ",\"process_id\":" + std::to_string(pid));
    } else if (drawn < 47) {
      text = EventText(pid, "process_exit");
    } else if (drawn < 50) {
      text = EventText(pid, "testserver");
    } else if (drawn < 53) {
      text = "neither JSON nor anything";
    } else {
      text = EventText(pid, "custom_message", ",\"param\":\"moved\"");
    }
  }
  sim::SendEvent(pid, text);
  if (Chance(5)) {
    for (int i = 0; i < 30; ++i) {
      std::string more;
      {
        const std::lock_guard lock(m_lock);
        more = EventText(pid, "custom_message", ",\"param\":\"many\"");
      }
      sim::SendEvent(pid, more);
    }
  }
}

void MonthsDriver::KillEditor() {
  if (const Pid pid = PickEditor(); pid != 0) {
    {
      const std::lock_guard lock(m_lock);
      Ends(pid);
    }
    sim::CrashProcess(pid);
  }
}

void MonthsDriver::EndEditorInOrder() {
  const Pid pid = PickEditor();
  if (pid == 0) {
    return;
  }
  std::string text;
  {
    const std::lock_guard lock(m_lock);
    text = EventText(pid, "process_exit", ",\"process_id\":" + std::to_string(pid));
  }
  sim::SendEvent(pid, text);
  Advance(50);
  if (sim::IsRunning(pid)) {
    const std::lock_guard lock(m_lock);
    Ends(pid);
    sim::EndProcess(pid);
  }
}

void MonthsDriver::ChangeMood() {
  if (const Pid pid = PickEditor(); pid != 0) {
    const std::lock_guard lock(m_lock);
    constexpr Mood kMoods[] = {Mood::kNormal, Mood::kNormal, Mood::kSilent, Mood::kNull, Mood::kDies};
    EditorOf(pid).mood = kMoods[Draw(std::size(kMoods))];
  }
}

void MonthsDriver::DropWindow() {
  if (m_windows.empty()) {
    return;
  }
  const std::size_t at = Draw(m_windows.size());
  sim::DestroyWindow(m_windows[at]);
  m_goneWindows.push_back(m_windows[at]);
  m_windows.erase(m_windows.begin() + static_cast<std::ptrdiff_t>(at));
}

/// A process that is to be ended goes by itself, and its id to another run of its program.
void MonthsDriver::ReuseListedPid() {
  const auto entries = life::Probe().KillEntries();
  if (entries.empty()) {
    return;
  }
  const KillEntry& entry = entries.begin()->second;
  if (const std::lock_guard lock(m_lock); sim::IsRunning(entry.m_pid)) {
    Ends(entry.m_pid);
    sim::EndProcess(entry.m_pid);
  }
  Advance(1000 + Draw(500)); // two runs that begin in the same second are not told apart
  if (!sim::IsRunning(entry.m_pid)) {
    sim::ProcessSpec spec;
    spec.path = entry.m_path;
    spec.pid = entry.m_pid;
    sim::StartProcess(spec);
    m_killWatch.BeganBySelf();
    ++m_figures.reusedPids;
  }
}

void MonthsDriver::TurnClock() {
  constexpr std::int64_t kDay = 864'000'000'000; // in steps of the wall clock
  switch (Draw(3)) {
  case 0:
    sim::SetUtc(134'129'382'450'000'000 + (static_cast<std::int64_t>(Draw(1400)) - 700) * kDay);
    break;
  case 1:
    sim::SetTimeZone((static_cast<int>(Draw(49)) - 24) * 30);
    break;
  default:
    sim::SetTickCount64(Chance(50) ? Draw(1'000'000) : 0xFFFFFF00u + Draw(1000));
    break;
  }
}

void MonthsDriver::ChangePrograms() {
  if (Chance(20)) {
    sim::FailNth("CreateProcessW", 1 + static_cast<int>(Draw(3)));
  } else {
    sim::InstallEditors(DrawScript());
  }
}

void MonthsDriver::PassTime() {
  const std::uint64_t drawn = Draw(100);
  if (drawn < 70) {
    Advance(10 + Draw(300));
  } else if (drawn < 88) {
    Advance(1000 + Draw(5000));
  } else {
    sim::LeapMs(60'000 + Draw(4 * 3'600'000)); // the machine sleeps
    Advance(1);
  }
}

void MonthsDriver::RestartEngine() {
  if (EndEngine()) {
    StartEngine();
  } else {
    std::fprintf(stderr, "%s\n", Wrong().c_str());
    std::_Exit(3);
  }
}
