#include "platform/module.h"
#include "platform/sync.h"
#include "vexelsdk/engine/vexel_sdk_thread.h"

#include <algorithm>

namespace {

constexpr std::uint32_t kNotSeen = 0xFFFFFFFF; // in m_pidsByNumber: the map knows

std::mutex& InstanceLock() {
  static std::mutex lock;
  return lock;
}

/// The kept pointer. It outlives every destructor of the process: a host that ends without a teardown must not have
/// its exit wait for threads that the system has already ended.
std::shared_ptr<VexelSDKThread>& KeptInstance() {
  static auto* const kept = new std::shared_ptr<VexelSDKThread>;
  return *kept;
}

/// Null when the system has no thread to give: the engine then lives without that service.
std::unique_ptr<std::thread> StartThread(void (*body)() noexcept) {
  try {
    return std::make_unique<std::thread>(body);
  } catch (...) {
    return nullptr;
  }
}

std::thread::id IdOf(const std::unique_ptr<std::thread>& thread) {
  return thread == nullptr ? std::thread::id() : thread->get_id();
}

void JoinAndDelete(std::unique_ptr<std::thread>& thread) {
  if (thread != nullptr && thread->joinable()) {
    thread->join();
  }
  thread.reset();
}

/// One reference to the library for as long as an engine lives, so that a host that unloads it without a teardown does
/// not take the code away from under the engine's threads.
void HoldLibrary() noexcept { platform::ReferenceModuleOfAddress(reinterpret_cast<const void*>(&HoldLibrary)); }

void ReleaseLibrary() noexcept {
  platform::FreeLibrary(platform::GetModuleHandleOfAddress(reinterpret_cast<const void*>(&HoldLibrary)));
}

} // namespace

std::shared_ptr<VexelSDKThread> VexelSDKThread::GetInstance() {
  const std::lock_guard lock(InstanceLock());
  std::shared_ptr<VexelSDKThread>& kept = KeptInstance();
  if (kept == nullptr) {
    // Whatever can throw comes before the first thread: from there on the engine stands.
    kept.reset(new VexelSDKThread);
    HoldLibrary();
    kept->StartThreads();
  }
  return kept;
}

void VexelSDKThread::DestroyInstance(std::shared_ptr<VexelSDKThread> engine) {
  if (engine == nullptr) {
    return;
  }
  const auto& own = engine->m_threadIds;
  if (std::find(own.begin(), own.end(), std::this_thread::get_id()) != own.end()) {
    // A callback asked for the teardown. The reference to the library stays for the code of the thread that does it.
    HoldLibrary();
    std::thread([engine] { DestroyInstance(engine); }).detach();
    return;
  }
  engine->StopThreads();
  bool forgotten = false;
  {
    const std::lock_guard lock(InstanceLock());
    if (KeptInstance() == engine) {
      KeptInstance().reset();
      forgotten = true;
    }
  }
  engine.reset();
  if (forgotten) {
    ReleaseLibrary();
  }
}

VexelSDKThread::VexelSDKThread() {
  m_crashStopEvent.Attach(platform::CreateEventW(false, false));
  m_killStopEvent.Attach(platform::CreateEventW(false, false));
}

void VexelSDKThread::StartThreads() noexcept {
  m_msgThread = StartThread(MsgThreadFun);
  m_operatorThread = StartThread(OperatorThreadFun);
  m_crashThread = StartThread(CrashWatchThreadFun);
  m_killThread = StartThread(KillWatchThreadFun);
  m_threadIds = {IdOf(m_msgThread), IdOf(m_operatorThread), IdOf(m_crashThread), IdOf(m_killThread)};
}

VexelSDKThread::~VexelSDKThread() { StopThreads(); }

void VexelSDKThread::StopThreads() {
  std::call_once(m_stopped, [this] {
    {
      // The operator thread either sees the stop with its look at the queue, or it has said before that it will wait.
      const std::lock_guard lock(m_stateLock);
      m_stop.store(true, std::memory_order_release);
      m_operatorIdle.store(0, std::memory_order_relaxed);
    }
    m_crashStopEvent.Set();
    m_killStopEvent.Set();
    platform::WakeByAddressSingle(&m_operatorIdle);
    JoinAndDelete(m_msgThread);
    JoinAndDelete(m_operatorThread); // drains the queue first
    JoinAndDelete(m_crashThread);
    JoinAndDelete(m_killThread);
    std::map<std::uint32_t, std::shared_ptr<VexelSDKHelper>> helpers;
    {
      const std::lock_guard lock(m_helperLock);
      helpers.swap(m_helpers);
    }
    // The links end here, outside the lock: giving a server back waits for the pipe library's threads. A host thread
    // that is inside a link at this moment holds it for that moment longer.
  });
}

