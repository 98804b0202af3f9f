#include "tests/sim/window.h"

#include <map>

#include "tests/sim/core.h"
#include "tests/sim/world.h"

namespace sim {

using namespace internal;

namespace {

constexpr std::uint32_t kNoWindow = 1400;
constexpr std::uint32_t kNoIndex = 1413;

struct WindowRecord {
  std::uint32_t owner = 0;
  std::intptr_t exStyle = 0;
  bool alive = true;
  int looksLeft = -1; // -1: no limit
  std::uint32_t busyMs = 0;
};

struct Windows {
  std::map<platform::Window, WindowRecord> table;
  platform::Window next = 0x10010;
  std::condition_variable busy;
};

Windows& TheWindows() {
  static Windows& windows = *new Windows;
  return windows;
}

WindowRecord* FindAlive(platform::Window window) {
  const auto place = TheWindows().table.find(window);
  return place == TheWindows().table.end() || !place->second.alive ? nullptr : &place->second;
}

WindowRecord& Known(platform::Window window) {
  const auto place = TheWindows().table.find(window);
  if (place == TheWindows().table.end()) {
    Die("a test names a window that was never made");
  }
  return place->second;
}

} // namespace

namespace internal {

void ResetWindows() {
  TheWindows().table.clear();
  TheWindows().next = 0x10010;
}

void DestroyWindowsOf(std::uint32_t pid) {
  for (auto& [window, record] : TheWindows().table) {
    if (record.owner == pid) {
      record.alive = false;
    }
  }
}

} // namespace internal

platform::Window MakeWindow(std::intptr_t exStyle, std::uint32_t ownerPid, platform::Window value) {
  const Lock lock = TakeLock();
  if (FindAlive(value) != nullptr) {
    Die("a window with the value that a test asks for exists");
  }
  while (TheWindows().table.contains(TheWindows().next)) {
    TheWindows().next += 2;
  }
  const platform::Window window = value != 0 ? value : TheWindows().next;
  WindowRecord& record = TheWindows().table[window];
  record = WindowRecord();
  record.exStyle = exStyle;
  record.owner = ownerPid == 0 ? kHostPid : ownerPid;
  return window;
}

void DestroyWindow(platform::Window window) {
  const Lock lock = TakeLock();
  Known(window).alive = false;
}

void VanishAfterLooks(platform::Window window, int looks) {
  const Lock lock = TakeLock();
  WindowRecord& record = Known(window);
  record.looksLeft = looks;
  record.alive = record.alive && looks != 0;
}

std::intptr_t ExStyle(platform::Window window) {
  const Lock lock = TakeLock();
  return Known(window).exStyle;
}

void MakeBusy(platform::Window window, std::uint32_t milliseconds) {
  const Lock lock = TakeLock();
  Known(window).busyMs = milliseconds;
}

} // namespace sim

namespace platform {

using namespace sim::internal;

bool IsWindow(Window window) {
  Call call("IsWindow");
  if (call.Fails(sim::kNoWindow)) {
    return false;
  }
  sim::WindowRecord* record = sim::FindAlive(window);
  if (record == nullptr) {
    return Leave(sim::kNoWindow);
  }
  if (record->looksLeft > 0 && --record->looksLeft == 0) {
    record->alive = false;
  }
  return true;
}

std::intptr_t GetWindowLongPtrW(Window window, int index) {
  Call call("GetWindowLongPtrW");
  if (call.Fails(sim::kNoWindow)) {
    return 0;
  }
  const sim::WindowRecord* record = sim::FindAlive(window);
  if (record == nullptr || index != kGwlExStyle) {
    Leave(record == nullptr ? sim::kNoWindow : sim::kNoIndex);
    return 0;
  }
  return record->exStyle;
}

std::intptr_t SetWindowLongPtrW(Window window, int index, std::intptr_t value) {
  Call call("SetWindowLongPtrW");
  if (call.Fails(sim::kNoWindow)) {
    return 0;
  }
  sim::WindowRecord* record = sim::FindAlive(window);
  if (record != nullptr && record->busyMs != 0) {
    WaitUntil(call.GetLock(), sim::TheWindows().busy, DeadlineIn(record->busyMs),
              [&] { return sim::FindAlive(window) == nullptr; });
    record = sim::FindAlive(window);
  }
  if (record == nullptr || index != kGwlExStyle) {
    Leave(record == nullptr ? sim::kNoWindow : sim::kNoIndex);
    return 0;
  }
  const std::intptr_t before = record->exStyle;
  record->exStyle = value;
  return before;
}

} // namespace platform
