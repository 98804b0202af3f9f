#include "tools/vexelctl/open_host.h"

#include <atomic>
#include <memory>
#include <thread>
#include <utility>

#include "tools/vexelctl/console.h"
#include "tools/vexelctl/param_check.h"
#include "tools/vexelctl/text.h"
#include "tools/vexelctl/windows_util.h"

namespace vexelctl {
namespace {

using Json = OpenOutput::Json;

constexpr wchar_t kClass[] = L"vexelctl picture";
constexpr std::int64_t kSettleMs = 2000;    // for the editor's word on the picture behind "open_pic_success"
constexpr std::int64_t kOverMs = 1000;      // by when "finish_operator" is here if it comes at all
constexpr std::int64_t kEndLimitMs = 10000; // how long the SDK's end may take

// The user data of one id's callback. It lives as long as the program: an event may still be on its way.
struct Registration {
  OpenHost* host;
  std::int32_t id;
};

OpenHost* g_host = nullptr; // for the window procedure and Ctrl+C

void Callback(char* text, void* data);

LRESULT CALLBACK WindowProcedure(HWND window, UINT message, WPARAM wide, LPARAM parameter) {
  if (message == WM_CLOSE) {
    const auto id = static_cast<std::int32_t>(GetWindowLongPtrW(window, GWLP_USERDATA));
    g_host->TakeLine("@" + std::to_string(id) + " close");
    return 0;
  }
  return DefWindowProcW(window, message, wide, parameter);
}

BOOL WINAPI OnControl(DWORD) {
  if (g_host->Interrupt()) {
    return TRUE;
  }
  EndConsole();
  return FALSE; // the second time it ends the process, whatever is open
}

const SdkLibrary* g_sdk = nullptr;

void Callback(char* text, void* data) {
  const auto* registration = static_cast<const Registration*>(data);
  HostEvent event{registration->host->Now(), GetCurrentThreadId(), registration->id, text};
  g_sdk->releaseCallbackData(text);
  registration->host->TakeEvent(std::move(event));
}

std::string Base64(const std::string& bytes) {
  constexpr char kLetters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    std::uint32_t group = 0;
    for (std::size_t j = 0; j < 3; ++j) {
      group = group << 8 | (i + j < bytes.size() ? static_cast<unsigned char>(bytes[i + j]) : 0U);
    }
    for (std::size_t j = 0; j < 4; ++j) {
      out += i + j <= bytes.size() ? kLetters[group >> (18 - 6 * j) & 63] : '=';
    }
  }
  return out;
}

} // namespace

std::wstring OpenHost::Param() const {
  if (m_options.app.has_value()) {
    return ToWide(Base64("/apptype:" + std::to_string(*m_options.app)));
  }
  return ToWide(m_options.param.value_or(""));
}

bool OpenHost::CreateClass() {
  if (!m_options.record.empty()) {
    m_record = _wfopen(ToWide(m_options.record).c_str(), L"wb");
    if (m_record == nullptr) {
      Warn("'" + m_options.record + "' cannot be written");
      return false;
    }
    BeginRecord();
  }
  if (!m_options.param.value_or("").empty() && !HoldsSwitches(*m_options.param)) {
    m_output.Note(0, kNoSwitches);
  }
  WNDCLASSW windowClass{};
  windowClass.lpfnWndProc = WindowProcedure;
  windowClass.hInstance = GetModuleHandleW(nullptr);
  windowClass.lpszClassName = kClass;
  windowClass.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_APPWORKSPACE + 1);
  windowClass.hCursor = LoadCursorW(nullptr, MAKEINTRESOURCEW(32512));
  g_host = this;
  g_sdk = &m_sdk;
  SetConsoleCtrlHandler(OnControl, TRUE);
  if (RegisterClassW(&windowClass) == 0) {
    Warn("no window can be made, " + SystemMessage(GetLastError()));
    return false;
  }
  return true;
}

