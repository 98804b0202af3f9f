#pragma once

#include "foundation/k_event.h"
#include "platform/types.h"
#include "vexelsdk/link/operator_data.h"
#include "vexelsdk/link/vexel_sdk_helper.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

/// The host's function for the events of one editor id: a text that passes to it, and the user data it registered.
using BrowserCallback = void (*)(char* text, void* data);

/// A process to be ended.
struct KillEntry {
  std::uint32_t m_pid = 0;
  std::uint64_t m_createTime = 0; // seconds as GetProcessCreateTime tells them, read at listing; 0 when unknown
  std::wstring m_path;            // what the process must run to be ended
};

/// The engine: the one stateful object of the SDK. It owns the operator queue, the tables that tie editor ids (`id`) to
/// editor processes (`pid`), the links, and four threads. An id stays a host window's name; it moves to another pid when
/// the window opens a new picture. In both, 0 is none.
///
/// Lock order: m_stateLock, then m_closeLock, and no other two of the engine's locks at once. A link's own queue lock
/// comes behind m_helperLock. No lock is held across a callback, a process start, a connect or a write to an editor;
/// AddToKillList alone looks at a process under m_stateLock.
///
/// Entries of the tables stay for the engine's life but where RemoveWindow and ClearModifyClose say otherwise, so the
/// engine grows a little with each window and each process.
class VexelSDKThread {
public:
  /// The engine, built with its threads when there is none. Blocks while another thread builds it. Any thread. The
  /// result keeps the memory alive for a caller that is still inside when the engine is torn down.
  static std::shared_ptr<VexelSDKThread> GetInstance();

  /// Ends a non-null engine's threads and links, then forgets it. Blocks until the queue has drained and the threads
  /// have ended; on one of the engine's own threads, which can't wait for itself, a thread of its own does that.
  static void DestroyInstance(std::shared_ptr<VexelSDKThread> engine);

  VexelSDKThread(const VexelSDKThread&) = delete;
  VexelSDKThread& operator=(const VexelSDKThread&) = delete;
  ~VexelSDKThread();

  // ---- the gate: operator_loop.cpp

  /// Decides what a close means and queues a copy of the record. True when it was queued, but for a close: there true
  /// means that it waits for the user, false that the editor is closing or gone. Any thread; never waits for an editor.
  bool DoOperator(const SDK_OperatorData& record);

  // ---- accessors: engine_state.cpp. Any thread; each takes its own lock and gives it back.

  std::int32_t AllocateEditorId(platform::Window tabwnd);
  void SetCallback(std::int32_t id, BrowserCallback callback, void* data);
  std::map<std::int32_t, std::uint32_t> CopyIdToPid();
  bool IsFinished(std::int32_t id);
  bool IsClosing(std::int32_t id);
  bool IsModifyClose(std::int32_t id);
  bool IsExited(std::uint32_t pid);
  /// True when no normal end of the pair is on record. Takes one lock after the other, so it may change while tested.
  bool IsUnexpectedExit(std::int32_t id, std::uint32_t pid);

private:
  friend void MsgThreadFun() noexcept;
  friend void OperatorThreadFun() noexcept;
  friend void CrashWatchThreadFun() noexcept;
  friend void KillWatchThreadFun() noexcept;
  friend class EngineProbe; // the tests' window into the tables

  VexelSDKThread();
  void StartThreads() noexcept;
  void StopThreads();

  // engine_state.cpp
  std::uint32_t GetPidById(std::int32_t id); // adds a zero entry for an unknown id
  std::uint32_t GetPidByIdLocked(std::int32_t id);
  bool BindIdToPid(std::int32_t id, std::uint32_t pid);
  std::shared_ptr<VexelSDKHelper> GetHelperByPid(std::uint32_t pid);
  std::shared_ptr<VexelSDKHelper> GetHelperOfOperator(const SDK_OperatorData& record);
  void SetFinished(std::int32_t id);
  void SetClosing(std::int32_t id);
  void SetModifyClose(std::int32_t id);
  void ClearModifyClose(std::int32_t id);
  void SetExited(std::uint32_t pid);
  bool RemoveWindow(platform::Window hwnd);
  std::uint32_t GetPreloadPid(const std::wstring& name); // adds a zero entry for an unknown name
  void SetPreloadPid(const std::wstring& name, std::uint32_t pid);

  // operator_loop.cpp
  bool Enqueue(const SDK_OperatorData& record, bool testFinished);
  bool TakeOperator(SDK_OperatorData& record, bool& done);
  void WaitForOperator();
  void SendOperator(const SDK_OperatorData& record);

