#include "tools/vexelctl/script.h"

#include "tools/vexelctl/text.h"

#include <charconv>

namespace vexelctl {
namespace {

// How the numbers behind a command's name are counted.
struct Shape {
  const char* name;
  CommandKind kind;
  std::size_t least;
  std::size_t most;
  const char* usage;
};

constexpr Shape kShapes[] = {
    {"move", CommandKind::kMove, 4, 4, "move X Y W H"},
    {"operate", CommandKind::kOperate, 1, 1, "operate CODE"},
    {"command", CommandKind::kCommand, 1, 1, "command CODE"},
    {"wait", CommandKind::kWait, 1, 1, "wait MS"},
    {"isclosed", CommandKind::kIsClosed, 0, 0, "isclosed"},
    {"help", CommandKind::kHelp, 0, 0, "help"},
    {"quit", CommandKind::kQuit, 0, 0, "quit"},
};

std::string_view TakeWord(std::string_view* line) {
  *line = Trimmed(*line);
  const std::size_t end = line->find_first_of(" \t");
  const std::string_view word = line->substr(0, end);
  *line = end == std::string_view::npos ? std::string_view() : Trimmed(line->substr(end));
  return word;
}

bool ReadInt(std::string_view word, std::int32_t* number) {
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), *number);
  return error == std::errc() && end == word.data() + word.size();
}

std::string Unquoted(std::string_view text) {
  if (text.size() >= 2 && text.front() == '"' && text.back() == '"') {
    text = text.substr(1, text.size() - 2);
  }
  return std::string(text);
}

bool Wrong(const char* usage, std::string* error) {
  *error = std::string("write it as '") + usage + "'";
  return false;
}

bool GoesToIds(CommandKind kind) {
  switch (kind) {
  case CommandKind::kOpen:
  case CommandKind::kTheme:
  case CommandKind::kWait:
  case CommandKind::kHelp:
  case CommandKind::kQuit:
    return false;
  default:
    return true;
  }
}

// Reads what stands behind the target.
bool ReadCall(std::string_view line, Command* command, std::string* error) {
  const std::string_view name = TakeWord(&line);
  for (const Shape& shape : kShapes) {
    if (name != shape.name) {
      continue;
    }
    command->kind = shape.kind;
    while (!line.empty()) {
      std::int32_t number = 0;
      if (!ReadInt(TakeWord(&line), &number)) {
        return Wrong(shape.usage, error);
      }
      command->numbers.push_back(number);
    }
    if (command->numbers.size() < shape.least || command->numbers.size() > shape.most ||
        (shape.kind == CommandKind::kWait && command->numbers[0] < 0)) {
      return Wrong(shape.usage, error);
    }
    return true;
  }
  if (name == "open" || name == "replace" || name == "expect") {
    command->kind = name == "open"      ? CommandKind::kOpen
                    : name == "replace" ? CommandKind::kReplace
                                        : CommandKind::kExpect;
    command->text = command->kind == CommandKind::kExpect ? std::string(line) : Unquoted(line);
    return !command->text.empty() || Wrong(name == "open"      ? "open PICTURE"
                                           : name == "replace" ? "replace PICTURE"
                                                               : "expect TEXT",
                                           error);
  }
  if (name == "fullscreen") {
    command->kind = CommandKind::kFullscreen;
    command->isOn = line.empty() || line == "on";
    return command->isOn || line == "off" || Wrong("fullscreen [on|off]", error);
  }
  if (name == "theme") {
    command->kind = CommandKind::kTheme;
    command->isOn = line == "dark";
    return command->isOn || line == "light" || Wrong("theme dark|light", error);
  }
  if (name == "close") {
    command->kind = CommandKind::kClose;
    command->isOn = line == "all";
    return command->isOn || line.empty() || Wrong("close [all]", error);
  }
  *error = name.empty() ? "a command is missing behind the id"
                        : "'" + std::string(name) + "' is no command; 'help' lists them";
  return false;
}

} // namespace

const char* const kCommandHelp = "  move X Y W H          where the editor shows itself, in pixels\n"
                                 "  fullscreen [on|off]   cover the screen, or go back into the window\n"
                                 "  theme dark|light      all editors that are open\n"
                                 "  operate CODE          an operation on the picture\n"
                                 "  command CODE          a command of the browser\n"
                                 "  close [all]           close the editor; kept back until it has its process\n"
                                 "  isclosed              whether the id is closed\n"
                                 "  open PICTURE          another picture, in a window of its own\n"
                                 "  replace PICTURE       another picture in the same window\n"
                                 "  wait MS               go on with the next command after so many milliseconds\n"
                                 "  expect TEXT           go on when an event of the id holds this text\n"
                                 "  quit                  close what is open, and leave\n"
                                 "  help                  this list\n"
                                 "A command goes to the picture that was opened last, with '@ID' in front to that id,\n"
                                 "and with '@all' to every id; open, theme, wait, quit and help go to none.\n"
                                 "Empty lines and lines that begin with # are passed over.\n";

bool ReadCommand(std::string_view line, Command* command, std::string* error) {
  *command = Command();
  line = Trimmed(line);
  if (line.starts_with("\xEF\xBB\xBF")) {
    line = Trimmed(line.substr(3)); // a script that an editor has saved with its mark
  }
  if (line.empty() || line.front() == '#') {
    return true;
  }
  if (line.front() == '@') {
    const std::string_view target = TakeWord(&line).substr(1);
    std::int32_t id = 0;
    if (target == "all") {
      command->isForAll = true;
    } else if (ReadInt(target, &id) && id > 0) {
      command->id = id;
    } else {
      *error = "'@" + std::string(target) + "' is no id: write @ and a number, or @all";
      return false;
    }
  }
  command->call = line;
  if (!ReadCall(line, command, error)) {
    return false;
  }
  if ((command->isForAll || command->id.has_value()) && !GoesToIds(command->kind)) {
    *error = "'" + std::string(TakeWord(&line)) + "' goes to no id: write it without @";
    return false;
  }
  return true;
}

} // namespace vexelctl
