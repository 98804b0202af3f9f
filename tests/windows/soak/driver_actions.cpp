// What the user of a window does.

#include "tests/windows/host/wire.h"
#include "tests/windows/sdk/text.h"
#include "tests/windows/soak/driver.h"

#include <gtest/gtest.h>

namespace soak {
namespace {

using namespace std::chrono_literals;
using sdktest::IsRunning;

constexpr auto kLookAgain = 1000ms;

} // namespace

void Driver::Open(Slot& slot) {
  if (slot.window == 0 || m_random() % 4 == 0) {
    if (slot.window != 0) {
      DestroyWindowOf(slot);
    }
    slot.window = m_host.Ask("window");
  }
  const std::wstring param = m_random() % 3 == 0 ? sdktest::Base64("/apptype:2") : L"";
  const std::int64_t id = m_host.Ask("open " + std::to_string(slot.window) + " " + wire::Encode(slot.picture) + " 0 " +
                                     wire::Encode(param) + " on");
  ++m_opens;
  if (id <= m_lastId) {
    Fail(nullptr, "the id " + std::to_string(id) + " was given out after " + std::to_string(m_lastId));
  }
  m_lastId = static_cast<std::int32_t>(id);
  slot.life = std::make_unique<Life>(m_lastId);
  slot.life->AddOpen();
  Go(slot, Step::kOpening, kLookAgain);
}

void Driver::Replace(Slot& slot) {
  const std::uint32_t old = slot.life->Pid();
  const std::int64_t id =
      m_host.Ask("open " + std::to_string(slot.window) + " " + wire::Encode(slot.picture) + " 0 @null on");
  ++m_opens;
  ++m_replaced;
  if (id != slot.life->Id()) {
    // The watch has let go of the window: this editor has come to its end, or the one before it has, which may yet be
    // told. The new id begins a life of its own.
    TakeEvents();
    const bool isFinished = Ask("isclose", slot.life->Id()) == 1;
    const bool livesOn = !isFinished && IsRunning(old);
    if (id <= m_lastId || (livesOn && slot.life->Opens() == 1)) {
      Fail(slot.life.get(), "a living window was given the new id " + std::to_string(id));
    }
    if (!HasEnded(slot) && livesOn) {
      Ask("close", slot.life->Id());
      EndLife(slot, End::kClosed);
    } else if (slot.life != nullptr) { // not told yet
      if (!isFinished && !slot.isUnwatched) {
        m_awaited[slot.life->Id()] = slot.window; // the crash is told now
      }
      EndLife(slot, isFinished ? End::kFailed : End::kReplacedLate);
    }
    m_lastId = static_cast<std::int32_t>(id);
    slot.life = std::make_unique<Life>(m_lastId);
  } else {
    Release(old, slot.life->Id(), false);
  }
  slot.life->AddOpen();
  Go(slot, Step::kOpening, kLookAgain);
}

void Driver::Close(Slot& slot) {
  const std::int32_t id = slot.life->Id();
  if (Ask("isclose", id) == 1) {
    TakeEvents();
    EndLife(slot, slot.life->Finishes() > 0 ? End::kFinished : End::kFailed);
    return;
  }
  const bool waits = Ask("close", id) == 1;
  TakeEvents();
  if (waits) {
    // An editor with unsaved changes asks its user, who answers as the editor has said.
    ++m_asked;
    Go(slot, Step::kWaitAnswer, 0ms);
    if (!slot.life->IsModified()) {
      Fail(slot.life.get(), "a close waits for changes that there are not");
    }
    return;
  }
  if (Ask("isclose", id) != 1) {
    Fail(slot.life.get(), "an id is not closed after its close");
  }
  EndLife(slot, slot.life->Finishes() > 0 ? End::kFinished : End::kClosed);
}

void Driver::CloseWithChanges(Slot& slot) {
  m_host.Ask("operate " + std::to_string(slot.life->Id()) + " 1");
  Go(slot, Step::kWaitEdit, kLookAgain);
}

void Driver::EndFromOutside(std::uint32_t pid) {
  ++m_terminated;
  m_endedFromOutside.insert(pid);
  sdktest::EndProgram(pid);
}

void Driver::DestroyWindowOf(Slot& slot) {
  m_host.Ask("destroywindow " + std::to_string(slot.window));
  // A window that has gone hears of no crash.
  std::erase_if(m_awaited, [&slot](const auto& each) { return each.second == slot.window; });
  slot.window = 0;
}

void Driver::Terminate(Slot& slot) {
  EndFromOutside(slot.life->Pid());
  Go(slot, Step::kWaitEnd, kLookAgain);
}

void Driver::Operate(Slot& slot) {
  const std::string id = std::to_string(slot.life->Id());
  switch (m_random() % 4) {
  case 0:
    m_host.Do("setpos " + id + " 1 2 300 200");
    break;
  case 1:
    m_host.Do("fullscreen " + id + " 0");
    break;
  case 2:
    m_host.Ask("command " + id + " 3");
    break;
  default:
    m_host.Ask("operate " + id + " 6");
  }
  Go(slot, Step::kOpen, Between(100, LongestPause()));
}

void Driver::EndWindow(Slot& slot) {
  DestroyWindowOf(slot);
  Go(slot, Step::kWaitEnd, kLookAgain);
}

void Driver::KillWaitingEditor() {
  std::set<std::uint32_t> busy = m_served;
  for (const sdktest::Program& program : sdktest::ProgramsUnder(m_folder.Path())) {
    if (program.name != L"testhost.exe" && !busy.contains(program.pid)) {
      EndFromOutside(program.pid);
      m_served.insert(program.pid);
      return;
    }
  }
}

void Driver::Act(Slot& slot) {
  if (slot.isUnwatched) {
    Close(slot);
    return;
  }
  const unsigned choice = m_random() % 100;
  if (choice < 28) {
    Close(slot);
  } else if (choice < 42 && !slot.life->Answer().empty()) {
    CloseWithChanges(slot);
  } else if (choice < 54) {
    Replace(slot);
  } else if (choice < 72) {
    Terminate(slot);
  } else if (choice < 78) {
    EndWindow(slot);
  } else {
    Operate(slot);
  }
}

} // namespace soak
