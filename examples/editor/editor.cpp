#include "examples/editor/editor.h"

#include "examples/common/text.h"

#include <algorithm>
#include <utility>

namespace example {
namespace {

constexpr wchar_t kControlClass[] = L"VexelExampleEditorControl";
constexpr wchar_t kPictureClass[] = L"VexelExampleEditorPicture";
constexpr UINT kMessagesWaiting = WM_APP + 1;

constexpr UINT_PTR kWatchTimer = 1;
constexpr UINT_PTR kExitTimer = 2;
constexpr UINT_PTR kCrashTimer = 3;
constexpr UINT kWatchMs = 200;

constexpr float kZoomStep = 1.25F;
constexpr float kMinZoom = 0.1F;
constexpr float kMaxZoom = 16.0F;

void RegisterWindowClass(const wchar_t* name, WNDPROC proc) {
  WNDCLASSEXW info{};
  info.cbSize = sizeof(info);
  info.lpfnWndProc = proc;
  info.hInstance = GetModuleHandleW(nullptr);
  info.hCursor = LoadCursorW(nullptr, IDC_ARROW);
  info.lpszClassName = name;
  RegisterClassExW(&info);
}

Editor* EditorOf(HWND window, UINT message, LPARAM extra) {
  if (message == WM_NCCREATE) {
    SetWindowLongPtrW(window, GWLP_USERDATA,
                      reinterpret_cast<LONG_PTR>(reinterpret_cast<CREATESTRUCTW*>(extra)->lpCreateParams));
  }
  return reinterpret_cast<Editor*>(GetWindowLongPtrW(window, GWLP_USERDATA));
}

/// Where a copy with the changes goes: beside the picture.
std::wstring EditedPath(const std::wstring& path) {
  const std::wstring name = FileName(path);
  return Folder(path) + name.substr(0, name.find_last_of(L'.')) + L"-edited.png";
}

} // namespace

Editor::Editor(EventChannel& events, const Zoo& zoo, EditorOptions options)
    : m_events(events), m_zoo(zoo), m_options(std::move(options)), m_lastMessage(GetTickCount64()) {}

Editor::~Editor() {
  if (m_window != nullptr) {
    DestroyWindow(m_window);
  }
  if (m_control != nullptr) {
    DestroyWindow(m_control);
  }
}

bool Editor::Create() {
  RegisterWindowClass(kControlClass, &ControlProc);
  RegisterWindowClass(kPictureClass, &PictureProc);
  m_control =
      CreateWindowExW(0, kControlClass, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, GetModuleHandleW(nullptr), this);
  return m_control != nullptr && SetTimer(m_control, kWatchTimer, kWatchMs, nullptr) != 0;
}

void Editor::Hand(OperatorMessage message) {
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_messages.push_back(std::move(message));
  }
  // Should the post fail, the watch timer finds the message.
  PostMessageW(m_control, kMessagesWaiting, 0, 0);
}

void Editor::Run() {
  MSG message;
  while (GetMessageW(&message, nullptr, 0, 0) > 0) {
    DispatchMessageW(&message);
  }
}

LRESULT CALLBACK Editor::ControlProc(HWND window, UINT message, WPARAM wide, LPARAM extra) {
  Editor* editor = EditorOf(window, message, extra);
  if (editor != nullptr && message == kMessagesWaiting) {
    editor->DrainMessages();
    return 0;
  }
  if (editor != nullptr && message == WM_TIMER) {
    switch (wide) {
    case kWatchTimer:
      editor->DrainMessages();
      editor->Watch();
      break;
    case kExitTimer:
      editor->Leave();
      break;
    case kCrashTimer:
      Crash();
    default:
      break;
    }
    return 0;
  }
  return DefWindowProcW(window, message, wide, extra);
}

LRESULT CALLBACK Editor::PictureProc(HWND window, UINT message, WPARAM wide, LPARAM extra) {
  Editor* editor = EditorOf(window, message, extra);
  if (editor == nullptr) {
    return DefWindowProcW(window, message, wide, extra);
  }
  switch (message) {
  case WM_PAINT:
    editor->Paint();
    return 0;
  case WM_ERASEBKGND:
    return 1;
  case WM_MOUSEACTIVATE:
    // The keyboard stays with the host, whose keys drive the editor.
    return MA_NOACTIVATE;
  case WM_LBUTTONDOWN:
    editor->Click(static_cast<short>(LOWORD(extra)), static_cast<short>(HIWORD(extra)));
    return 0;
  case WM_MOUSEWHEEL:
    editor->Operate(static_cast<short>(HIWORD(wide)) > 0 ? OperatorCode::kZoomIn : OperatorCode::kZoomOut);
    return 0;
  case WM_CLOSE:
    editor->Close(true);
    return 0;
  case WM_NCDESTROY:
    // The owner's end takes the window along.
    editor->m_window = nullptr;
    return DefWindowProcW(window, message, wide, extra);
  default:
    return DefWindowProcW(window, message, wide, extra);
  }
}

