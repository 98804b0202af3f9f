#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vexelctl {

enum class CommandKind {
  kNothing, // an empty line or a comment
  kOpen,
  kReplace,
  kMove,
  kFullscreen,
  kTheme,
  kOperate,
  kCommand,
  kClose,
  kIsClosed,
  kWait,
  kExpect,
  kHelp,
  kQuit,
};

/// One command of `vexelctl open`, as a person or a script writes it.
struct Command {
  CommandKind kind = CommandKind::kNothing;
  std::optional<std::int32_t> id; // "@N" in front; nothing for the id opened last
  bool isForAll = false;          // "@all" in front
  std::string call;               // the line without what stands in front
  std::string text;               // a path, or what to expect
  std::vector<std::int32_t> numbers;
  bool isOn = false; // fullscreen on, theme dark, close all
};

/// The list of all commands, one in a line, for people.
extern const char* const kCommandHelp;

/// Reads one line. False with a sentence when it makes no sense.
bool ReadCommand(std::string_view line, Command* command, std::string* error);

} // namespace vexelctl