HWND OpenHost::MakeWindow(const std::wstring& path) {
  return CreateWindowExW(0, kClass, NameOf(path).c_str(), WS_OVERLAPPEDWINDOW | WS_VISIBLE, CW_USEDEFAULT,
                         CW_USEDEFAULT, 900, 650, nullptr, nullptr, GetModuleHandleW(nullptr), nullptr);
}

void OpenHost::OpenIn(HWND window, const std::wstring& path) {
  if (!m_isStarted) {
    m_isStarted = true;
    m_sdk.init(nullptr);
  }
  const std::int64_t at = m_output.Now();
  const std::wstring param = Param();
  const std::int32_t id =
      m_sdk.openEditor(path.c_str(), window, m_options.openType, param.empty() ? nullptr : param.c_str());
  if (id == VEXELSDK_INVALID_ID) {
    m_hasFailed = true;
    m_output.Call(id, "open " + ToUtf8(path), id, Colour::kRed);
    return;
  }
  // Directly behind the open, or the first events are lost.
  m_sdk.setBrowserCallback(id, Callback, new Registration{this, id});
  m_gate.OnOpen(id);
  Picture& picture = m_pictures[id];
  picture = Picture();
  picture.window = window;
  picture.openedAt = at;
  m_unexpected[id].clear();
  m_lastId = id;
  SetWindowLongPtrW(window, GWLP_USERDATA, id);
  m_output.Call(id, "open " + ToUtf8(path), id, Colour::kBold);
}

void OpenHost::TakeEvent(HostEvent event) {
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_events.push_back(std::move(event));
  }
  SetEvent(m_wake);
}

void OpenHost::TakeLine(std::string line) {
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_lines.push_back(std::move(line));
  }
  SetEvent(m_wake);
}

void OpenHost::EndOfInput() {
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_isInputOver = true;
  }
  SetEvent(m_wake);
}

bool OpenHost::Interrupt() {
  bool isFirst = false;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    isFirst = !m_isInterrupted;
    m_isInterrupted = true;
  }
  SetEvent(m_wake);
  return isFirst;
}

void OpenHost::Handle(const HostEvent& event) {
  Picture& picture = m_pictures[event.id];
  const Json json = IsNestedDeep(event.text) ? Json(Json::value_t::discarded) : Json::parse(event.text, nullptr, false);
  const std::string type = json.is_object() ? TextOf(json, "type") : "";
  const std::string param = json.is_object() ? TextOf(json, "param") : "";
  const bool isCrash = type == VEXELSDK_EVENT_RUN_ERROR;
  m_output.Event(event, json, event.at - picture.openedAt);
  m_unexpected[event.id].push_back(event.text);

  if (type == VEXELSDK_EVENT_CUSTOM_MESSAGE && param == VEXELSDK_PARAM_OPEN_PROCESS_SUCCESS) {
    const std::vector<CloseGate::Close> closes = m_gate.OnProcessSuccess(event.id);
    if (closes.empty() && m_gate.IsReady(event.id) && !m_options.isWithoutMove && !m_isEnding) {
      RECT area{};
      GetClientRect(picture.window, &area);
      m_sdk.setWindowsPos(event.id, 0, 0, area.right, area.bottom);
      m_output.Call(event.id, "move 0 0 " + std::to_string(area.right) + " " + std::to_string(area.bottom), nullptr);
    }
    for (const CloseGate::Close& close : closes) {
      m_output.Note(close.id, "its process has come, so the close that was kept back goes out");
      if (GetModuleHandleW(kPipeLibraryName) == nullptr) {
        AskClose(close.id, close.closeAll);
      } else {
        CloseNow(close.id, close.closeAll);
      }
    }
  } else if (type == VEXELSDK_EVENT_CUSTOM_MESSAGE && param == VEXELSDK_PARAM_OPEN_SUCCESS) {
    // One that comes before belongs to the picture that is replaced.
    if (m_gate.IsReady(event.id)) {
      picture.hasOpenOutcome = true;
      picture.isShown = true;
      picture.settledAt = m_output.Now() + kSettleMs;
    }
  } else if (type == VEXELSDK_EVENT_CUSTOM_MESSAGE && m_gate.IsReady(event.id) && param == "picture_shown") {
    picture.isTold = true;
  } else if (type == VEXELSDK_EVENT_CUSTOM_MESSAGE && m_gate.IsReady(event.id) &&
             (param == "open_pic_fail" || param == "picture_not_shown")) {
    // The editor's words, not the SDK's: the text has reached it, and the picture has not reached the screen.
    picture.isTold = true;
    picture.isFailed = true;
    m_hasFailed = true;
    m_output.Note(event.id, "the editor does not show the picture");
  } else if (isCrash) {
    picture.hasOpenOutcome = true;
    picture.isFailed = true;
    picture.isClosed = true;
    m_hasFailed = true;
    // The SDK has made the window transparent to the mouse, and leaves it so.
    SetWindowLongPtrW(picture.window, GWL_EXSTYLE,
                      GetWindowLongPtrW(picture.window, GWL_EXSTYLE) & ~static_cast<LONG_PTR>(WS_EX_TRANSPARENT));
  } else if (type == VEXELSDK_EVENT_FINISH_OPERATOR) {
    picture.isClosed = true;
    DropWindow(event.id, picture);
  }
}

