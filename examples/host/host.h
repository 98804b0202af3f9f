#pragma once

#include "examples/common/drawing.h"
#include "examples/host/output.h"
#include "examples/host/sdk.h"

#include <windows.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace example {

/// What the command line asks for.
struct HostOptions {
  std::vector<std::wstring> pictures; // full paths
  std::wstring shot;                  // file for a screenshot, empty for none
  std::wstring param;
  bool hasParam = false;
  std::int32_t openType = 1;
  std::int64_t limitMs = 0; // 0 for none
  std::deque<std::string> script;
};

/// A window with tabs, each of which shows one picture through the SDK. Everything but Command and the SDK's callback
/// runs on the thread that made it.
class Host {
public:
  /// Keeps references to both.
  Host(const Sdk& sdk, Output& output, HostOptions options);
  ~Host();
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  /// Makes the window. False when that is not possible, as without a display.
  bool Create();

  /// Runs until the window is closed and the SDK has ended. True when every picture was shown.
  bool Run();

  /// Appends a command, as in a script. Any thread.
  void Command(std::string command);

private:
  enum class TabState { kWaiting, kOpening, kShown, kFailed, kCrashed };

  struct Tab {
    std::wstring path;
    HWND window = nullptr;
    std::int32_t id = 0;
    std::uint32_t pid = 0; // of the editor, 0 before its first event
    TabState state = TabState::kWaiting;
    bool isReady = false; // operations on the id reach an editor
    bool wasShown = false;
    bool isModified = false;    // unsaved changes
    bool isCloseWanted = false; // to be closed as soon as it is ready
    ULONGLONG since = 0;        // of the open, milliseconds since the system's start
  };

  struct Button {
    const wchar_t* label;
    const char* command;
    Gdiplus::RectF box;
  };

  /// What a callback needs to know, alive until the SDK has ended.
  struct Subscription {
    Host* host;
    std::int32_t id;
  };

  struct HostEvent {
    std::int32_t id;
    EventInfo info;
  };

  struct OldWindow {
    HWND window;
    ULONGLONG since;
  };

  static void OnSdkEvent(char* text, void* data);
  static LRESULT CALLBACK WindowProc(HWND window, UINT message, WPARAM wide, LPARAM extra);
  static LRESULT CALLBACK TabProc(HWND window, UINT message, WPARAM wide, LPARAM extra);

  void Tick();
  ULONGLONG OpenLimit() const;
  void Handle(const HostEvent& event);
  void RunCommands();
  bool RunCommand(const std::string& command);
  void Key(WPARAM key);
  void Click(int x, int y);

  Tab* ActiveTab();
  Tab* TabOfId(std::int32_t id);
  Tab* TabOfWindow(HWND window);
  void AddTab(const std::wstring& path);
  void OpenTab(Tab& tab);
  void SelectTab(std::size_t index);
  void CloseTab(Tab& tab);
  void RemoveTab(const Tab& tab);
  void SettleTab(Tab& tab, TabState state);
  bool IsSettled() const;
  void Operate(std::int32_t code);
  void SetDark(bool dark);
  void SetFullScreen(bool on);

  RECT TabArea() const;
  void Layout();
  void PlaceEditors();
  void TakeShot(const std::wstring& path);
  bool IsPictureOnScreen(ULONGLONG now);
  void Quit();
  void EndSdk();
  void Redraw();
  void Paint();
  void DrawStrip(Gdiplus::Graphics& graphics, float width);
  void PaintTab(const Tab& tab);

  const Sdk& m_sdk;
  Output& m_output;
  const HostOptions m_options;
  HWND m_window = nullptr;
  std::vector<std::unique_ptr<Tab>> m_tabs;
  std::vector<std::unique_ptr<Subscription>> m_subscriptions;
  std::vector<OldWindow> m_oldWindows;
  std::vector<Gdiplus::RectF> m_tabBoxes;
  std::vector<Button> m_buttons;
  std::size_t m_active = 0;
  bool m_isDark = false;
  bool m_isFullScreen = false;
  bool m_isPlaceDue = false;
  bool m_isQuitting = false;
  bool m_isShotDone = false;
  bool m_isSceneMissing = false;
  bool m_isFirstRoundOver = false;
  bool m_isLimitReached = false;
  bool m_isEnding = false;
  std::size_t m_shown = 0;
  std::size_t m_pictures = 0;
  ULONGLONG m_start = 0;
  ULONGLONG m_settledSince = 0;
  ULONGLONG m_waitUntil = 0;
  std::vector<std::uint32_t> m_scene; // the pixels of the last look, empty without the selected picture
  ULONGLONG m_sceneSince = 0;         // of the last change of them
  ULONGLONG m_sceneLook = 0;

  std::mutex m_lock;
  std::deque<std::string> m_commands; // m_lock
};

} // namespace example
