// The sixteen doors: fill in a record, hand it over, return. Nothing but a result leaves any of them: whatever is thrown
// inside becomes the result that the call has for a failure.

#include "foundation/switches.h"
#include "include/vexelsdk.h"
#include "platform/sync.h"
#include "vexelsdk/engine/vexel_sdk_thread.h"

#include <algorithm>
#include <atomic>
#include <type_traits>
#include <utility>

static_assert(std::is_same_v<VexelBrowserCallback, BrowserCallback>, "the engine calls what the host registers");

namespace {

constexpr wchar_t kMutexName[] = L"{bdbc4e79-d9a7-473f-b0bb-48ab50548842}";

constexpr std::int32_t kThemeModeOn = 2;
constexpr std::int32_t kThemeModeOff = 1;

constexpr wchar_t kExtensions[] =
    L"jpg|jxr|wdp|hdp|pcd|pcx|xbm|bmp|pfm|cut|iff|lbm|xpm|pct|pict|pic|j2k|j2c|jng|png|dds|jp2|pbm|pgm|ppm|psd|exr|jif|"
    L"jpeg|jpe|cmp|jff|jfi|jfif|jiff|jtf|g3|ras|hdr|koa|3fr|arw|bay|cine|cr2|crw|cs1|dc2|dcr|drf|dsc|dng|erf|fff|ia|"
    L"iiq|k25|kc2|kdc|mdc|mef|mos|mrw|nef|nrw|orf|pef|ptx|pxn|qtk|raf|raw|rdc|rw2|rwl|rwz|sr2|srf|srw|sti|x3f|gif|mng|"
    L"sgi|rgb|rgba|bw|ico|wap|wbmp|wbm|webp|tga|targa|tif|tiff|tim|g4";
constexpr std::size_t kExtensionsSize = std::size(kExtensions);
static_assert(kExtensionsSize == VEXELSDK_EXTENSIONS_SIZE, "the header promises this size");

/// Exists by name while a handle to it lives; nobody owns it or waits on it. Host threads may write it at once, and no
/// other data hangs on it, so relaxed order is enough.
std::atomic<platform::Handle> singleInstanceMutex{nullptr};

/// Runs `call`; gives `fallback` when it throws.
template <typename Result, typename Call> Result Guarded(Result fallback, Call&& call) noexcept {
  try {
    return std::forward<Call>(call)();
  } catch (...) {
    return fallback;
  }
}

template <typename Call> void Guarded(Call&& call) noexcept {
  try {
    std::forward<Call>(call)();
  } catch (...) {
  }
}

SDK_OperatorData Record(SDK_Operator op, std::int32_t id) {
  SDK_OperatorData record;
  record.m_op = op;
  record.m_id = id;
  return record;
}

bool Queue(const SDK_OperatorData& record) { return VexelSDKThread::GetInstance()->DoOperator(record); }

void QueuePreload() { Queue(Record(SDK_PreLoadProcess, 0)); }

} // namespace

int32_t VexelSDK_Init(void*) {
  singleInstanceMutex.store(platform::CreateMutexW(false, kMutexName), std::memory_order_relaxed);
  Guarded([] { QueuePreload(); });
  return 1;
}

int32_t VexelSDK_UnInit() {
  if (const platform::Handle mutex = singleInstanceMutex.load(std::memory_order_relaxed); mutex != nullptr) {
    platform::CloseHandle(mutex); // the variable stays as it is, so a second call closes the same value
  }
  Guarded([] { VexelSDKThread::DestroyInstance(VexelSDKThread::GetInstance()); });
  return 1;
}

int32_t GetPicSupportFileExtensions(wchar_t* buffer, uint32_t size) {
  if (buffer == nullptr || size == 0) {
    return 0;
  }
  if (size >= kExtensionsSize) {
    std::copy_n(kExtensions, kExtensionsSize, buffer);
    return 1;
  }
  std::copy_n(kExtensions, size - 1, buffer);
  buffer[size - 1] = L'\0';
  return 0;
}

int32_t OpenEditor(const wchar_t* path, VexelWindow tabwnd, int32_t openType, const wchar_t* param) {
  if (path == nullptr || tabwnd == nullptr) {
    return VEXELSDK_INVALID_ID;
  }
  return Guarded(std::int32_t{VEXELSDK_INVALID_ID}, [&] {
    SDK_OperatorData record;
    record.m_op = SDK_OPEN;
    record.m_tabwnd = reinterpret_cast<std::uintptr_t>(tabwnd);
    record.m_type = openType;
    record.m_path = path;
    if (param != nullptr) {
      record.m_param = param;
    }
    record.m_id = VexelSDKThread::GetInstance()->AllocateEditorId(record.m_tabwnd);
    Queue(record);
    Guarded([] { QueuePreload(); }); // a successor for the waiting process that this open may take
    return record.m_id;
  });
}

void FullScreen(int32_t id, bool isFullScreen) {
  Guarded([&] {
    SDK_OperatorData record = Record(SDK_FULLSCREEN, id);
    record.m_status = isFullScreen;
    Queue(record);
  });
}

void SetWindowsPos(int32_t id, int32_t x, int32_t y, int32_t w, int32_t h) {
  Guarded([&] {
    SDK_OperatorData record = Record(SDK_SETPOS, id);
    record.m_rect = {x, y, w, h};
    Queue(record);
  });
}

void ChangeThemeMode(bool dark) {
  Guarded([&] {
    for (const auto& [id, pid] : VexelSDKThread::GetInstance()->CopyIdToPid()) {
      SDK_OperatorData record = Record(SDK_CHANGE_THEME, id);
      record.m_themeMode = dark ? kThemeModeOn : kThemeModeOff;
      Queue(record);
    }
  });
}

bool IsSupportPreview() {
  return Guarded(false, [] { return vx::IsSupportPreview(); });
}

bool CloseEditor(int32_t id, bool closeAll) {
  return Guarded(false, [&] {
    SDK_OperatorData record = Record(SDK_CLOSE, id);
    record.m_closeAll = closeAll;
    return Queue(record);
  });
}

bool IsClose(int32_t id) {
  return Guarded(false, [&] {
    const auto engine = VexelSDKThread::GetInstance();
    return engine->IsClosing(id) || engine->IsFinished(id);
  });
}

bool IsPreviewValid() { return true; }

int32_t GetSwitchValue(const char* name) {
  return Guarded(std::int32_t{VEXELSDK_SWITCH_UNREADABLE}, [&] { return vx::GetSwitchValue(name); });
}

bool OperatePic(int32_t id, int32_t operatorCode) {
  return Guarded(false, [&] {
    SDK_OperatorData record = Record(SDK_OPERATE, id);
    record.m_type = operatorCode;
    return Queue(record);
  });
}

bool DoBrowserCommand(int32_t id, int32_t commandCode) {
  return Guarded(false, [&] {
    SDK_OperatorData record = Record(SDK_BROWSER_COMMAND, id);
    record.m_type = commandCode;
    return Queue(record);
  });
}

void SetBrowserCallback(int32_t id, VexelBrowserCallback callback, void* data) {
  Guarded([&] { VexelSDKThread::GetInstance()->SetCallback(id, callback, data); });
}

void ReleaseCallbackData(char* text) { FreeCallbackText(text); }
