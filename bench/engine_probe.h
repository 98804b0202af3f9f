#pragma once

#include "vexelsdk/engine/vexel_sdk_thread.h"

#include <utility>

/// The benchmarks' window into the engine, which names it as a friend. Nothing here takes a lock: the engine's threads
/// have ended.
class EngineProbe {
public:
  explicit EngineProbe(VexelSDKThread& engine) : m_engine(engine) {}

  void StopThreads() { m_engine.StopThreads(); }

  std::deque<SDK_OperatorData>& Queue() { return m_engine.m_operators; }

  bool Bind(std::int32_t id, std::uint32_t pid) { return m_engine.BindIdToPid(id, pid); }

  /// A link that serves, as the engine makes one for a process. False when the pipe library refuses.
  bool AddLink(std::uint32_t pid) {
    auto link = std::make_shared<VexelSDKHelper>();
    if (!link->StartServer(pid)) {
      return false;
    }
    m_engine.m_helpers[pid] = std::move(link);
    m_engine.m_pidToName[pid] = L"vxpixeleditor.exe";
    return true;
  }
  void DropLinks() { m_engine.m_helpers.clear(); }

  void Poll() { m_engine.PollEditors(); }

  /// The tables that grow with windows and processes, to be put aside and back.
  struct Tables {
    decltype(VexelSDKThread::m_idToPid) idToPid;
    decltype(VexelSDKThread::m_pidsByNumber) pidsByNumber;
    decltype(VexelSDKThread::m_pidToId) pidToId;
    decltype(VexelSDKThread::m_hwndToId) hwndToId;
    decltype(VexelSDKThread::m_callbacks) callbacks;
    decltype(VexelSDKThread::m_callbackData) callbackData;
  };
  void Swap(Tables& tables) {
    m_engine.m_idToPid.swap(tables.idToPid);
    m_engine.m_pidsByNumber.swap(tables.pidsByNumber);
    m_engine.m_pidToId.swap(tables.pidToId);
    m_engine.m_hwndToId.swap(tables.hwndToId);
    m_engine.m_callbacks.swap(tables.callbacks);
    m_engine.m_callbackData.swap(tables.callbackData);
  }

private:
  VexelSDKThread& m_engine;
};