// A window that shows a later id by now stays.
void OpenHost::DropWindow(std::int32_t id, Picture& picture) {
  if (picture.window != nullptr && GetWindowLongPtrW(picture.window, GWLP_USERDATA) == id) {
    DestroyWindow(picture.window);
  }
  picture.window = nullptr;
}

void OpenHost::HandleEvents() {
  for (;;) {
    HostEvent event;
    {
      const std::lock_guard<std::mutex> guard(m_lock);
      if (m_events.empty()) {
        return;
      }
      event = std::move(m_events.front());
      m_events.pop_front();
    }
    Handle(event);
  }
}

// A failed open is silent, so only a limit tells.
void OpenHost::CheckLimits() {
  const auto limit = static_cast<std::int64_t>(m_options.limitSeconds * 1000);
  const std::string log = ToUtf8(LogPathOf(ProgramPath(), VEXELSDK_LIBRARY_NAME));
  for (auto& [id, picture] : m_pictures) {
    // An id that nobody closed is over when a text could not be handed to its editor, and no event tells it.
    const bool isOver = !picture.isClosed && !picture.isLate && m_gate.IsReady(id) && m_sdk.isClose(id);
    if (!isOver) {
      picture.overSince = -1;
    } else if (picture.overSince < 0) {
      picture.overSince = m_output.Now();
    } else if (m_output.Now() - picture.overSince > kOverMs) {
      picture.isLate = true;
      m_hasFailed = true;
      m_output.Note(id, "the SDK has given the id up: its process has ended or does not answer; see " + log);
      continue;
    }
    if (!picture.hasOpenOutcome && !picture.isLate && !picture.isClosed && m_output.Now() - picture.openedAt > limit) {
      picture.isLate = true;
      m_hasFailed = true;
      char seconds[32];
      std::snprintf(seconds, sizeof seconds, "%g", m_options.limitSeconds);
      const char* const what = m_gate.IsReady(id) ? " s without \"open_pic_success\": its process does not answer; see "
                                                  : " s without a process: a failed open is silent; see ";
      m_output.Note(id, seconds + std::string(what) + log + ", and 'vexelctl doctor'");
    }
  }
}

bool OpenHost::IsSettled() const {
  for (const auto& [id, picture] : m_pictures) {
    if (picture.isLate || picture.isClosed) {
      continue;
    }
    if (!picture.hasOpenOutcome || (!picture.isTold && m_output.Now() < picture.settledAt)) {
      return false;
    }
  }
  return true;
}

