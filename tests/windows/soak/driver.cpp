#include "tests/windows/soak/driver.h"

#include "tests/windows/host/wire.h"
#include "tests/windows/sdk/text.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <iostream>
#include <utility>

namespace soak {
namespace {

using namespace std::chrono_literals;
using sdktest::Contains;
using sdktest::IsRunning;
using sdktest::NumberAfter;

/// So long without an id that opens or ends: a connect is given up after 100 s, an exchange after half a minute.
constexpr auto kStandstill = 600s;
constexpr auto kLookAgain = 1000ms;
constexpr auto kSweepPause = 400ms;
/// Long enough that a crash which is going to be told has been told.
constexpr auto kSilence = 45s;
constexpr auto kLeaveLimit = 180s;
/// Longer than the crash watch doubts: a stop that falls into its second of doubt is lost, and the teardown never ends.
constexpr auto kDoubt = 5s;
/// A close lets through the calls that are under way, and seldom is there one.
constexpr int kEventsBehindCloses = 3;
constexpr int kClosesForOneEvent = 10;
constexpr std::size_t kPrograms = 2; // one process of each waits
constexpr std::int64_t kTransparent = WS_EX_TRANSPARENT;

/// Whether `text` holds `word`, and no letter or digit on either side of it.
bool HasWord(const std::string& text, const std::string& word) {
  for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) {
    const std::size_t end = at + word.size();
    if ((at == 0 || std::isalnum(static_cast<unsigned char>(text[at - 1])) == 0) &&
        (end == text.size() || std::isalnum(static_cast<unsigned char>(text[end])) == 0)) {
      return true;
    }
  }
  return false;
}

} // namespace

Driver::Driver(sdktest::HostProcess& host, sdktest::TestFolder& folder, const Plan& plan)
    : m_host(host), m_folder(folder), m_plan(plan), m_random(plan.seed), m_slots(plan.windows),
      m_nextSweep(Clock::now()), m_lastProgress(Clock::now()) {
  for (std::size_t i = 0; i < m_slots.size(); ++i) {
    m_slots[i].picture = folder.Path() + L"picture-" + std::to_wstring(i) + L".bmp";
    sdktest::WriteFileBytes(m_slots[i].picture, sdktest::SmallPicture());
  }
}

Driver::~Driver() = default;

std::chrono::milliseconds Driver::Between(int least, int most) {
  return std::chrono::milliseconds(least + static_cast<int>(m_random() % static_cast<unsigned>(most - least + 1)));
}

void Driver::Go(Slot& slot, Step step, std::chrono::milliseconds pause) {
  slot.step = step;
  slot.since = Clock::now();
  slot.due = slot.since + pause;
}

std::int64_t Driver::Ask(const std::string& command, std::int32_t id) {
  return m_host.Ask(command + " " + std::to_string(id));
}

void Driver::Fail(const Life* life, const std::string& what) {
  std::string more;
  if (life != nullptr) {
    more = life->History();
    const std::string id = "m_id=" + std::to_string(life->Id());
    const std::string pid = std::to_string(life->Pid());
    for (const std::string& line : m_folder.Log()) {
      if (HasWord(line, id) || HasWord(line, pid)) {
        more += "\n    " + line;
      }
    }
  }
  ADD_FAILURE() << what << " (seed " << m_plan.seed << ")\n" << more;
}

void Driver::SetKind(const EditorKind& kind) {
  m_host.Do("setenv VEXEL_EDITOR_ZOO " + wire::Encode(sdktest::Wide(kind.silentZoo)));
  m_host.Do("setenv VEXEL_EDITOR_ANSWER " + wire::Encode(sdktest::Wide(kind.answer)));
  m_host.Do("setenv VEXEL_EDITOR_ZOO " + wire::Encode(sdktest::Wide(kind.zoo)));
}

std::size_t Driver::CountSlots(Step step) const {
  return static_cast<std::size_t>(
      std::count_if(m_slots.begin(), m_slots.end(), [step](const Slot& slot) { return slot.step == step; }));
}

// ------------------------------------------------------------------------------------------------------- the events

