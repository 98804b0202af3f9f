// first_picture PICTURE [--leave-on WORD]
// Shows one picture in a window and prints each event. With --leave-on it goes by itself after the first event that holds
// the word.

#define UNICODE
#define NOMINMAX
#include <windows.h>

#include <shellapi.h>

#include <cstdio>
#include <cwchar>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vexelsdk.h>

namespace {

constexpr UINT kEventMessage = WM_APP;
constexpr UINT_PTR kGiveUpTimer = 1;
constexpr UINT kGiveUpMs = 15000;

/// The text of one event, given back to the library when it is done with.
struct GiveBack {
  void operator()(char* text) const { ReleaseCallbackData(text); }
};
using EventText = std::unique_ptr<char, GiveBack>;

/// Whether the library is started. Its end runs what is still queued, a close among it.
class Library {
public:
  Library() { VexelSDK_Init(nullptr); }
  ~Library() { VexelSDK_UnInit(); }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;
};

/// One window with one picture. Lives on the window's thread.
class PictureWindow {
public:
  PictureWindow(const wchar_t* path, std::string leaveOn) : m_leaveOn(std::move(leaveOn)) {
    WNDCLASSW windowClass = {};
    windowClass.lpfnWndProc = &PictureWindow::WindowProc;
    windowClass.lpszClassName = L"FirstPicture";
    RegisterClassW(&windowClass);
    m_window = CreateWindowW(windowClass.lpszClassName, path, WS_OVERLAPPEDWINDOW | WS_VISIBLE | WS_CLIPCHILDREN, 60,
                             60, 900, 600, nullptr, nullptr, nullptr, nullptr);
    if (m_window != nullptr) {
      SetWindowLongPtrW(m_window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
      m_id = OpenEditor(path, m_window, 0, nullptr);
      SetBrowserCallback(m_id, &PictureWindow::OnEvent, m_window); // directly behind it
    }
  }

  bool IsOpen() const { return m_window != nullptr; }

private:
  /// Runs on threads of the library: hands the text to the window's thread and returns.
  static void OnEvent(char* text, void* data) {
    EventText owned(text);
    if (PostMessageW(static_cast<HWND>(data), kEventMessage, 0, reinterpret_cast<LPARAM>(text))) {
      owned.release();
    }
  }

  static LRESULT CALLBACK WindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    auto* self = reinterpret_cast<PictureWindow*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    return self != nullptr && self->Handle(message, lParam) ? 0 : DefWindowProcW(window, message, wParam, lParam);
  }

  bool Handle(UINT message, LPARAM lParam) {
    switch (message) {
    case kEventMessage:
      HandleEvent(EventText(reinterpret_cast<char*>(lParam)).get());
      return true;
    case WM_MOVE:
    case WM_SIZE:
      Place();
      return true;
    case WM_CLOSE:
      Close();
      return true;
    case WM_TIMER:
      DestroyWindow(m_window);
      return true;
    case WM_DESTROY:
      PostQuitMessage(0);
      return true;
    default:
      return false;
    }
  }

  void HandleEvent(std::string_view text) {
    std::printf("%.*s\n", static_cast<int>(text.size()), text.data());
    std::fflush(stdout);
    // A real host parses the JSON; to look for the word is enough to begin with.
    const auto says = [&](std::string_view word) { return text.find(word) != std::string_view::npos; };
    if (says("\"" VEXELSDK_PARAM_OPEN_PROCESS_SUCCESS "\"")) {
      m_connected = true;
      Place();
      if (!IsWindowVisible(m_window)) { // closed before the editor was there
        PostMessageW(m_window, WM_CLOSE, 0, 0);
      }
    } else if (says("\"" VEXELSDK_EVENT_FINISH_OPERATOR "\"")) {
      DestroyWindow(m_window);
    } else if (says("\"" VEXELSDK_EVENT_RUN_ERROR "\"")) {
      // The library made the window transparent to the mouse; nobody but the host takes that back.
      const LONG_PTR style = GetWindowLongPtrW(m_window, GWL_EXSTYLE);
      SetWindowLongPtrW(m_window, GWL_EXSTYLE, style & ~static_cast<LONG_PTR>(WS_EX_TRANSPARENT));
      DestroyWindow(m_window);
    }
    if (!m_leaveOn.empty() && says(m_leaveOn)) {
      PostMessageW(m_window, WM_CLOSE, 0, 0);
    }
  }

  void Place() {
    RECT area = {};
    if (m_connected && GetClientRect(m_window, &area)) {
      SetWindowsPos(m_id, 0, 0, area.right, area.bottom);
    }
  }

  void Close() {
    if (!m_connected) {
      // Never close an id without an editor. Wait for it out of sight, but not for ever.
      ShowWindow(m_window, SW_HIDE);
      SetTimer(m_window, kGiveUpTimer, kGiveUpMs, nullptr);
    } else if (!CloseEditor(m_id, false)) {
      DestroyWindow(m_window);
    } // else the editor asks about unsaved changes, and "finish_operator" comes if it goes
  }

  HWND m_window = nullptr;
  int32_t m_id = VEXELSDK_INVALID_ID;
  bool m_connected = false; // the editor runs and can be told something
  std::string m_leaveOn;
};

} // namespace

int main() {
  int count = 0;
  wchar_t** arguments = CommandLineToArgvW(GetCommandLineW(), &count);
  if (arguments == nullptr || count < 2) {
    std::fprintf(stderr, "usage: first_picture PICTURE [--leave-on WORD]\n");
    return 2;
  }
  std::string leaveOn;
  if (count > 3 && std::wcscmp(arguments[2], L"--leave-on") == 0) {
    leaveOn.resize(100);
    const int size = static_cast<int>(leaveOn.size());
    const int written = WideCharToMultiByte(CP_UTF8, 0, arguments[3], -1, leaveOn.data(), size, nullptr, nullptr);
    leaveOn.resize(written > 0 ? static_cast<std::size_t>(written) - 1 : 0);
  }
  const Library library;
  PictureWindow window(arguments[1], leaveOn);
  if (!window.IsOpen()) {
    std::fprintf(stderr, "no window (error %lu)\n", GetLastError());
    return 1;
  }
  MSG message = {};
  while (GetMessageW(&message, nullptr, 0, 0) > 0) {
    DispatchMessageW(&message);
  }
  LocalFree(arguments);
  return 0;
}
