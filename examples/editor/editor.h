#pragma once

#include "examples/editor/event_channel.h"
#include "examples/editor/operator_message.h"
#include "examples/editor/picture.h"
#include "examples/editor/zoo.h"

#include <windows.h>

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace example {

/// The codes that this editor gives to the host's OperatePic.
enum class OperatorCode : std::int32_t {
  kRotateRight = 1,
  kRotateLeft = 2,
  kFlip = 3,
  kZoomIn = 4,
  kZoomOut = 5,
  kFit = 6,
  kMarkSaved = 7,
};

/// What the user wants done with unsaved changes.
enum class Answer { kNone, kSave, kDiscard, kCancel };

/// Settings from the environment.
struct EditorOptions {
  std::int64_t idleMs = 600'000;
  Answer answer = Answer::kNone;
  std::wstring snapshot;
};

/// One editor: the picture, its window and what it tells the SDK. Everything but Hand runs on the thread that made it.
class Editor {
public:
  /// Keeps a reference to the channel.
  Editor(EventChannel& events, const Zoo& zoo, EditorOptions options);
  ~Editor();
  Editor(const Editor&) = delete;
  Editor& operator=(const Editor&) = delete;

  /// Makes the window that takes the messages. False when not even that is possible.
  bool Create();

  /// Takes a message over for the editor's own thread. Any thread; does not wait for it to be carried out.
  void Hand(OperatorMessage message);

  /// Runs until the editor leaves, with all its events posted to the channel.
  void Run();

private:
  static LRESULT CALLBACK ControlProc(HWND window, UINT message, WPARAM wide, LPARAM extra);
  static LRESULT CALLBACK PictureProc(HWND window, UINT message, WPARAM wide, LPARAM extra);

  void DrainMessages();
  void Handle(const OperatorMessage& message);
  void Open(const OperatorMessage& message);
  void SaveAs(const OperatorMessage& message);
  void Operate(OperatorCode code);
  void Close(bool mayAsk);
  void Decide(Answer answer);
  void Leave();
  void Watch();
  void MisbehaveAfterOpen();

  void SetModified(bool modified);
  void Send(const char* type, const std::string& param, bool status);

  bool HasHost() const;
  void MakeWindow();
  void Place();
  RECT Target() const;
  void Refresh();
  void Paint();
  void DrawPicture(Gdiplus::Graphics& graphics, Gdiplus::RectF area);
  void DrawStatus(Gdiplus::Graphics& graphics, Gdiplus::RectF bar);
  void DrawQuestion(Gdiplus::Graphics& graphics, Gdiplus::RectF area);
  void Click(int x, int y);

  EventChannel& m_events;
  const Zoo m_zoo;
  const EditorOptions m_options;
  HWND m_control = nullptr;
  HWND m_window = nullptr;

  std::mutex m_lock;
  std::vector<OperatorMessage> m_messages; // m_lock

  std::int32_t m_id = 0;
  bool m_isOpen = false;
  bool m_isModified = false;
  bool m_isLeaving = false;
  bool m_isAsking = false;
  bool m_isShownReported = false;
  bool m_saveFailed = false;
  ULONGLONG m_lastMessage = 0; // milliseconds since the system's start

  HWND m_host = nullptr;
  DWORD m_hostPid = 0;
  bool m_hasRect = false;
  RECT m_rect{}; // pixels, relative to the host window's client area
  RECT m_placed{};
  bool m_isFullScreen = false;
  bool m_isDark = false;
  bool m_isRecovered = false;
  float m_zoom = 1.0F; // 1 fits the window

  std::wstring m_path;
  Picture m_picture;
  std::unique_ptr<Gdiplus::Bitmap> m_canvas;
  std::array<Gdiplus::RectF, 3> m_buttons{};
};

} // namespace example
