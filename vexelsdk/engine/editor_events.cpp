#include "platform/debug.h"
#include "platform/sync.h"
#include "vexelsdk/engine/vexel_sdk_thread.h"
#include "vexelsdk/link/editor_messages.h"

#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

namespace {

constexpr std::uint32_t kPassMs = 10;

/// A callback that throws is the host's own fault, and no reason to take the host down.
void CallBrowser(BrowserCallback callback, char* text, void* data) noexcept {
  try {
    callback(text, data);
  } catch (...) {
  }
}

} // namespace

char* NewCallbackText(const std::string& text) noexcept {
  const std::size_t size = text.size() + 1;
  auto* const buffer = static_cast<char*>(std::malloc(size));
  if (buffer != nullptr) {
    std::memcpy(buffer, text.c_str(), size);
  }
  return buffer;
}

void FreeCallbackText(char* text) noexcept { std::free(text); }

void MsgThreadFun() noexcept {
  std::shared_ptr<VexelSDKThread> engine;
  try {
    engine = VexelSDKThread::GetInstance();
  } catch (...) {
    return;
  }
  while (!engine->m_stop.load(std::memory_order_acquire)) {
    try {
      engine->PollEditors();
    } catch (...) {
      // Out of memory: what this pass held is lost, the next one goes on.
    }
    platform::Sleep(kPassMs);
  }
}

void VexelSDKThread::PollEditors() {
  struct Arrival {
    std::uint32_t pid;
    std::string text;
    EditorMessage message;
  };
  std::vector<Arrival> arrivals; // at most one text of each editor, in order of pids
  {
    const std::lock_guard lock(m_helperLock);
    for (const auto& [pid, helper] : m_helpers) {
      Arrival arrival{pid, {}, {}};
      if (helper == nullptr || !helper->IsReading() || !helper->GetOperator(arrival.text, &arrival.message) ||
          arrival.text.empty()) {
        continue;
      }
      arrivals.push_back(std::move(arrival));
    }
  }
  for (const Arrival& arrival : arrivals) {
    if (char* const buffer = NewCallbackText(arrival.text); buffer != nullptr) {
      ProcessEditorMessage(arrival.pid, buffer, arrival.message);
    }
  }
}

void VexelSDKThread::ProcessEditorMessage(std::uint32_t pid, char* text, const EditorMessage& message) {
  std::int32_t id = 0;
  {
    const std::lock_guard lock(m_stateLock);
    id = m_pidToId[pid]; // an unknown process gets the id 0
  }
  bool forward = false;
  {
    const std::lock_guard lock(m_helperLock);
    forward = m_callbacks.contains(id);
  }
  switch (message.event) {
  case EditorEvent::kProcessExit:
    forward = false;
    if (message.exitedPid.has_value()) {
      SetExited(static_cast<std::uint32_t>(*message.exitedPid)); // the one it names, not the one it came from
      ClearModifyClose(id);
    }
    break;
  case EditorEvent::kFinishOperator:
    SetFinished(id);
    break;
  case EditorEvent::kCancelProcessExit:
    forward = false;
    ClearModifyClose(id);
    break;
  case EditorEvent::kEdit:
  case EditorEvent::kOther:
    break;
  }
  BrowserCallback callback = nullptr;
  void* data = nullptr;
  if (forward) {
    // Read as late as possible: a pair that was cleared meanwhile gets nothing more.
    const std::lock_guard lock(m_helperLock);
    callback = m_callbacks[id];
    data = m_callbackData[id];
  }
  if (callback == nullptr) {
    return; // the text has no taker and is never freed: deliberate, as no host has seen it
  }
  platform::OutputDebugStringA(text);
  platform::OutputDebugStringA("\n");
  CallBrowser(callback, text, data);
}

void VexelSDKThread::DeliverBrowserMessage(std::uint32_t pid, char* text) {
  std::int32_t id = 0;
  {
    const std::lock_guard lock(m_stateLock);
    const auto found = m_pidToId.find(pid);
    if (found == m_pidToId.end()) {
      return;
    }
    id = found->second;
  }
  BrowserCallback callback = nullptr;
  void* data = nullptr;
  {
    const std::lock_guard lock(m_helperLock);
    const auto foundCallback = m_callbacks.find(id);
    const auto foundData = m_callbackData.find(id);
    if (foundCallback == m_callbacks.end() || foundData == m_callbackData.end()) {
      return;
    }
    callback = foundCallback->second;
    data = foundData->second;
  }
  // Unlike an editor's text, an event of the SDK's own needs user data too.
  if (callback != nullptr && data != nullptr) {
    CallBrowser(callback, text, data);
  }
}

void VexelSDKThread::SendBrowserMessage(std::int32_t id, std::uint32_t pid, const char* type, const char* param) {
  if (char* const text = NewCallbackText(BrowserEventText(id, pid, type, param)); text != nullptr) {
    DeliverBrowserMessage(pid, text); // which keeps no text: one that finds no callback is never freed, on purpose
  }
}

void VexelSDKThread::ReportCustomMessage(const SDK_OperatorData& record, const char* param) {
  SendBrowserMessage(record.m_id, record.m_pid, "custom_message", param);
}
