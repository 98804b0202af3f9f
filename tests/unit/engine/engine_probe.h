#pragma once

#include "vexelsdk/engine/vexel_sdk_thread.h"

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

/// The tests' window into the engine: its private accessors by their own names.
class EngineProbe {
public:
  explicit EngineProbe(std::shared_ptr<VexelSDKThread> engine) : m_engine(std::move(engine)) {}

  std::uint32_t GetPidById(std::int32_t id) { return m_engine->GetPidById(id); }
  bool BindIdToPid(std::int32_t id, std::uint32_t pid) { return m_engine->BindIdToPid(id, pid); }
  std::shared_ptr<VexelSDKHelper> GetHelperByPid(std::uint32_t pid) { return m_engine->GetHelperByPid(pid); }
  void SetFinished(std::int32_t id) { m_engine->SetFinished(id); }
  void SetClosing(std::int32_t id) { m_engine->SetClosing(id); }
  void SetModifyClose(std::int32_t id) { m_engine->SetModifyClose(id); }
  void ClearModifyClose(std::int32_t id) { m_engine->ClearModifyClose(id); }
  void SetExited(std::uint32_t pid) { m_engine->SetExited(pid); }
  bool RemoveWindow(platform::Window window) { return m_engine->RemoveWindow(window); }
  bool AddToKillList(std::uint32_t pid) { return m_engine->AddToKillList(pid); }
  bool TakeKillEntry(KillEntry& entry) { return m_engine->TakeKillEntry(entry); }
  void SendBrowserMessage(std::int32_t id, std::uint32_t pid, const char* type, const char* param) {
    m_engine->SendBrowserMessage(id, pid, type, param);
  }

  std::size_t Queued() {
    const std::lock_guard lock(m_engine->m_stateLock);
    return m_engine->m_operators.size();
  }
  std::vector<SDK_OperatorData> QueuedRecords() {
    const std::lock_guard lock(m_engine->m_stateLock);
    return {m_engine->m_operators.begin(), m_engine->m_operators.end()};
  }
  /// The pair that is registered for an id, nothing when the tables have no entry.
  std::optional<std::pair<BrowserCallback, void*>> CallbackOf(std::int32_t id) {
    const std::lock_guard lock(m_engine->m_helperLock);
    const auto callback = m_engine->m_callbacks.find(id);
    const auto data = m_engine->m_callbackData.find(id);
    if (callback == m_engine->m_callbacks.end() || data == m_engine->m_callbackData.end()) {
      return std::nullopt;
    }
    return std::pair{callback->second, data->second};
  }
  /// The engine's threads: messages, operators, crash watch, kill list.
  std::array<std::thread::id, 4> ThreadIds() { return m_engine->m_threadIds; }
  bool OperatorIsIdle() {
    const std::lock_guard lock(m_engine->m_stateLock);
    return m_engine->m_operatorIdle && m_engine->m_operators.empty();
  }
  bool KnowsWindow(platform::Window window) {
    const std::lock_guard lock(m_engine->m_stateLock);
    return m_engine->m_hwndToId.contains(window);
  }
  std::size_t Windows() {
    const std::lock_guard lock(m_engine->m_stateLock);
    return m_engine->m_hwndToId.size();
  }
  std::size_t FinishedCount() {
    const std::lock_guard lock(m_engine->m_stateLock);
    return m_engine->m_finishedIds.size();
  }
  std::set<std::int32_t> FinishedIds() {
    const std::lock_guard lock(m_engine->m_stateLock);
    return m_engine->m_finishedIds;
  }
  /// The id of a pid, -1 when the table has no entry.
  std::int32_t IdOfPid(std::uint32_t pid) {
    const std::lock_guard lock(m_engine->m_stateLock);
    const auto found = m_engine->m_pidToId.find(pid);
    return found == m_engine->m_pidToId.end() ? -1 : found->second;
  }
  void MapWindow(platform::Window window, std::int32_t id) {
    const std::lock_guard lock(m_engine->m_stateLock);
    m_engine->m_hwndToId[window] = id;
  }
  std::size_t Links() {
    const std::lock_guard lock(m_engine->m_helperLock);
    return m_engine->m_helpers.size();
  }
  std::set<std::uint32_t> KillList() {
    const std::lock_guard lock(m_engine->m_stateLock);
    std::set<std::uint32_t> pids;
    for (const auto& [pid, entry] : m_engine->m_killList) {
      pids.insert(pid);
    }
    return pids;
  }
  std::map<std::uint32_t, KillEntry> KillEntries() {
    const std::lock_guard lock(m_engine->m_stateLock);
    return m_engine->m_killList;
  }
  /// The slots of the programs. Only once the queue has drained: they are the operator thread's own.
  std::map<std::wstring, std::uint32_t> PreloadPids() { return m_engine->m_preloadPids; }
  bool MutexesAreFree() {
    for (std::mutex* const lock :
         {&m_engine->m_helperLock, &m_engine->m_stateLock, &m_engine->m_exitLock, &m_engine->m_closeLock}) {
      if (!lock->try_lock()) {
        return false;
      }
      lock->unlock();
    }
    return true;
  }

private:
  std::shared_ptr<VexelSDKThread> m_engine;
};