void OpenHost::BeginEnd(const char* why) {
  if (m_isEnding) {
    return;
  }
  m_isEnding = true;
  m_endingSince = m_output.Now();
  m_output.Ending(why);
  for (auto& [id, picture] : m_pictures) {
    // An editor that asks its user is not asked to ask once more.
    if (!picture.isClosed && !picture.asksUser && !m_sdk.isClose(id)) {
      AskClose(id, false);
    }
  }
}

bool OpenHost::IsAllClosed() {
  for (auto& [id, picture] : m_pictures) {
    if (!picture.isClosed && !m_sdk.isClose(id)) {
      return false;
    }
  }
  return true;
}

int OpenHost::Run() {
  const auto limit = static_cast<std::int64_t>(m_options.limitSeconds * 1000);
  for (;;) {
    MsgWaitForMultipleObjects(1, &m_wake, FALSE, 20, QS_ALLINPUT);
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE) != 0) {
      TranslateMessage(&message);
      DispatchMessageW(&message);
    }
    HandleEvents();
    HandleLines();
    CheckLimits();
    if (m_isEnding) {
      if (IsAllClosed() || m_output.Now() - m_endingSince > limit) {
        break;
      }
      continue;
    }
    bool isInputDone = false;
    bool isInterrupted = false;
    {
      const std::lock_guard<std::mutex> guard(m_lock);
      isInputDone = m_isInputOver && m_lines.empty();
      isInterrupted = m_isInterrupted;
    }
    if (isInterrupted) {
      BeginEnd("interrupted");
      continue;
    }
    if (m_options.forSeconds.has_value()) {
      if (static_cast<double>(m_output.Now()) >= *m_options.forSeconds * 1000) {
        BeginEnd("the time is over");
      }
      continue;
    }
    if (isInputDone && m_waitUntil < 0 && m_expectedIds.empty() && IsSettled()) {
      BeginEnd("the input is over");
    }
  }
  return Finish();
}

int OpenHost::Finish() {
  for (const CloseGate::Close& held : m_gate.Held()) {
    m_output.Note(held.id, "left without a close: its process never came");
    m_hasFailed = true;
  }
  for (auto& [id, picture] : m_pictures) {
    if (picture.asksUser && !picture.isClosed) {
      m_hasFailed = true;
      m_output.Note(id, "left open: its editor still asks its user, or the user has cancelled, which no event tells");
    }
    m_hasFailed = m_hasFailed || (!picture.isShown && !picture.isClosed);
    DropWindow(id, picture);
  }
  if (m_isStarted) {
    EndSdk();
  }
  if (m_lastId == 0 && !m_hasCommand && !m_hasFailed) {
    return Fail("no picture was named (--help tells how it is written)", kExitUsage);
  }
  return m_hasFailed ? kExitProblem : kExitFine;
}

void OpenHost::EndSdk() {
  // On a thread of its own with a limit: it waits for all that is queued, and at a bad moment for ever.
  // The release store pairs with the acquire loads below: who reads true sees all that the teardown has done.
  auto isOver = std::make_shared<std::atomic<bool>>(false);
  std::thread([isOver, this] {
    m_sdk.unInit();
    isOver->store(true, std::memory_order_release);
    SetEvent(m_wake);
  }).detach();
  const std::int64_t begin = m_output.Now();
  while (!isOver->load(std::memory_order_acquire) && m_output.Now() - begin < kEndLimitMs) {
    MsgWaitForMultipleObjects(1, &m_wake, FALSE, 20, QS_ALLINPUT);
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE) != 0) {
      DispatchMessageW(&message);
    }
    HandleEvents();
  }
  HandleEvents();
  if (!isOver->load(std::memory_order_acquire)) {
    m_hasFailed = true;
    m_output.Note(
        0,
        "VexelSDK_UnInit has not returned in 10 s: an operation hangs, or it met the crash watch; leaving without it");
  }
}

} // namespace vexelctl