void Editor::DrainMessages() {
  std::vector<OperatorMessage> messages;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    messages.swap(m_messages);
  }
  for (const OperatorMessage& message : messages) {
    m_lastMessage = GetTickCount64();
    Handle(message);
  }
}

void Editor::Handle(const OperatorMessage& message) {
  if (m_isLeaving) {
    return;
  }
  if (message.type == "open") {
    Open(message);
  } else if (message.type == "close") {
    Close(message.status);
  } else if (message.type == "setpos") {
    m_rect = {message.x, message.y, std::clamp<std::int32_t>(message.w, 0, 32767),
              std::clamp<std::int32_t>(message.h, 0, 32767)};
    m_hasRect = true;
    Place();
  } else if (message.type == "fullscreen") {
    m_isFullScreen = message.isFullScreen;
    Place();
  } else if (message.type == "change_theme_mode") {
    m_isDark = message.themeMode == 2;
    Refresh();
  } else if (message.type == "operator") {
    Operate(static_cast<OperatorCode>(message.code));
  } else if (message.type == "saveas") {
    SaveAs(message);
  } else if (message.type == "process_exit") {
    Leave();
  }
  // A "browser_command" means nothing to this editor; neither do types that it does not know, nor those that are its own
  // to send.
}

void Editor::SaveAs(const OperatorMessage& message) {
  if (m_isOpen && message.hasPath && m_picture.Save(message.path)) {
    SetModified(false);
  }
}

void Editor::Open(const OperatorMessage& message) {
  if (!message.hasPath) {
    return;
  }
  SetModified(false);
  m_id = message.id;
  m_isOpen = true;
  m_isAsking = false;
  m_isShownReported = false;
  m_isFullScreen = false;
  m_isRecovered = message.recover;
  m_zoom = 1.0F;
  m_path = message.path;

  const HWND host = reinterpret_cast<HWND>(static_cast<std::uintptr_t>(message.tabwnd));
  if (host != m_host || !HasHost()) {
    m_host = host;
    m_hostPid = 0;
    GetWindowThreadProcessId(host, &m_hostPid);
    m_hasRect = false;
    MakeWindow();
  }

  if (!m_picture.Load(m_path)) {
    Send("custom_message", "open_pic_fail", true);
  }
  Place();
  Refresh();
  if (m_window == nullptr) {
    Send("custom_message", "picture_not_shown", true);
  }
  MisbehaveAfterOpen();
}

void Editor::MisbehaveAfterOpen() {
  for (const std::string& text : m_zoo.events) {
    m_events.Post(
        Replaced(Replaced(text, "%PID%", std::to_string(GetCurrentProcessId())), "%ID%", std::to_string(m_id)));
  }
  for (std::int32_t i = 0; i < m_zoo.flood; ++i) {
    Send("flood", std::to_string(i), true);
  }
  if (m_zoo.dieMidMessage) {
    CrashInMidMessage(EventPipeName());
  }
  if (m_zoo.exitAfterOpenMs >= 0) {
    SetTimer(m_control, kExitTimer, static_cast<UINT>(m_zoo.exitAfterOpenMs), nullptr);
  }
  if (m_zoo.crashAfterOpenMs >= 0) {
    SetTimer(m_control, kCrashTimer, static_cast<UINT>(m_zoo.crashAfterOpenMs), nullptr);
  }
}

void Editor::Operate(OperatorCode code) {
  if (!m_picture.IsLoaded()) {
    return;
  }
  switch (code) {
  case OperatorCode::kRotateRight:
    m_picture.Transform(Gdiplus::Rotate90FlipNone);
    SetModified(true);
    break;
  case OperatorCode::kRotateLeft:
    m_picture.Transform(Gdiplus::Rotate270FlipNone);
    SetModified(true);
    break;
  case OperatorCode::kFlip:
    m_picture.Transform(Gdiplus::RotateNoneFlipX);
    SetModified(true);
    break;
  case OperatorCode::kZoomIn:
    m_zoom = std::min(m_zoom * kZoomStep, kMaxZoom);
    break;
  case OperatorCode::kZoomOut:
    m_zoom = std::max(m_zoom / kZoomStep, kMinZoom);
    break;
  case OperatorCode::kFit:
    m_zoom = 1.0F;
    break;
  case OperatorCode::kMarkSaved:
    SetModified(false);
    break;
  default:
    return;
  }
  Refresh();
}

void Editor::Close(bool mayAsk) {
  if (!mayAsk || !m_isModified) {
    Leave();
    return;
  }
  m_isAsking = true;
  m_saveFailed = false;
  if (m_options.answer != Answer::kNone) {
    Decide(m_options.answer);
    return;
  }
  if (m_window == nullptr) {
    // Nobody can be asked, and changes are not thrown away unasked.
    Decide(Answer::kCancel);
    return;
  }
  if (m_hasRect && (m_rect.right == 0 || m_rect.bottom == 0)) {
    m_hasRect = false;
    Place();
  }
  Refresh();
}