void Driver::TakeEvents() {
  const std::vector<sdktest::Event> events = m_host.EventsFrom(m_eventsTaken);
  m_eventsTaken += events.size();
  for (const sdktest::Event& event : events) {
    Life* life = nullptr;
    for (const Slot& slot : m_slots) {
      if (slot.life != nullptr && slot.life->Id() == event.id) {
        life = slot.life.get();
      }
    }
    if (const auto past = m_past.find(event.id); life == nullptr && past != m_past.end()) {
      life = past->second.get();
    }
    if (life == nullptr) {
      Fail(nullptr, "an event for an id that was never given out: " + event.text);
      continue;
    }
    const int before = life->Started();
    const bool wasOpen = life->IsOpen();
    if (const std::string wrong = life->Take(event); !wrong.empty()) {
      Fail(life, wrong + ": " + event.text);
    }
    if (life->Started() > before || life->IsOpen() != wasOpen) {
      m_lastProgress = Clock::now();
    }
    if (life->Started() > before && !m_served.insert(life->Pid()).second) {
      ++m_reusedPids;
      for (Slot& slot : m_slots) {
        // What was on record for the process that had the id before counts for this one, too.
        slot.isUnwatched = slot.isUnwatched || slot.life.get() == life;
      }
    }
  }
}

bool Driver::HasEnded(Slot& slot) {
  Life& life = *slot.life;
  if (life.Finishes() > 0) {
    EndLife(slot, End::kFinished);
    return true;
  }
  if (life.Crashes() > 0 && !slot.isUnwatched) {
    if (life.Started() < life.Opens() || life.CrashedPid() != life.Pid()) {
      slot.isUnwatched = true; // it was the editor before this one, and a window's crash is told once
      return false;
    }
    if (slot.window != 0 && (m_host.Ask("exstyle " + std::to_string(slot.window)) & kTransparent) == 0) {
      Fail(&life, "a crash that did not mark its window");
    }
    EndLife(slot, End::kCrashed);
    return true;
  }
  return false;
}

void Driver::EndLife(Slot& slot, End how) {
  Life& life = *slot.life;
  if (how == End::kFailed && life.IsCalm() && life.IsOpen() && !m_endedFromOutside.contains(life.Pid())) {
    Fail(&life, "a sound editor that nobody ended is given up without a word");
  }
  if (how == End::kSilent) {
    Ask("close", life.Id()); // for the engine it lives, and its window would keep it
  }
  life.Finish(how);
  ++m_ends[NameOf(how)];
  ++m_cycles;
  m_lastProgress = Clock::now();
  if (how != End::kCrashed && how != End::kReplacedLate && life.Pid() != 0) {
    Release(life.Pid(), life.Id(), !life.IsOpen());
  }
  const std::int32_t id = life.Id();
  m_past[id] = std::move(slot.life);
  slot.isUnwatched = false;
  Go(slot, Step::kAway, Between(0, 300));
}

void Driver::Release(std::uint32_t pid, std::int32_t id, bool mayStay) {
  m_leaving.push_back({pid, id, mayStay, std::make_unique<sdktest::ProgramHandle>(pid)});
}

// ---------------------------------------------------------------------------------------------------- what comes next

void Driver::LookAtOpening(Slot& slot) {
  Life& life = *slot.life;
  if (HasEnded(slot)) {
    return;
  }
  if (life.IsOpen()) {
    Go(slot, Step::kOpen, Between(0, LongestPause()));
    return;
  }
  if (!IsPast(slot.due)) {
    return;
  }
  slot.due = Clock::now() + kLookAgain;
  if (Ask("isclose", life.Id()) == 1) {
    TakeEvents();
    EndLife(slot, life.Finishes() > 0 ? End::kFinished : End::kFailed);
    return;
  }
  // It has a process and goes no further: the editor hangs or does not serve. Its user loses patience.
  if (life.Started() == life.Opens() && !life.IsOpen() && IsRunning(life.Pid()) && m_random() % 2 == 0) {
    if (m_random() % 10 == 0) {
      Close(slot); // should it hang, all others wait until its exchange is given up
    } else {
      EndFromOutside(life.Pid());
    }
  }
}

void Driver::LookAtWaiting(Slot& slot) {
  if (HasEnded(slot)) {
    return;
  }
  Life& life = *slot.life;
  if (slot.step == Step::kWaitEdit && life.IsModified()) {
    Close(slot);
    return;
  }
  if (slot.step == Step::kWaitAnswer && life.Answer() == "cancel") {
    // Nothing tells of a cancelled close. What the editor says after it comes after it.
    m_host.Ask("operate " + std::to_string(life.Id()) + " 7");
    Go(slot, Step::kWaitCancelled, kLookAgain);
    return;
  }
  if (slot.step == Step::kWaitCancelled && !life.IsModified()) {
    Go(slot, Step::kOpen, Between(0, 1000));
    return;
  }
  if (!IsPast(slot.due)) {
    return;
  }
  slot.due = Clock::now() + kLookAgain;
  if (Ask("isclose", life.Id()) == 1) {
    TakeEvents();
    EndLife(slot, life.Finishes() > 0 ? End::kFinished : End::kFailed);
    return;
  }
  const bool hasNoReport =
      slot.isUnwatched || slot.step == Step::kWaitAnswer || slot.step == Step::kWaitCancelled || slot.window == 0;
  if (hasNoReport && IsPast(slot.since + kSilence) && !IsRunning(life.Pid())) {
    EndLife(slot, End::kSilent);
  }
}