/// An id that was given out is found by its number, without a walk through the map, so that the gate costs the same with
/// many windows. The first look at an id is the map's, which gets its entry by it.
std::uint32_t VexelSDKThread::GetPidByIdLocked(std::int32_t id) {
  if (id <= 0 || id > m_lastId) {
    return m_idToPid[id];
  }
  const auto at = static_cast<std::size_t>(id);
  if (at >= m_pidsByNumber.size()) {
    m_pidsByNumber.resize(at + 1, kNotSeen);
  }
  std::uint32_t& pid = m_pidsByNumber[at];
  if (pid == kNotSeen) {
    pid = m_idToPid[id];
  }
  return pid;
}

std::uint32_t VexelSDKThread::GetPidById(std::int32_t id) {
  const std::lock_guard lock(m_stateLock);
  return GetPidByIdLocked(id);
}

bool VexelSDKThread::BindIdToPid(std::int32_t id, std::uint32_t pid) {
  const std::lock_guard lock(m_stateLock);
  if (m_finishedIds.contains(id)) {
    return false;
  }
  m_idToPid[id] = pid;
  if (id > 0 && static_cast<std::size_t>(id) < m_pidsByNumber.size()) {
    m_pidsByNumber[static_cast<std::size_t>(id)] = pid; // before anything else that may fail: the two never differ
  }
  m_pidToId[pid] = id;
  return true;
}

std::shared_ptr<VexelSDKHelper> VexelSDKThread::GetHelperByPid(std::uint32_t pid) {
  const std::lock_guard lock(m_helperLock);
  const auto found = m_helpers.find(pid);
  return found == m_helpers.end() ? nullptr : found->second;
}

std::shared_ptr<VexelSDKHelper> VexelSDKThread::GetHelperOfOperator(const SDK_OperatorData& record) {
  std::uint32_t pid = 0;
  {
    const std::lock_guard lock(m_stateLock);
    const auto found = m_idToPid.find(record.m_id);
    if (found == m_idToPid.end()) {
      return nullptr;
    }
    pid = found->second;
  }
  return GetHelperByPid(pid);
}

std::int32_t VexelSDKThread::AllocateEditorId(platform::Window tabwnd) {
  const std::lock_guard lock(m_stateLock);
  std::int32_t& id = m_hwndToId[tabwnd];
  if (id > 0 && !m_finishedIds.contains(id) && !IsClosing(id)) {
    return id;
  }
  id = ++m_lastId;
  return id;
}

void VexelSDKThread::SetFinished(std::int32_t id) {
  const std::lock_guard lock(m_stateLock);
  m_finishedIds.insert(id);
}

bool VexelSDKThread::IsFinished(std::int32_t id) {
  const std::lock_guard lock(m_stateLock);
  return m_finishedIds.contains(id);
}

void VexelSDKThread::SetClosing(std::int32_t id) {
  const std::lock_guard lock(m_closeLock);
  m_closingIds.insert(id);
}

bool VexelSDKThread::IsClosing(std::int32_t id) {
  const std::lock_guard lock(m_closeLock);
  return m_closingIds.contains(id);
}

void VexelSDKThread::SetModifyClose(std::int32_t id) {
  const std::lock_guard lock(m_closeLock);
  m_modifyCloseIds.insert(id);
}

void VexelSDKThread::ClearModifyClose(std::int32_t id) {
  const std::lock_guard lock(m_closeLock);
  m_modifyCloseIds.erase(id);
}

bool VexelSDKThread::IsModifyClose(std::int32_t id) {
  const std::lock_guard lock(m_closeLock);
  return m_modifyCloseIds.contains(id);
}

void VexelSDKThread::SetExited(std::uint32_t pid) {
  const std::lock_guard lock(m_exitLock);
  m_exitedPids.insert(pid);
}

bool VexelSDKThread::IsExited(std::uint32_t pid) {
  const std::lock_guard lock(m_exitLock);
  return m_exitedPids.contains(pid);
}

bool VexelSDKThread::IsUnexpectedExit(std::int32_t id, std::uint32_t pid) {
  return !IsClosing(id) && !IsFinished(id) && !IsModifyClose(id) && !IsExited(pid);
}

bool VexelSDKThread::RemoveWindow(platform::Window hwnd) {
  const std::lock_guard lock(m_stateLock);
  m_hwndToId.erase(hwnd);
  return true;
}

void VexelSDKThread::SetCallback(std::int32_t id, BrowserCallback callback, void* data) {
  const std::lock_guard lock(m_helperLock);
  m_callbacks[id] = callback;
  m_callbackData[id] = data;
}

std::map<std::int32_t, std::uint32_t> VexelSDKThread::CopyIdToPid() {
  const std::lock_guard lock(m_stateLock);
  return m_idToPid;
}

std::uint32_t VexelSDKThread::GetPreloadPid(const std::wstring& name) { return m_preloadPids[name]; }

void VexelSDKThread::SetPreloadPid(const std::wstring& name, std::uint32_t pid) { m_preloadPids[name] = pid; }