void Editor::Decide(Answer answer) {
  if (answer == Answer::kSave && !m_picture.Save(EditedPath(m_path))) {
    m_saveFailed = true;
    if (m_options.answer == Answer::kNone) {
      Refresh();
      return;
    }
    answer = Answer::kCancel;
  }
  m_isAsking = false;
  if (answer == Answer::kCancel) {
    Send("cancel_process_exit", "", true);
    Refresh();
    return;
  }
  if (answer == Answer::kSave) {
    SetModified(false);
  }
  Leave();
}

void Editor::Leave() {
  if (m_isLeaving) {
    return;
  }
  m_isLeaving = true;
  if (m_window != nullptr) {
    ShowWindow(m_window, SW_HIDE);
  }
  if (m_isOpen) {
    // Only with a picture: an editor that never had one has no id to finish.
    Send("finish_operator", "", true);
  }
  Send("process_exit", "", true);
  PostQuitMessage(0);
}

void Editor::Watch() {
  const bool isServing = m_isOpen && m_hostPid != 0;
  if (isServing ? !HasHost() : GetTickCount64() - m_lastMessage > static_cast<ULONGLONG>(m_options.idleMs)) {
    Leave();
    return;
  }
  if (isServing && m_window != nullptr && IsWindowVisible(m_window)) {
    const RECT target = Target();
    if (!EqualRect(&target, &m_placed)) {
      Place();
    }
  }
}

void Editor::SetModified(bool modified) {
  if (m_isModified != modified) {
    m_isModified = modified;
    Send("edit", "", modified);
  }
}

void Editor::Send(const char* type, const std::string& param, bool status) {
  m_events.Post(MakeEvent(type, param, m_id, GetCurrentProcessId(), status));
}

bool Editor::HasHost() const {
  DWORD pid = 0;
  return m_hostPid != 0 && GetWindowThreadProcessId(m_host, &pid) != 0 && pid == m_hostPid;
}

void Editor::MakeWindow() {
  if (m_window != nullptr) {
    DestroyWindow(m_window);
    m_window = nullptr;
  }
  if (!HasHost()) {
    return;
  }
  // Owned and not a child: a child in another process's window ties the two programs' input together, and not every
  // desktop shows its pixels.
  m_window = CreateWindowExW(WS_EX_TOOLWINDOW | WS_EX_NOACTIVATE, kPictureClass, L"Picture", WS_POPUP, 0, 0, 0, 0,
                             GetAncestor(m_host, GA_ROOT), nullptr, GetModuleHandleW(nullptr), this);
  m_placed = {};
}

void Editor::Place() {
  if (m_window == nullptr || !m_isOpen || m_isLeaving) {
    return;
  }
  const RECT target = Target();
  if (IsRectEmpty(&target)) {
    ShowWindow(m_window, SW_HIDE);
    return;
  }
  const int width = target.right - target.left;
  const int height = target.bottom - target.top;
  const bool isResized = width != m_placed.right - m_placed.left || height != m_placed.bottom - m_placed.top;
  const bool isTopmost = (GetWindowLongPtrW(m_window, GWL_EXSTYLE) & WS_EX_TOPMOST) != 0;
  UINT flags = SWP_NOACTIVATE | SWP_SHOWWINDOW;
  HWND behind = HWND_TOP;
  if (m_isFullScreen != isTopmost) {
    behind = m_isFullScreen ? HWND_TOPMOST : HWND_NOTOPMOST;
  } else if (IsWindowVisible(m_window)) {
    flags |= SWP_NOZORDER;
  }
  m_placed = target;
  SetWindowPos(m_window, behind, target.left, target.top, width, height, flags);
  if (isResized) {
    Refresh();
  }
}

RECT Editor::Target() const {
  if (m_isFullScreen) {
    MONITORINFO monitor{};
    monitor.cbSize = sizeof(monitor);
    if (GetMonitorInfoW(MonitorFromWindow(m_host, MONITOR_DEFAULTTONEAREST), &monitor)) {
      return monitor.rcMonitor;
    }
  }
  RECT target{};
  if (m_hasRect) {
    target.right = m_rect.right;
    target.bottom = m_rect.bottom;
    // No screen reaches further, and sums stay small enough.
    OffsetRect(&target, static_cast<int>(std::clamp<LONG>(m_rect.left, -100'000, 100'000)),
               static_cast<int>(std::clamp<LONG>(m_rect.top, -100'000, 100'000)));
  } else {
    GetClientRect(m_host, &target);
  }
  POINT origin{0, 0};
  ClientToScreen(m_host, &origin);
  OffsetRect(&target, origin.x, origin.y);
  return target;
}

void Editor::Click(int x, int y) {
  if (!m_isAsking) {
    return;
  }
  constexpr std::array<Answer, 3> kAnswers{Answer::kSave, Answer::kDiscard, Answer::kCancel};
  for (std::size_t i = 0; i < m_buttons.size(); ++i) {
    if (m_buttons[i].Contains(static_cast<float>(x), static_cast<float>(y))) {
      Decide(kAnswers[i]);
      return;
    }
  }
}

} // namespace example
