#include "platform/process.h"
#include "platform/sync.h"
#include "platform/window.h"
#include "public/vexelsdk/app_launch_table.h"
#include "public/vexelsdk/process_inventory.h"
#include "public/vexelsdk/vexelsdk_process_util.h"
#include "vexelsdk/engine/vexel_sdk_thread.h"

#include <utility>

namespace {

constexpr std::uint32_t kCrashPassMs = 2000;
constexpr std::uint32_t kCrashDoubtMs = 1000;
constexpr std::uint32_t kKillIdleMs = 5000;
constexpr std::uint32_t kKillBusyMs = 1000;

bool IsAlive(std::uint32_t pid) {
  return VexelSdkProcessUtil::IsPathRunning(VexelSdkProcessUtil::GetProcessPath(pid).c_str(), 1) != 0;
}

void EndProcess(const KillEntry& entry) {
  if (!VexelSdkProcessUtil::IsProcessValid(entry.m_pid, entry.m_path)) {
    return;
  }
  if (entry.m_createTime != 0 && VexelSdkProcessUtil::GetProcessCreateTime(entry.m_pid) != entry.m_createTime) {
    return; // the id has gone to another run of the same program
  }
  const platform::Handle process = platform::OpenProcess(platform::kProcessTerminate, entry.m_pid);
  if (process == nullptr) {
    return;
  }
  platform::TerminateProcess(process, 0);
  platform::CloseHandle(process);
}

} // namespace

void CrashWatchThreadFun() noexcept {
  std::shared_ptr<VexelSDKThread> engine;
  try {
    engine = VexelSDKThread::GetInstance();
  } catch (...) {
    return;
  }
  // Without an event the wait returns at once and the loop runs on: the wait is its only brake, on purpose.
  do {
    try {
      engine->WatchForCrashes();
    } catch (...) {
      // Out of memory: this pass is given up, the next one looks again.
    }
  } while (!engine->m_crashStopEvent.WaitFor(kCrashPassMs));
}

void VexelSDKThread::WatchForCrashes() {
  std::map<std::int32_t, std::uint32_t> processes;
  std::map<platform::Window, std::int32_t> windows;
  {
    const std::lock_guard lock(m_stateLock);
    processes = m_idToPid;
    windows = m_hwndToId;
  }
  for (const auto& [id, pid] : processes) {
    if (id == 0 || pid == 0 || IsAlive(pid) || !IsUnexpectedExit(id, pid)) {
      continue;
    }
    ReportCrash(id, pid, windows);
  }
}

void VexelSDKThread::ReportCrash(std::int32_t id, std::uint32_t pid,
                                 const std::map<platform::Window, std::int32_t>& windows) {
  for (const auto& [window, owner] : windows) {
    if (owner != id) {
      continue;
    }
    RemoveWindow(window); // first of all: it is what limits the report to one for each window
    if (!platform::IsWindow(window)) {
      continue;
    }
    // A stop that is signalled in this second is used up here and lost. Deliberate: StopThreads signals once, and the
    // outcome is not looked at.
    m_crashStopEvent.WaitFor(kCrashDoubtMs);
    if (!platform::IsWindow(window) || !IsUnexpectedExit(id, pid)) {
      continue;
    }
    const std::intptr_t style = platform::GetWindowLongPtrW(window, platform::kGwlExStyle);
    platform::SetWindowLongPtrW(window, platform::kGwlExStyle, style | platform::kWsExTransparent);
    SendBrowserMessage(id, pid, "run_error", "crash");
  }
}

void KillWatchThreadFun() noexcept {
  std::shared_ptr<VexelSDKThread> engine;
  try {
    engine = VexelSDKThread::GetInstance();
  } catch (...) {
    return;
  }
  std::uint32_t wait = kKillIdleMs;
  while (!engine->m_killStopEvent.WaitFor(wait)) {
    try {
      KillEntry entry;
      wait = engine->TakeKillEntry(entry) ? kKillBusyMs : kKillIdleMs;
      EndProcess(entry);
    } catch (...) {
      // Out of memory: the entry is lost, its process lives on.
    }
  }
}

bool VexelSDKThread::AddToKillList(std::uint32_t pid) {
  const std::lock_guard lock(m_stateLock);
  const AppLaunchInfo info = AppLaunchTable::Instance().GetLaunchInfo(m_pidToName[pid]);
  if (!VexelSdkProcessUtil::IsProcessValid(pid, info.m_path)) {
    return false; // gone, or never one of ours
  }
  m_killList[pid] = KillEntry{pid, VexelSdkProcessUtil::GetProcessCreateTime(pid), info.m_path};
  return true;
}

bool VexelSDKThread::TakeKillEntry(KillEntry& entry) {
  const std::lock_guard lock(m_stateLock);
  if (m_killList.empty()) {
    return false;
  }
  entry = std::move(m_killList.begin()->second);
  m_killList.erase(m_killList.begin());
  return true;
}