void Driver::Look(Slot& slot) {
  switch (slot.step) {
  case Step::kAway:
    if (IsPast(slot.due) && !m_isEnding) {
      SetKind(RandomEditor(m_random));
      Open(slot);
    }
    return;
  case Step::kOpening:
    LookAtOpening(slot);
    return;
  case Step::kOpen:
    if (HasEnded(slot)) {
      return;
    }
    if (m_isEnding) {
      Close(slot);
    } else if (IsPast(slot.due)) {
      Act(slot);
    }
    return;
  default:
    LookAtWaiting(slot);
  }
}

void Driver::Sweep() {
  if (!IsPast(m_nextSweep)) {
    return;
  }
  const Clock::time_point begin = Clock::now();
  m_host.Ask("reap");
  std::erase_if(m_leaving, [](const Leaving& leaving) { return leaving.handle->HasEnded(); });
  // The more handles there are, the longer it takes; it is not to be what keeps the host busy.
  const Clock::time_point now = Clock::now();
  m_nextSweep = now + std::max<Clock::duration>(kSweepPause, (now - begin) * 5);
}

void Driver::Pass() {
  TakeEvents();
  for (Slot& slot : m_slots) {
    Look(slot);
  }
  Sweep();
  // One window may wait long for the others: the engine serves them one after the other.
  if (IsPast(m_lastProgress + kStandstill)) {
    for (const Slot& slot : m_slots) {
      if (slot.life != nullptr) {
        Fail(slot.life.get(), "nothing moves; the step is " + std::to_string(static_cast<int>(slot.step)));
      }
    }
  }
  Sleep(5);
}

bool Driver::OpenAll() {
  SetKind(CalmEditor());
  for (Slot& slot : m_slots) {
    Open(slot);
  }
  while (!HasFailed() && CountSlots(Step::kOpening) > 0) {
    TakeEvents();
    for (Slot& slot : m_slots) {
      if (slot.step == Step::kOpening && slot.life->IsOpen()) {
        Go(slot, Step::kOpen, Between(0, LongestPause()));
      }
    }
    if (IsPast(m_lastProgress + kStandstill)) {
      Fail(nullptr, "the windows do not open");
    }
    Sleep(5);
  }
  m_peak = sdktest::ProgramsUnder(m_folder.Path()).size() - 1; // the host is none
  return !HasFailed() && CountSlots(Step::kOpen) == m_slots.size();
}

void Driver::Run() {
  const Clock::time_point end = Clock::now() + m_plan.time;
  Clock::time_point nextKill = Clock::now() + 2s;
  int quarter = 0;
  while (!HasFailed() && (m_cycles < m_plan.cycles || !IsPast(end))) {
    Pass();
    if (IsPast(nextKill)) {
      KillWaitingEditor();
      nextKill = Clock::now() + Between(3000, 12000);
    }
    if (m_cycles >= (quarter + 1) * m_plan.cycles / 4 && quarter < 4) {
      ++quarter;
      m_marks.push_back({static_cast<std::int64_t>(m_served.size()), m_cycles, AskUsage(m_host)});
      std::cout << "soak: after " << m_cycles << " cycles and " << m_served.size()
                << " processes: " << Describe(m_marks.back().usage) << std::endl;
    }
  }
  m_isEnding = true;
  SetKind(CalmEditor());
  while (!HasFailed() && CountSlots(Step::kAway) < m_slots.size()) {
    Pass();
  }
  // With all ids at their end no doubt begins any more.
  const Clock::time_point calm = Clock::now() + kDoubt;
  while (!HasFailed() && !IsPast(calm)) {
    Pass();
  }
}

