#include "tests/windows/host/events.h"

#include "tests/windows/host/console.h"
#include "tests/windows/host/sdk_library.h"
#include "tests/windows/host/wire.h"

#include <windows.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <stdexcept>
#include <vector>

namespace testhost {
namespace {

enum class Mode { kOn, kHold, kThrow, kCalls, kBlock, kUnInit };

struct Subscription {
  std::int32_t id;
  std::atomic<Mode> mode;
};

const ULONGLONG startTick = GetTickCount64();
std::atomic<std::size_t> received{0};
std::atomic<std::size_t> released{0};
std::mutex heldLock;
std::vector<char*> held;
std::mutex blockLock;
std::condition_variable blockChanged;
bool isUnblocked = false;

void Release(char* text) {
  LoadedSdk().releaseCallbackData(text);
  ++released;
}

void CallExports(std::int32_t id, void* data) {
  const Sdk& sdk = LoadedSdk();
  std::array<wchar_t, VEXELSDK_EXTENSIONS_SIZE> extensions{};
  const std::int32_t fits = sdk.getExtensions(extensions.data(), VEXELSDK_EXTENSIONS_SIZE);
  const bool closed = sdk.isClose(id);
  const bool operated = sdk.operatePic(id, 6);
  sdk.setWindowsPos(id, 1, 2, 30, 40);
  sdk.fullScreen(id, false);
  sdk.changeThemeMode(true);
  const bool valid = sdk.isPreviewValid();
  Subscription* const again = static_cast<Subscription*>(data);
  again->mode = Mode::kOn;
  PrintLine("note calls fits=" + std::to_string(fits) + " closed=" + std::to_string(closed) +
            " operated=" + std::to_string(operated) + " valid=" + std::to_string(valid));
}

void OnEvent(char* text, void* data) {
  ++received;
  auto* const subscription = static_cast<Subscription*>(data);
  const std::int32_t id = subscription == nullptr ? 0 : subscription->id;
  PrintLine("event " + std::to_string(GetTickCount64() - startTick) + " " + std::to_string(GetCurrentThreadId()) + " " +
            std::to_string(id) + " " + wire::Escape(text));
  const Mode mode = subscription == nullptr ? Mode::kOn : subscription->mode.load();
  switch (mode) {
  case Mode::kHold: {
    const std::lock_guard guard(heldLock);
    held.push_back(text);
    return;
  }
  case Mode::kThrow:
    Release(text);
    throw std::runtime_error("thrown by the callback");
  case Mode::kCalls:
    CallExports(id, data);
    break;
  case Mode::kBlock: {
    std::unique_lock guard(blockLock);
    blockChanged.wait(guard, [] { return isUnblocked; });
    break;
  }
  case Mode::kUnInit:
    subscription->mode = Mode::kOn;
    PrintLine("note uninit=" + std::to_string(LoadedSdk().unInit()));
    break;
  case Mode::kOn:
    break;
  }
  Release(text);
}

} // namespace

bool Register(std::int32_t id, const std::string& mode) {
  static const std::map<std::string, Mode> kModes{{"on", Mode::kOn},       {"hold", Mode::kHold},
                                                  {"throw", Mode::kThrow}, {"calls", Mode::kCalls},
                                                  {"block", Mode::kBlock}, {"uninit", Mode::kUnInit}};
  if (mode == "off") {
    LoadedSdk().setBrowserCallback(id, nullptr, nullptr);
    return true;
  }
  if (mode == "nodata") {
    LoadedSdk().setBrowserCallback(id, &OnEvent, nullptr);
    return true;
  }
  const auto found = kModes.find(mode);
  if (found == kModes.end()) {
    return false;
  }
  // Stays for the life of the process: a call on its way may still use it.
  LoadedSdk().setBrowserCallback(id, &OnEvent, new Subscription{id, found->second});
  return true;
}

void Unblock() {
  {
    const std::lock_guard guard(blockLock);
    isUnblocked = true;
  }
  blockChanged.notify_all();
}

BufferCounts ReleaseHeld() {
  std::vector<char*> texts;
  {
    const std::lock_guard guard(heldLock);
    texts.swap(held);
  }
  for (char* const text : texts) {
    Release(text);
  }
  return {received, released};
}

} // namespace testhost
