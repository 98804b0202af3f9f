#pragma once

#include <cstdint>
#include <string>

// The texts between the SDK and an editor: what comes in as an operator message, and the events that go out.
namespace example {

/// One operator message. A field that the text lacks, or holds in another kind, keeps its value from here.
struct OperatorMessage {
  std::string type;
  std::int32_t id = 0;
  bool status = true;

  // "open"
  bool hasPath = false;
  std::wstring path;
  std::wstring param;
  std::uint64_t tabwnd = 0;
  std::int32_t openType = 0;
  bool recover = false;

  // "setpos", pixels
  std::int32_t x = 0;
  std::int32_t y = 0;
  std::int32_t w = 0;
  std::int32_t h = 0;

  bool isFullScreen = false;  // "fullscreen"
  std::int32_t themeMode = 0; // "change_theme_mode"
  std::int32_t code = 0;      // "operator" and "browser_command"
  bool closeAll = false;      // "close"
};

/// Reads an operator message. False when the text is not a JSON object with a "type"; never throws for any text.
bool ParseOperatorMessage(const char* text, OperatorMessage* message);

/// An event as one line of JSON.
std::string MakeEvent(const char* type, const std::string& param, std::int32_t id, std::uint32_t pid, bool status);

} // namespace example
