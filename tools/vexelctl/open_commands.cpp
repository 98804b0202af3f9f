#include "tools/vexelctl/open_host.h"

#include <utility>

#include "tools/vexelctl/console.h"
#include "tools/vexelctl/guarded_close.h"
#include "tools/vexelctl/windows_util.h"

// What OpenHost does for each line of its standard input.
namespace vexelctl {

// What the script is to be replayed with.
void OpenHost::BeginRecord() {
  std::string command = "vexelctl open";
  for (const std::string& picture : m_options.pictures) {
    command += " \"" + picture + "\"";
  }
  if (m_options.openType != OpenOptions().openType) {
    command += " --type " + std::to_string(m_options.openType);
  }
  if (m_options.param.has_value()) {
    command += " --param " + *m_options.param;
  }
  if (m_options.app.has_value()) {
    command += " --app " + std::to_string(*m_options.app);
  }
  if (m_options.limitSeconds != OpenOptions().limitSeconds) {
    char limit[32];
    std::snprintf(limit, sizeof limit, " --limit %g", m_options.limitSeconds);
    command += limit;
  }
  if (m_options.isWithoutMove) {
    command += " --no-move";
  }
  std::fprintf(m_record, "# %s\n", command.c_str());
  std::fflush(m_record);
}

void OpenHost::Record(const std::string& line) {
  if (m_record == nullptr) {
    return;
  }
  const std::int64_t now = m_output.Now();
  if (now > m_recordedAt) {
    std::fprintf(m_record, "wait %lld\n", static_cast<long long>(now - m_recordedAt));
  }
  m_recordedAt = now;
  std::fprintf(m_record, "%s\n", line.c_str());
  std::fflush(m_record);
}

void OpenHost::HandleLines() {
  while (!m_isEnding) {
    const std::int64_t now = m_output.Now();
    if (m_waitUntil >= 0) {
      if (now < m_waitUntil) {
        return;
      }
      m_waitUntil = -1;
    }
    while (!m_expectedIds.empty()) {
      const std::int32_t id = m_expectedIds.front();
      std::deque<std::string>& events = m_unexpected[id];
      bool isFound = false;
      while (!events.empty() && !isFound) {
        isFound = events.front().find(m_expected) != std::string::npos;
        events.pop_front();
      }
      const auto expecting = m_pictures.find(id);
      const bool isHopeless = expecting != m_pictures.end() && expecting->second.isLate && m_sdk.isClose(id);
      if (!isFound && now < m_expectUntil && !isHopeless) {
        return;
      }
      if (!isFound) {
        m_hasFailed = true;
        m_output.Note(id, "no event with '" + m_expected + "' has come");
      }
      m_expectedIds.pop_front();
      m_recordedAt = now; // a replay waits for the event, and not for as long as this one took
    }
    std::string line;
    {
      const std::lock_guard<std::mutex> guard(m_lock);
      if (m_lines.empty()) {
        return;
      }
      line = std::move(m_lines.front());
      m_lines.pop_front();
    }
    Command command;
    std::string error;
    if (!ReadCommand(line, &command, &error)) {
      m_hasFailed = true;
      Warn(error);
      continue;
    }
    if (command.kind != CommandKind::kNothing) {
      m_hasCommand = true;
      if (command.kind != CommandKind::kWait) {
        Record(line);
      }
      Execute(command);
    }
  }
}

std::vector<std::int32_t> OpenHost::Targets(const Command& command) {
  std::vector<std::int32_t> ids;
  if (command.isForAll) {
    for (const auto& [id, picture] : m_pictures) {
      ids.push_back(id);
    }
  } else {
    ids.push_back(command.id.value_or(m_lastId));
  }
  if (ids.empty() || ids.front() == 0 || (command.id.has_value() && !m_pictures.contains(*command.id))) {
    m_hasFailed = true;
    Warn(command.id.has_value() ? "there is no id " + std::to_string(*command.id) : "no picture is open");
    ids.clear();
  }
  return ids;
}

void OpenHost::Execute(const Command& command) {
  switch (command.kind) {
  case CommandKind::kQuit:
    BeginEnd("quit");
    return;
  case CommandKind::kHelp:
    PrintText(kCommandHelp);
    return;
  case CommandKind::kWait:
    m_waitUntil = m_output.Now() + command.numbers[0];
    return;
  case CommandKind::kTheme:
    m_sdk.changeThemeMode(command.isOn);
    m_output.Call(0, command.call, nullptr);
    return;
  case CommandKind::kOpen: {
    const std::wstring path = FullPath(ToWide(command.text));
    if (!IsFile(path)) {
      m_hasFailed = true;
      Warn("there is no picture '" + command.text + "'");
    } else if (const HWND window = MakeWindow(path); window != nullptr) {
      OpenIn(window, path);
    } else {
      m_hasFailed = true;
      Warn("no window can be made: is there a display?");
    }
    return;
  }
  default:
    break;
  }
  for (const std::int32_t id : Targets(command)) {
    const bool isOperation = command.kind == CommandKind::kMove || command.kind == CommandKind::kFullscreen ||
                             command.kind == CommandKind::kOperate || command.kind == CommandKind::kCommand;
    if (isOperation && !m_gate.IsReady(id)) {
      m_output.Note(id,
                    "no \"open_pic_process_success\" yet: the SDK drops this call, or gives it to the editor before");
    }
    const std::vector<std::int32_t>& numbers = command.numbers;
    switch (command.kind) {
    case CommandKind::kMove:
      m_sdk.setWindowsPos(id, numbers[0], numbers[1], numbers[2], numbers[3]);
      m_output.Call(id, command.call, nullptr);
      break;
    case CommandKind::kFullscreen:
      m_sdk.fullScreen(id, command.isOn);
      m_output.Call(id, command.call, nullptr);
      break;
    case CommandKind::kOperate:
      m_output.Call(id, command.call, m_sdk.operatePic(id, numbers[0]));
      break;
    case CommandKind::kCommand:
      m_output.Call(id, command.call, m_sdk.doBrowserCommand(id, numbers[0]));
      break;
    case CommandKind::kIsClosed:
      m_output.Call(id, command.call, m_sdk.isClose(id));
      break;
    case CommandKind::kClose:
      AskClose(id, command.isOn);
      break;
    case CommandKind::kExpect:
      m_expected = command.text;
      m_expectedIds.push_back(id);
      m_expectUntil = m_output.Now() + static_cast<std::int64_t>(m_options.limitSeconds * 1000);
      break;
    case CommandKind::kReplace: {
      const std::wstring path = FullPath(ToWide(command.text));
      if (!IsFile(path)) {
        m_hasFailed = true;
        Warn("there is no picture '" + command.text + "'");
      } else if (m_pictures[id].window == nullptr) {
        m_hasFailed = true;
        Warn("the window of id " + std::to_string(id) + " is gone");
      } else {
        OpenIn(m_pictures[id].window, path);
      }
      break;
    }
    default:
      break;
    }
  }
}

void OpenHost::AskClose(std::int32_t id, bool closeAll) {
  switch (m_gate.Ask(id, closeAll, GetModuleHandleW(kPipeLibraryName) != nullptr)) {
  case CloseGate::Answer::kNow:
    CloseNow(id, closeAll);
    break;
  case CloseGate::Answer::kHeld:
    m_output.Note(
        id, "close kept back: before \"open_pic_process_success\" it would end the host; it goes out when that comes");
    break;
  case CloseGate::Answer::kNoLink:
    m_hasFailed = true;
    m_output.Note(id, "close left out: without vpipearm64.dll the id has no link, and the close would end the host");
    m_pictures[id].isClosed = true;
    break;
  case CloseGate::Answer::kUnknown:
    m_output.Note(id, "close left out: the id was never given out, and the close would end the host");
    break;
  }
}

void OpenHost::CloseNow(std::int32_t id, bool closeAll) {
  const bool asksUser =
      CloseGuarded(m_sdk, id, closeAll,
                   "the close met id " + std::to_string(id) +
                       " without a link, which ends a host: another host serves its process, or the pipe library could "
                       "not serve; see " +
                       ToUtf8(LogPathOf(ProgramPath(), VEXELSDK_LIBRARY_NAME)) + ", and 'vexelctl doctor'");
  Picture& picture = m_pictures[id];
  picture.asksUser = asksUser;
  picture.isClosed = !asksUser;
  m_output.Call(id, closeAll ? "close all" : "close", asksUser);
  if (asksUser) {
    m_output.Note(id, "the editor holds unsaved changes and asks its user; \"finish_operator\" tells when it is done");
  } else {
    DropWindow(id, picture);
  }
}

} // namespace vexelctl