  // opening.cpp, operator thread
  bool CreateHelper(std::uint32_t pid, const std::wstring& name);
  void HandleOpenProcess(SDK_OperatorData& record);
  void CloseReplacedProcess(std::int32_t id, std::uint32_t oldPid);
  void HandlePreLoadProcess();
  void EnsurePreLoad();
  void PreloadIfMissing(const wchar_t* name);
  void CreatePreLoadProcess(const wchar_t* name);
  void ResetPreload(const std::wstring& name);

  // watchdogs.cpp
  void WatchForCrashes();
  void ReportCrash(std::int32_t id, std::uint32_t pid, const std::map<platform::Window, std::int32_t>& windows);
  bool AddToKillList(std::uint32_t pid);
  bool TakeKillEntry(KillEntry& entry);

  // editor_events.cpp
  void PollEditors();
  void ProcessEditorMessage(std::uint32_t pid, char* text, const EditorMessage& message);
  void DeliverBrowserMessage(std::uint32_t pid, char* text);
  void SendBrowserMessage(std::int32_t id, std::uint32_t pid, const char* type, const char* param);
  void ReportCustomMessage(const SDK_OperatorData& record, const char* param);

  // Set once at teardown under m_stateLock, with release, and read with acquire by the message and the operator thread.
  // No data hangs on it: records have m_stateLock. The operator thread cannot sleep through it, for it looks under that
  // lock before it says that it will wait.
  std::atomic<bool> m_stop{false};
  std::int32_t m_lastId = 0;                // m_stateLock; the last id given out
  std::unique_ptr<std::thread> m_msgThread; // StartThreads and StopThreads, as the other three
  std::mutex m_helperLock;
  std::map<std::int32_t, BrowserCallback> m_callbacks; // m_helperLock; null when cleared
  std::map<std::int32_t, void*> m_callbackData;        // m_helperLock
  // m_helperLock. Every process ever taken up; nothing is removed before teardown. Shared, so that a host thread that is
  // inside a link's flags keeps it alive through a teardown.
  std::map<std::uint32_t, std::shared_ptr<VexelSDKHelper>> m_helpers;
  std::map<std::wstring, std::uint32_t> m_preloadPids; // operator thread; 0 is an empty slot
  std::unique_ptr<std::thread> m_operatorThread;
  std::mutex m_stateLock;
  std::mutex m_exitLock;
  std::mutex m_closeLock;
  std::mutex m_spareLock;                   // kept, and never locked
  std::deque<SDK_OperatorData> m_operators; // m_stateLock; first in first out, no limit
  // 1 while the operator thread waits for a record. Written under m_stateLock; the thread waits on it without, and reads
  // the queue behind that lock, so nothing hangs on its order.
  std::atomic<std::uint32_t> m_operatorIdle{0};
  std::map<std::int32_t, std::uint32_t> m_idToPid;     // m_stateLock
  std::vector<std::uint32_t> m_pidsByNumber;           // m_stateLock; what m_idToPid says, for ids that were given out
  std::set<std::int32_t> m_finishedIds;                // m_stateLock; over: no operator is accepted or run
  std::set<std::int32_t> m_closingIds;                 // m_closeLock; a close has been accepted
  std::set<std::int32_t> m_modifyCloseIds;             // m_closeLock; closing, and the user is being asked
  std::set<std::uint32_t> m_exitedPids;                // m_exitLock; gone by a normal route
  std::map<std::uint32_t, std::int32_t> m_pidToId;     // m_stateLock
  std::map<platform::Window, std::int32_t> m_hwndToId; // m_stateLock
  std::map<std::uint32_t, std::wstring> m_pidToName;   // m_stateLock; the key of the program's launch row
  std::unique_ptr<std::thread> m_crashThread;
  vx::KEvent m_crashStopEvent;   // auto-reset, signalled once by StopThreads, waited on by the crash watch alone
  bool m_preloadStarted = false; // operator thread; the first preload has run
  std::unique_ptr<std::thread> m_killThread;
  std::map<std::uint32_t, KillEntry> m_killList; // m_stateLock
  vx::KEvent m_killStopEvent;                 // auto-reset, signalled once by StopThreads, waited on by the kill thread
  std::array<std::thread::id, 4> m_threadIds; // written by StartThreads, constant behind it
  std::once_flag m_stopped;                   // two teardowns at once are one, and both wait for it
};

// The four threads' bodies. Each begins with GetInstance, which holds it back until the engine stands.
void MsgThreadFun() noexcept;
void OperatorThreadFun() noexcept;
void CrashWatchThreadFun() noexcept;
void KillWatchThreadFun() noexcept;

/// A buffer with a copy of a text, which the browser's callback gets and gives back through FreeCallbackText. Null
/// without memory. Any thread.
char* NewCallbackText(const std::string& text) noexcept;
/// Frees such a buffer; null does nothing. Any thread.
void FreeCallbackText(char* text) noexcept;
