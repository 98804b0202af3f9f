#include "examples/host/host.h"

#include "examples/common/text.h"
#include "examples/host/screen.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <sstream>
#include <utility>

namespace example {
namespace {

constexpr wchar_t kWindowClass[] = L"VexelExampleHost";
constexpr wchar_t kTabClass[] = L"VexelExampleTab";
constexpr UINT kEventWaiting = WM_APP + 1;
constexpr UINT_PTR kTickTimer = 1;
constexpr UINT kTickMs = 50;

constexpr int kWindowWidth = 1000;
constexpr int kWindowHeight = 700;
constexpr int kStripHeight = 44;

// A picture that shows no outcome for so long has none: a failed open is silent.
constexpr ULONGLONG kOpenLimitMs = 20'000;
// A close waits so long for an editor that has not announced itself.
constexpr ULONGLONG kReadyLimitMs = 5'000;
// The editor of a closed tab still hears of its close before its window goes.
constexpr ULONGLONG kOldWindowMs = 3'000;
// From the last change on the screen to the screenshot, and from one look for a change to the next.
constexpr ULONGLONG kShotPauseMs = 1'500;
constexpr ULONGLONG kSceneLookMs = 300;
constexpr DWORD kEndLimitMs = 120'000;

// The codes of the example editor.
constexpr std::int32_t kRotateRight = 1;
constexpr std::int32_t kRotateLeft = 2;
constexpr std::int32_t kFlip = 3;
constexpr std::int32_t kZoomIn = 4;
constexpr std::int32_t kZoomOut = 5;
constexpr std::int32_t kFit = 6;
constexpr std::int32_t kMarkSaved = 7;

void RegisterWindowClass(const wchar_t* name, WNDPROC proc) {
  WNDCLASSEXW info{};
  info.cbSize = sizeof(info);
  info.lpfnWndProc = proc;
  info.hInstance = GetModuleHandleW(nullptr);
  info.hCursor = LoadCursorW(nullptr, IDC_ARROW);
  info.hIcon = LoadIconW(nullptr, IDI_APPLICATION);
  info.lpszClassName = name;
  RegisterClassExW(&info);
}

Host* HostOf(HWND window, UINT message, LPARAM extra) {
  if (message == WM_NCCREATE) {
    SetWindowLongPtrW(window, GWLP_USERDATA,
                      reinterpret_cast<LONG_PTR>(reinterpret_cast<CREATESTRUCTW*>(extra)->lpCreateParams));
  }
  return reinterpret_cast<Host*>(GetWindowLongPtrW(window, GWLP_USERDATA));
}

DWORD WINAPI UnInitThreadFun(void* sdk) {
  static_cast<const Sdk*>(sdk)->unInit();
  return 0;
}

} // namespace

Host::Host(const Sdk& sdk, Output& output, HostOptions options)
    : m_sdk(sdk), m_output(output), m_options(std::move(options)) {}

Host::~Host() {
  if (m_window != nullptr) {
    DestroyWindow(m_window);
  }
}

bool Host::Create() {
  RegisterWindowClass(kWindowClass, &WindowProc);
  RegisterWindowClass(kTabClass, &TabProc);
  m_buttons = {
      {L"Rotate", "rotate", {}}, {L"Theme", "theme", {}}, {L"Full screen", "fullscreen", {}}, {L"Close", "close", {}}};
  m_window = CreateWindowExW(0, kWindowClass, L"Pictures", WS_OVERLAPPEDWINDOW | WS_CLIPCHILDREN, 40, 40, kWindowWidth,
                             kWindowHeight, nullptr, nullptr, GetModuleHandleW(nullptr), this);
  return m_window != nullptr && SetTimer(m_window, kTickTimer, kTickMs, nullptr) != 0;
}

bool Host::Run() {
  m_start = GetTickCount64();
  m_sdk.init(nullptr);
  for (const std::wstring& path : m_options.pictures) {
    AddTab(path);
  }
  for (const std::string& command : m_options.script) {
    Command(command);
  }
  ShowWindow(m_window, SW_SHOW);
  SetForegroundWindow(m_window);
  MSG message;
  while (GetMessageW(&message, nullptr, 0, 0) > 0) {
    DispatchMessageW(&message);
  }
  EndSdk();
  return m_shown == m_pictures && !m_isSceneMissing;
}

void Host::Command(std::string command) {
  const std::lock_guard<std::mutex> guard(m_lock);
  m_commands.push_back(std::move(command));
}

// Runs on threads of the SDK: writes the line, gives the text back and leaves the rest to the window's thread.
void Host::OnSdkEvent(char* text, void* data) {
  const auto* subscription = static_cast<const Subscription*>(data);
  Host* host = subscription->host;
  try {
    const std::string copy(text);
    host->m_output.Event(subscription->id, GetCurrentThreadId(), copy);
    auto event = std::make_unique<HostEvent>(HostEvent{subscription->id, ReadEvent(copy)});
    if (PostMessageW(host->m_window, kEventWaiting, 0, reinterpret_cast<LPARAM>(event.get()))) {
      event.release(); // the window's thread has it now
    }
  } catch (...) {
    // Out of memory: the event is lost. Nothing may leave through the SDK's frames.
  }
  host->m_sdk.releaseCallbackData(text);
}

LRESULT CALLBACK Host::WindowProc(HWND window, UINT message, WPARAM wide, LPARAM extra) {
  Host* host = HostOf(window, message, extra);
  if (host == nullptr) {
    return DefWindowProcW(window, message, wide, extra);
  }
  switch (message) {
  case kEventWaiting: {
    const std::unique_ptr<HostEvent> event(reinterpret_cast<HostEvent*>(extra));
    if (!host->m_isEnding) {
      host->Handle(*event);
    }
    return 0;
  }
  case WM_ERASEBKGND:
    return 1;
  default:
    break;
  }
  if (host->m_isEnding) {
    return DefWindowProcW(window, message, wide, extra);
  }
  switch (message) {
  case WM_TIMER:
    host->Tick();
    return 0;
  case WM_SIZE:
    host->Layout();
    return 0;
  case WM_MOVE:
    host->m_isPlaceDue = true;
    return 0;
  case WM_KEYDOWN:
    host->Key(wide);
    return 0;
  case WM_LBUTTONDOWN:
    host->Click(static_cast<short>(LOWORD(extra)), static_cast<short>(HIWORD(extra)));
    return 0;
  case WM_PAINT:
    host->Paint();
    return 0;
  case WM_CLOSE:
    host->Quit();
    return 0;
  default:
    return DefWindowProcW(window, message, wide, extra);
  }
}

LRESULT CALLBACK Host::TabProc(HWND window, UINT message, WPARAM wide, LPARAM extra) {
  Host* host = HostOf(window, message, extra);
  Tab* tab = host == nullptr ? nullptr : host->TabOfWindow(window);
  if (tab != nullptr && message == WM_PAINT) {
    host->PaintTab(*tab);
    return 0;
  }
  if (tab != nullptr && message == WM_LBUTTONDOWN && tab->state == TabState::kCrashed) {
    host->OpenTab(*tab);
    return 0;
  }
  return message == WM_ERASEBKGND ? 1 : DefWindowProcW(window, message, wide, extra);
}

void Host::Tick() {
  const ULONGLONG now = GetTickCount64();
  if (m_isPlaceDue) {
    m_isPlaceDue = false;
    PlaceEditors();
  }
  std::erase_if(m_oldWindows, [now](const OldWindow& old) {
    const bool isOver = now - old.since > kOldWindowMs;
    if (isOver) {
      DestroyWindow(old.window);
    }
    return isOver;
  });

  // One picture after the other, so that each is seen once and finds a process that is up already.
  bool isOpening = false;
  for (std::size_t i = 0; i < m_tabs.size() && !isOpening; ++i) {
    Tab& tab = *m_tabs[i];
    if (tab.isCloseWanted && now - tab.since > kReadyLimitMs) {
      // Closing an id that has no process yet is not allowed, so this one is left alone.
      RemoveTab(tab);
      return;
    }
    if (tab.state == TabState::kOpening) {
      isOpening = true;
      if (now - tab.since > OpenLimit()) {
        SettleTab(tab, TabState::kFailed);
      }
    } else if (tab.state == TabState::kWaiting && !m_isQuitting) {
      isOpening = true;
      SelectTab(i);
      OpenTab(tab);
    }
  }
  RunCommands();

  if (!m_options.shot.empty() && !m_isShotDone && IsSettled() && m_settledSince != 0) {
    const bool isOnScreen = IsPictureOnScreen(now);
    if (isOnScreen || now - m_settledSince > OpenLimit()) {
      if (!isOnScreen) {
        m_isSceneMissing = true;
        std::fputs("examplehost: the selected picture is not on the screen.\n", stderr);
      }
      m_isShotDone = true;
      TakeShot(m_options.shot);
      Quit();
    }
  }
  if (m_options.limitMs > 0 && now - m_start > static_cast<ULONGLONG>(m_options.limitMs)) {
    if (!m_isLimitReached) {
      m_isLimitReached = true;
      Quit();
    } else if (now - m_start > static_cast<ULONGLONG>(m_options.limitMs) + 2 * kReadyLimitMs) {
      PostQuitMessage(0);
    }
  }
}

/// Whoever gives more time as a whole, as on a slow machine, gives each picture its share of it.
ULONGLONG Host::OpenLimit() const {
  const auto whole = static_cast<ULONGLONG>(std::max(m_options.limitMs, std::int64_t{0}));
  return std::max(kOpenLimitMs, whole / std::max<std::size_t>(m_tabs.size(), 1));
}

void Host::Handle(const HostEvent& event) {
  Tab* tab = TabOfId(event.id);
  if (tab == nullptr) {
    return;
  }
  const EventInfo& info = event.info;
  if (info.processId != 0) {
    tab->pid = info.processId;
  }
  if (info.type == VEXELSDK_EVENT_CUSTOM_MESSAGE) {
    const bool isSuccess =
        info.param == VEXELSDK_PARAM_OPEN_PROCESS_SUCCESS || info.param == VEXELSDK_PARAM_OPEN_SUCCESS;
    if (isSuccess && !tab->isReady) {
      tab->isReady = true;
      if (tab->isCloseWanted) {
        CloseTab(*tab);
        return;
      }
      if (m_isDark) {
        m_sdk.changeThemeMode(true);
      }
      PlaceEditors();
    } else if (info.param == "picture_shown") {
      SettleTab(*tab, TabState::kShown);
    } else if (info.param == "open_pic_fail" || info.param == "picture_not_shown") {
      SettleTab(*tab, TabState::kFailed);
    }
  } else if (info.type == VEXELSDK_EVENT_RUN_ERROR) {
    // The SDK lets clicks fall through the window of a crashed editor. This tab wants them again, for its banner.
    SetWindowLongPtrW(tab->window, GWL_EXSTYLE,
                      GetWindowLongPtrW(tab->window, GWL_EXSTYLE) & ~static_cast<LONG_PTR>(WS_EX_TRANSPARENT));
    tab->isReady = false;
    tab->isModified = false;
    m_isFullScreen = m_isFullScreen && tab != ActiveTab();
    SettleTab(*tab, TabState::kCrashed);
    if (m_isQuitting) {
      RemoveTab(*tab);
    }
  } else if (info.type == VEXELSDK_EVENT_EDIT) {
    tab->isModified = info.status;
    Redraw();
  } else if (info.type == VEXELSDK_EVENT_FINISH_OPERATOR) {
    RemoveTab(*tab);
  }
}

void Host::RunCommands() {
  while (GetTickCount64() >= m_waitUntil) {
    std::string command;
    {
      const std::lock_guard<std::mutex> guard(m_lock);
      if (m_commands.empty()) {
        return;
      }
      command = m_commands.front();
    }
    if (command == "shown" && !IsSettled()) {
      return;
    }
    {
      const std::lock_guard<std::mutex> guard(m_lock);
      m_commands.pop_front();
    }
    if (!RunCommand(command)) {
      m_output.Action("unknown command: " + command, 0, false);
    }
  }
}

bool Host::RunCommand(const std::string& command) {
  std::istringstream words(command);
  std::string verb;
  words >> verb;
  std::int32_t number = 0;
  Tab* tab = ActiveTab();
  if (verb.empty() || verb == "shown") {
    return true;
  }
  if (verb == "rotate") {
    Operate(kRotateRight);
  } else if (verb == "left") {
    Operate(kRotateLeft);
  } else if (verb == "flip") {
    Operate(kFlip);
  } else if (verb == "zoomin") {
    Operate(kZoomIn);
  } else if (verb == "zoomout") {
    Operate(kZoomOut);
  } else if (verb == "fit") {
    Operate(kFit);
  } else if (verb == "saved") {
    Operate(kMarkSaved);
  } else if (verb == "operate" && words >> number) {
    Operate(number);
  } else if (verb == "command" && words >> number) {
    if (tab != nullptr && tab->isReady) {
      m_output.Action("command", tab->id, m_sdk.doBrowserCommand(tab->id, number));
    }
  } else if (verb == "theme") {
    SetDark(!m_isDark);
  } else if (verb == "dark" || verb == "light") {
    SetDark(verb == "dark");
  } else if (verb == "fullscreen") {
    SetFullScreen(!m_isFullScreen);
  } else if (verb == "tab" && words >> number) {
    SelectTab(static_cast<std::size_t>(std::max(number, 1) - 1));
  } else if (verb == "open") {
    std::string path;
    std::getline(words >> std::ws, path);
    AddTab(ToWide(path));
  } else if (verb == "reopen") {
    if (tab != nullptr) {
      OpenTab(*tab);
    }
  } else if (verb == "close") {
    if (tab != nullptr) {
      CloseTab(*tab);
    }
  } else if (verb == "isclose" && words >> number) {
    m_output.Action("isclose", number, m_sdk.isClose(number));
  } else if (verb == "move") {
    std::array<int, 4> place{};
    if (!(words >> place[0] >> place[1] >> place[2] >> place[3])) {
      return false;
    }
    SetWindowPos(m_window, nullptr, place[0], place[1], place[2], place[3], SWP_NOZORDER | SWP_NOACTIVATE);
  } else if (verb == "wait" && words >> number) {
    m_waitUntil = GetTickCount64() + static_cast<ULONGLONG>(std::clamp(number, 0, 3'600'000));
  } else if (verb == "shot") {
    std::string path;
    std::getline(words >> std::ws, path);
    TakeShot(ToWide(path));
  } else if (verb == "exit") {
    Quit();
  } else {
    return false;
  }
  return true;
}

void Host::Key(WPARAM key) {
  const bool isControl = GetKeyState(VK_CONTROL) < 0;
  Tab* tab = ActiveTab();
  switch (key) {
  case 'R':
    Operate(kRotateRight);
    break;
  case 'L':
    Operate(kRotateLeft);
    break;
  case 'F':
    Operate(kFlip);
    break;
  case 'S':
    Operate(kMarkSaved);
    break;
  case VK_OEM_PLUS:
  case VK_ADD:
    Operate(kZoomIn);
    break;
  case VK_OEM_MINUS:
  case VK_SUBTRACT:
    Operate(kZoomOut);
    break;
  case '0':
    Operate(kFit);
    break;
  case 'T':
    SetDark(!m_isDark);
    break;
  case VK_F11:
    SetFullScreen(!m_isFullScreen);
    break;
  case VK_ESCAPE:
    SetFullScreen(false);
    break;
  case VK_TAB:
    if (isControl && !m_tabs.empty()) {
      SelectTab((m_active + 1) % m_tabs.size());
    }
    break;
  case 'W':
    if (isControl && tab != nullptr) {
      CloseTab(*tab);
    }
    break;
  case VK_RETURN:
    if (tab != nullptr && tab->state == TabState::kCrashed) {
      OpenTab(*tab);
    }
    break;
  default:
    break;
  }
}

void Host::Click(int x, int y) {
  const float px = static_cast<float>(x);
  const float py = static_cast<float>(y);
  for (std::size_t i = 0; i < m_tabBoxes.size(); ++i) {
    if (m_tabBoxes[i].Contains(px, py)) {
      SelectTab(i);
      return;
    }
  }
  for (const Button& button : m_buttons) {
    if (button.box.Contains(px, py)) {
      RunCommand(button.command);
      return;
    }
  }
}

Host::Tab* Host::ActiveTab() { return m_active < m_tabs.size() ? m_tabs[m_active].get() : nullptr; }

Host::Tab* Host::TabOfId(std::int32_t id) {
  const auto found = std::find_if(m_tabs.begin(), m_tabs.end(), [id](const auto& tab) { return tab->id == id; });
  return found == m_tabs.end() ? nullptr : found->get();
}

Host::Tab* Host::TabOfWindow(HWND window) {
  const auto found =
      std::find_if(m_tabs.begin(), m_tabs.end(), [window](const auto& tab) { return tab->window == window; });
  return found == m_tabs.end() ? nullptr : found->get();
}

void Host::AddTab(const std::wstring& path) {
  auto tab = std::make_unique<Tab>();
  tab->path = path;
  tab->window =
      CreateWindowExW(0, kTabClass, L"", WS_CHILD, 0, 0, 0, 0, m_window, nullptr, GetModuleHandleW(nullptr), this);
  m_tabs.push_back(std::move(tab));
  ++m_pictures;
  Redraw();
}

void Host::OpenTab(Tab& tab) {
  tab.state = TabState::kOpening;
  tab.isReady = false;
  tab.isModified = false;
  tab.since = GetTickCount64();
  tab.id = m_sdk.openEditor(tab.path.c_str(), tab.window, m_options.openType,
                            m_options.hasParam ? m_options.param.c_str() : nullptr);
  if (tab.id != VEXELSDK_INVALID_ID) {
    // At once: what happens before nobody hears.
    m_subscriptions.push_back(std::make_unique<Subscription>(Subscription{this, tab.id}));
    m_sdk.setBrowserCallback(tab.id, &OnSdkEvent, m_subscriptions.back().get());
  }
  m_output.Action("open", tab.id, tab.id != VEXELSDK_INVALID_ID);
  if (tab.id == VEXELSDK_INVALID_ID) {
    SettleTab(tab, TabState::kFailed);
  }
  Redraw();
}

void Host::SelectTab(std::size_t index) {
  if (index >= m_tabs.size()) {
    return;
  }
  if (index != m_active) {
    SetFullScreen(false);
  }
  m_active = index;
  Layout();
  Redraw();
}

void Host::CloseTab(Tab& tab) {
  if (tab.state == TabState::kOpening && !tab.isReady) {
    // Closing an id before its process is bound would end this program.
    tab.isCloseWanted = true;
    return;
  }
  if (!tab.isReady) {
    RemoveTab(tab);
    return;
  }
  SetFullScreen(false);
  const bool isWaiting = m_sdk.closeEditor(tab.id, false);
  m_output.Action("close", tab.id, isWaiting);
  if (!isWaiting) {
    RemoveTab(tab);
    return;
  }
  // The editor asks the user. "finish_operator" comes when the answer lets the picture go; a cancel stays silent.
  tab.isCloseWanted = false;
  for (std::size_t i = 0; i < m_tabs.size(); ++i) {
    if (m_tabs[i].get() == &tab) {
      SelectTab(i);
    }
  }
}

void Host::RemoveTab(const Tab& tab) {
  for (std::size_t i = 0; i < m_tabs.size(); ++i) {
    if (m_tabs[i].get() != &tab) {
      continue;
    }
    ShowWindow(tab.window, SW_HIDE);
    m_oldWindows.push_back({tab.window, GetTickCount64()});
    m_isFullScreen = m_isFullScreen && i != m_active;
    m_tabs.erase(m_tabs.begin() + static_cast<std::ptrdiff_t>(i));
    if (m_active > i || m_active >= m_tabs.size()) {
      m_active = m_active == 0 ? 0 : m_active - 1;
    }
    break;
  }
  Layout();
  Redraw();
  if (m_tabs.empty()) {
    PostQuitMessage(0);
  }
}

void Host::SettleTab(Tab& tab, TabState state) {
  if (state == TabState::kShown && !tab.wasShown) {
    tab.wasShown = true;
    ++m_shown;
  }
  tab.state = state;
  if (IsSettled() && !m_isFirstRoundOver) {
    m_isFirstRoundOver = true;
    SelectTab(0);
  }
  m_settledSince = GetTickCount64();
  Redraw();
}

bool Host::IsSettled() const {
  return std::none_of(m_tabs.begin(), m_tabs.end(), [](const auto& tab) {
    return tab->state == TabState::kWaiting || tab->state == TabState::kOpening;
  });
}

void Host::Operate(std::int32_t code) {
  const Tab* tab = ActiveTab();
  if (tab != nullptr && tab->isReady) {
    m_output.Action("operate " + std::to_string(code), tab->id, m_sdk.operatePic(tab->id, code));
  }
}

void Host::SetDark(bool dark) {
  m_isDark = dark;
  m_sdk.changeThemeMode(dark);
  Redraw();
}

void Host::SetFullScreen(bool on) {
  const Tab* tab = ActiveTab();
  if (tab == nullptr || !tab->isReady || m_isFullScreen == on) {
    return;
  }
  m_isFullScreen = on;
  m_sdk.fullScreen(tab->id, on);
}

RECT Host::TabArea() const {
  RECT area{};
  GetClientRect(m_window, &area);
  area.top = std::min<LONG>(kStripHeight, area.bottom);
  return area;
}

void Host::Layout() {
  const RECT area = TabArea();
  for (std::size_t i = 0; i < m_tabs.size(); ++i) {
    const UINT show = i == m_active ? SWP_SHOWWINDOW : SWP_HIDEWINDOW;
    SetWindowPos(m_tabs[i]->window, nullptr, area.left, area.top, area.right - area.left, area.bottom - area.top,
                 SWP_NOZORDER | SWP_NOACTIVATE | show);
  }
  m_isPlaceDue = true;
  Redraw();
}

void Host::PlaceEditors() {
  const RECT area = TabArea();
  for (std::size_t i = 0; i < m_tabs.size(); ++i) {
    const Tab& tab = *m_tabs[i];
    if (!tab.isReady) {
      continue;
    }
    // The example editor takes positions within the tab's window, and hides itself when it has no room.
    const bool isActive = i == m_active;
    m_sdk.setWindowsPos(tab.id, 0, 0, isActive ? area.right - area.left : 0, isActive ? area.bottom - area.top : 0);
  }
}

void Host::TakeShot(const std::wstring& path) {
  RECT area{};
  GetWindowRect(m_window, &area);
  const bool isSaved = SaveScreen(area, path);
  m_output.Action("shot", 0, isSaved);
  if (!isSaved) {
    std::fprintf(stderr, "examplehost: the screenshot could not be written to '%s'.\n", ToUtf8(path).c_str());
  }
}

// The editor that was selected last has to hear of its place, to draw and to reach the screen, which takes as long as the
// machine is slow. So the screen itself is asked: that editor's window is the one seen, it is not bare, and it stands
// still.
bool Host::IsPictureOnScreen(ULONGLONG now) {
  if (now - m_sceneLook < kSceneLookMs) {
    return false;
  }
  m_sceneLook = now;
  RECT area = TabArea();
  MapWindowPoints(m_window, nullptr, reinterpret_cast<POINT*>(&area), 2);
  std::vector<std::uint32_t> scene = ReadScreen(area);
  if (const Tab* tab = ActiveTab(); tab != nullptr && tab->state == TabState::kShown) {
    DWORD pid = 0;
    GetWindowThreadProcessId(WindowFromPoint({(area.left + area.right) / 2, (area.top + area.bottom) / 2}), &pid);
    if (pid != tab->pid || std::adjacent_find(scene.begin(), scene.end(), std::not_equal_to<>()) == scene.end()) {
      scene.clear();
    }
  }
  if (scene.empty() || scene != m_scene) {
    m_scene = std::move(scene);
    m_sceneSince = now;
    return false;
  }
  return now - m_sceneSince > kShotPauseMs;
}

void Host::Quit() {
  m_isQuitting = true;
  // From the back, as tabs go while this runs. One that asks its user stays, and the program with it.
  for (std::size_t i = m_tabs.size(); i > 0; --i) {
    if (i <= m_tabs.size()) {
      CloseTab(*m_tabs[i - 1]);
    }
  }
  if (m_tabs.empty()) {
    PostQuitMessage(0);
  }
}

void Host::EndSdk() {
  // From here on no call may reach the SDK: it would start anew.
  m_isEnding = true;
  KillTimer(m_window, kTickTimer);
  ShowWindow(m_window, SW_HIDE);
  // On a thread of its own: the end waits for what is queued, and for ever if it meets an editor's crash.
  const HANDLE thread = CreateThread(nullptr, 0, &UnInitThreadFun, const_cast<Sdk*>(&m_sdk), 0, nullptr);
  if (thread == nullptr) {
    m_sdk.unInit();
    return;
  }
  const ULONGLONG start = GetTickCount64();
  bool isOver = false;
  while (!isOver && GetTickCount64() - start < kEndLimitMs) {
    isOver = MsgWaitForMultipleObjects(1, &thread, FALSE, 1000, QS_ALLINPUT) == WAIT_OBJECT_0;
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
      DispatchMessageW(&message);
    }
  }
  CloseHandle(thread);
  if (!isOver) {
    std::fprintf(stderr, "examplehost: the SDK did not end within %lu s.\n", kEndLimitMs / 1000);
    TerminateProcess(GetCurrentProcess(), 1);
  }
}

void Host::Redraw() {
  InvalidateRect(m_window, nullptr, FALSE);
  if (const Tab* tab = ActiveTab(); tab != nullptr) {
    InvalidateRect(tab->window, nullptr, FALSE);
  }
}

} // namespace example
