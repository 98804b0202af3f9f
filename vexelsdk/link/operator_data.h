#pragma once

#include <cstdint>
#include <string>

/// What to do. The numbers are fixed: they are what the message table works on.
enum SDK_Operator : std::int32_t {
  SDK_NONE = 0,
  SDK_TESTSERVER = 1,
  SDK_PreLoadProcess = 2,
  SDK_OPEN = 3,
  SDK_CLOSE = 4,
  SDK_FULLSCREEN = 5,
  SDK_RESERVED6 = 6,
  SDK_SETPOS = 7,
  SDK_OPEN_BARE = 8,
  SDK_CLOSE_ALT = 9,
  SDK_FULLSCREEN_ALT = 10,
  SDK_EDIT = 11,
  SDK_SAVEAS = 12,
  SDK_SHOW_SIDEBAR = 13,
  SDK_RUN_ERROR = 14,
  SDK_CUSTOM_MESSAGE = 15,
  SDK_OPERATE = 16,
  SDK_FINISH_OPERATOR = 17,
  SDK_PROCESS_EXIT = 18,
  SDK_CANCEL_PROCESS_EXIT = 19,
  SDK_BROWSER_COMMAND = 20,
  SDK_RESERVED21 = 21,
  SDK_CHANGE_THEME = 22,
};

/// A window's place and size in pixels.
struct SDK_Rect {
  std::int32_t x = 0;
  std::int32_t y = 0;
  std::int32_t w = 0;
  std::int32_t h = 0;
};

/// The one unit of work: an export fills it in, the queue carries a copy, the link turns it into a message. A plain
/// value that owns its two texts and points nowhere; `m_tabwnd` is a number here.
struct SDK_OperatorData {
  SDK_Operator m_op = SDK_NONE;
  std::uint32_t m_pid = 0;      // the editor process it goes to: the engine's word, never an export's
  std::int32_t m_id = 0;        // the editor id, 0 for a record about no editor
  std::int32_t m_type = 0;      // the operation's second number: open type, operator code, command code
  bool m_status = true;         // "status" of every message, and "isFullScreen"
  bool m_closeAll = false;      // "closeall"
  bool m_recover = false;       // "recover"; nothing sets it
  std::int32_t m_themeMode = 0; // "theme_mode": 1 or 2
  std::int32_t m_flag = 1;      // travels with the record; nothing reads it
  std::wstring m_path;          // the picture
  std::wstring m_param;         // the open parameter
  std::uintptr_t m_tabwnd = 0;  // the host's window
  SDK_Rect m_rect;
};
