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
constexpr std::int32_t kIdsOfCrowd = 1500;

// base64 of "/apptype:1", "/apptype:2", and of "/apptype:9", which no program has.
constexpr const wchar_t* kLauncherParam = L"L2FwcHR5cGU6MQ==";
constexpr const wchar_t* kEditorParam = L"L2FwcHR5cGU6Mg==";
constexpr const wchar_t* kNoProgramParam = L"L2FwcHR5cGU6OQ==";

VexelWindow HandleOf(platform::Window window) { return reinterpret_cast<VexelWindow>(window); }

} // namespace

// What the user, the editors and the machine do.

/// As many windows and editors as there may be, each window with an id.
void MonthsDriver::GatherCrowd() {
  m_idLimit = kIdsOfCrowd;
  while (m_windows.size() < kMostWindows) {
    m_windows.push_back(sim::MakeWindow(0x100));
  }
  while (m_figures.mostWindows < kMostWindows && Wrong().empty()) {
    const auto bare = std::find_if(m_windows.begin(), m_windows.end(),
                                   [this](platform::Window each) { return !m_idOfWindow.contains(each); });
    OpenIn(*bare);
    Advance(40);
    if (sim::RunningPids().size() > kMostEditors) {
      EndEditorInOrder(); // a crash of each of them would keep the crash watch busy for long
    }
    LimitEditors();
  }
}

void MonthsDriver::OpenPicture() {
  if (m_windows.empty() || (m_windows.size() < kMostWindows && Chance(60))) {
    platform::Window value = 0;
    if (!m_goneWindows.empty() && Chance(20)) { // a value comes again
      value = m_goneWindows.back();
      m_goneWindows.pop_back();
    }
    m_windows.push_back(sim::MakeWindow(0x100, 0, value));
    OpenIn(m_windows.back());
  } else {
    OpenIn(Pick(m_windows));
  }
}

void MonthsDriver::OpenIn(platform::Window window) {
  constexpr const wchar_t* kParams[] = {nullptr, kLauncherParam, kEditorParam};
  const bool hasProgram = !Chance(2);
  const wchar_t* const param = hasProgram ? kParams[Draw(3)] : kNoProgramParam;

  const std::lock_guard lock(m_lock);
  const Id before = m_idOfWindow[window];
  const bool keeps = before > 0 && !IsFinished(before) && !m_account.IsClosing(before);
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
  }
  if (m_ids[id].slot == nullptr || Chance(10)) {
    Register(id);
  }
  Account::Record& record = Queued(SDK_OPEN, id, static_cast<std::int64_t>(m_nextNumber));
  record.hasProgram = hasProgram;
  record.failedStarts = failedStarts;
  if (!IsFinished(0)) {
    m_account.Queue({.op = SDK_PreLoadProcess});
  }
  m_figures.mostWindows = std::max(
      m_figures.mostWindows,
      static_cast<std::size_t>(std::count_if(m_windows.begin(), m_windows.end(),
                                             [this](platform::Window each) { return m_idOfWindow.contains(each); })));
  ++m_figures.opens;
}

void MonthsDriver::Operate() {
  const int times = Chance(10) ? 20 : 1 + static_cast<int>(Draw(3));
  for (int i = 0; i < times; ++i) {
    {
      const std::lock_guard lock(m_lock);
      const Id id = PickId();
      const bool finished = IsFinished(id);
      const auto number = static_cast<std::int32_t>(m_nextNumber);
      switch (Draw(6)) {
      case 0:
        if (const bool full = Chance(50); FullScreen(id, full), !finished) {
          Queued(SDK_FULLSCREEN, id, full ? 1 : 0);
        }
        break;
      case 1:
        if (SetWindowsPos(id, number, 0, 800, 600); !finished) {
          Queued(SDK_SETPOS, id, number);
        }
        break;
      case 2: {
        if (!Chance(10)) {
          break;
        }
        const bool dark = Chance(50);
        ChangeThemeMode(dark);
        const auto all = m_account.Pids();
        for (const auto& [each, pid] : all) {
          if (!IsFinished(each)) {
            Queued(SDK_CHANGE_THEME, each, dark ? 2 : 1);
          }
        }
        break;
      }
      case 3:
        if (DoBrowserCommand(id, number) == finished) {
          Fail("a command on the id " + std::to_string(id) + " gave the wrong result");
        } else if (!finished) {
          Queued(SDK_BROWSER_COMMAND, id, number);
        }
        break;
      default:
        if (OperatePic(id, number) == finished) {
          Fail("an operation on the id " + std::to_string(id) + " gave the wrong result");
        } else if (!finished) {
          Queued(SDK_OPERATE, id, number);
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
  const bool all = Chance(50);
  const bool finished = IsFinished(id);
  const bool result = CloseEditor(id, all);
  const Account::Close comes = m_account.HostCloses(id, finished);
  if (result != (comes == Account::Close::kAsks)) {
    Fail("a close of the id " + std::to_string(id) + " gave the wrong result");
  }
  if (comes == Account::Close::kRefused) {
    return;
  }
  if (comes == Account::Close::kAsks || comes == Account::Close::kSends) {
    Queued(SDK_CLOSE, id, all ? 1 : 0);
  }
  if (comes != Account::Close::kAsks) {
    Clear(id);
  }
  if (IsClose(id) != (m_account.IsClosing(id) || IsFinished(id))) {
    Fail("the id " + std::to_string(id) + " does not know whether it is closed");
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
      text = EventText(pid, "nothing") + " and no JSON any more";
      m_said[m_nextEvent - 1] = text;
    } else {
      text = EventText(pid, "custom_message", ",\"param\":\"moved\"");
    }
  }
  sim::SendEvent(pid, text);
  if (Chance(3)) {
    sim::SendEvent(pid, text); // a direct repeat is dropped
  }
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
  const KillEntry& entry = entries.rbegin()->second; // the one whose turn comes last
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
    ++m_figures.reusedListed;
  }
}

void MonthsDriver::TurnClock() {
  constexpr std::int64_t kDay = 864'000'000'000; // in steps of the wall clock
  ++m_figures.clockTurns;
  {
    const std::lock_guard lock(m_lock);
    m_account.Leaps();
  }
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
    {
      const std::lock_guard lock(m_lock);
      m_account.Leaps();
    }
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