void Driver::CheckLeftBehind() {
  const Clock::time_point end = Clock::now() + kLeaveLimit;
  const auto isOwed = [](const Leaving& leaving) { return !leaving.mayStay; };
  while (!IsPast(end) && std::any_of(m_leaving.begin(), m_leaving.end(), isOwed)) {
    TakeEvents();
    Sweep();
    Sleep(20);
  }
  // Told by the log whether the link was connected: then a failed send leaves the process alone.
  const std::vector<std::string> connected = m_folder.LogWith("ConnectServer success. duration=");
  std::set<std::uint32_t> isConnected;
  for (const std::string& line : connected) {
    isConnected.insert(static_cast<std::uint32_t>(NumberAfter(line, "pid=")));
  }
  const auto isExcused = [&](const Leaving& leaving) { return leaving.mayStay && isConnected.contains(leaving.pid); };
  while (!IsPast(end) && !std::all_of(m_leaving.begin(), m_leaving.end(), isExcused)) {
    Sweep();
    Sleep(20);
  }
  std::set<std::uint32_t> left;
  for (const Leaving& leaving : m_leaving) {
    left.insert(leaving.pid);
    ++m_leftAlone;
    if (!isExcused(leaving)) {
      const auto past = m_past.find(leaving.id);
      Fail(past == m_past.end() ? nullptr : past->second.get(),
           "the process " + std::to_string(leaving.pid) + " is left behind");
    }
  }
  // Some that serve nobody are still on their way out: ended from outside, or on the list of those to be ended.
  const auto isNobodys = [this](std::uint32_t pid) {
    return m_folder.LogWith("done. pid=" + std::to_string(pid)).empty();
  };
  std::vector<std::uint32_t> waiting = ProgramsBut(left);
  while (!IsPast(end) && (waiting.size() > kPrograms || std::any_of(waiting.begin(), waiting.end(), isNobodys))) {
    Sweep();
    Sleep(100);
    waiting = ProgramsBut(left);
  }
  for (const std::uint32_t pid : waiting) {
    if (isNobodys(pid)) {
      Fail(LastLifeOf(pid), "a process of nobody's: " + std::to_string(pid));
    } else if (waiting.size() > kPrograms) {
      Fail(LastLifeOf(pid), std::to_string(waiting.size()) + " processes wait, and there are two programs; one is " +
                                std::to_string(pid));
    }
  }
}

/// All processes of the viewers and editors but these.
std::vector<std::uint32_t> Driver::ProgramsBut(const std::set<std::uint32_t>& these) const {
  std::vector<std::uint32_t> pids;
  for (const sdktest::Program& program : sdktest::ProgramsUnder(m_folder.Path())) {
    if (program.name != L"testhost.exe" && !these.contains(program.pid)) {
      pids.push_back(program.pid);
    }
  }
  return pids;
}

const Life* Driver::LastLifeOf(std::uint32_t pid) const {
  const Life* last = nullptr;
  for (const auto& [id, life] : m_past) {
    last = life->Pid() == pid ? life.get() : last;
  }
  return last;
}

void Driver::CheckReports() {
  const Clock::time_point end = Clock::now() + kSilence;
  const auto isTold = [this](const auto& each) {
    const Life& life = *m_past.at(each.first);
    // An operation that was on its way to the dead editor may finish the id without a word before the watch tells.
    return life.Crashes() == 1 || life.Finishes() > 0 || Ask("isclose", each.first) == 1;
  };
  while (!IsPast(end) && !std::all_of(m_awaited.begin(), m_awaited.end(), isTold)) {
    TakeEvents();
    Sleep(20);
  }
  for (const auto& each : m_awaited) {
    if (!isTold(each)) {
      Fail(m_past.at(each.first).get(), "the crash of an editor that was replaced late is not told");
    }
  }
  int behind = 0;
  int closes = 0;
  for (const auto& [id, life] : m_past) {
    behind += life->EventsAfterClose();
    closes += life->HowEnded() == End::kClosed ? 1 : 0;
  }
  std::cout << "soak: " << behind << " events after " << closes << " plain closes" << std::endl;
  if (behind > kEventsBehindCloses + closes / kClosesForOneEvent) {
    Fail(nullptr, std::to_string(behind) + " events came after plain closes");
  }
}

std::string Driver::Summary() const {
  std::string text = "soak: seed " + std::to_string(m_plan.seed) + ", " + std::to_string(m_slots.size()) +
                     " windows, " + std::to_string(m_peak) + " editors at once, " + std::to_string(m_cycles) +
                     " cycles, " + std::to_string(m_opens) + " opens, " + std::to_string(m_replaced) + " replaced, " +
                     std::to_string(m_served.size()) + " processes, " + std::to_string(m_terminated) +
                     " terminated from outside, " + std::to_string(m_asked) + " closes asked, " +
                     std::to_string(m_eventsTaken) + " events, " + std::to_string(m_reusedPids) +
                     " process ids seen again, " + std::to_string(m_leftAlone) + " left alone by the rules; ended:";
  for (const auto& [name, count] : m_ends) {
    text += " " + std::to_string(count) + " " + name;
  }
  return text;
}

} // namespace soak
