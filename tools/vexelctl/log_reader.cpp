#include "tools/vexelctl/log_reader.h"

#include "tools/vexelctl/text.h"

#include <nlohmann/json.hpp>

#include <charconv>
#include <utility>

namespace vexelctl {
namespace {

using Json = nlohmann::json;

constexpr char kLauncher[] = "webvexlaunch.exe";
constexpr char kEditor[] = "vxpixeleditor.exe";

template <typename Number> bool ReadNumber(std::string_view& text, Number* number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *number);
  if (error != std::errc()) {
    return false;
  }
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return true;
}

bool Skip(std::string_view& text, std::string_view what) {
  if (!text.starts_with(what)) {
    return false;
  }
  text.remove_prefix(what.size());
  return true;
}

// The number behind the first `label`, nothing when there is none.
template <typename Number> std::optional<Number> NumberBehind(std::string_view text, std::string_view label) {
  const std::size_t at = text.find(label);
  if (at == std::string_view::npos) {
    return std::nullopt;
  }
  text.remove_prefix(at + label.size());
  Number number{};
  if (!ReadNumber(text, &number)) {
    return std::nullopt;
  }
  return number;
}

std::int64_t DaysFromCivil(std::int64_t year, std::int64_t month, std::int64_t day) {
  year -= month <= 2;
  const std::int64_t era = year / 400;
  const std::int64_t yearOfEra = year - era * 400;
  const std::int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  const std::int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return era * 146097 + dayOfEra - 719468;
}

// "2026-11-21 06:35:18"
bool ReadTime(std::string_view text, std::int64_t* second) {
  constexpr std::string_view kShape = "dddd-dd-dd dd:dd:dd";
  if (text.size() != kShape.size()) {
    return false;
  }
  std::int64_t parts[6] = {};
  std::size_t part = 0;
  for (std::size_t i = 0; i < kShape.size(); ++i) {
    if (kShape[i] != 'd') {
      if (text[i] != kShape[i]) {
        return false;
      }
      ++part;
    } else if (text[i] < '0' || text[i] > '9') {
      return false;
    } else {
      parts[part] = parts[part] * 10 + (text[i] - '0');
    }
  }
  if (parts[1] < 1 || parts[1] > 12 || parts[2] < 1 || parts[2] > 31 || parts[3] > 23 || parts[4] > 59 ||
      parts[5] > 60) {
    return false;
  }
  *second = DaysFromCivil(parts[0], parts[1], parts[2]) * 86400 + parts[3] * 3600 + parts[4] * 60 + parts[5];
  return true;
}

// "[4816 |2026-11-13 03:10:44|   INFO|file.ext:20] Name message": fills in what the line says about itself.
bool ReadHeader(std::string_view line, LogRecord* record) {
  if (!Skip(line, "[") || !ReadNumber(line, &record->thread)) {
    return false;
  }
  while (Skip(line, " ")) {
  }
  if (!Skip(line, "|")) {
    return false;
  }
  const std::size_t timeEnd = line.find('|');
  if (timeEnd == std::string_view::npos || !ReadTime(line.substr(0, timeEnd), &record->second)) {
    return false;
  }
  record->time = line.substr(0, timeEnd);
  line.remove_prefix(timeEnd + 1);
  const std::size_t levelEnd = line.find('|');
  if (levelEnd != 7) {
    return false;
  }
  record->level = Trimmed(line.substr(0, levelEnd));
  line.remove_prefix(levelEnd + 1);
  const std::size_t sourceEnd = line.find("] ");
  if (sourceEnd == std::string_view::npos || line.substr(0, sourceEnd).find(':') == std::string_view::npos) {
    return false;
  }
  record->source = line.substr(0, sourceEnd);
  line.remove_prefix(sourceEnd + 2);
  const std::size_t nameEnd = line.find(' ');
  record->function = line.substr(0, nameEnd);
  record->message = nameEnd == std::string_view::npos ? std::string() : MendWidened(line.substr(nameEnd + 1));
  return true;
}

template <typename Number> std::optional<Number> NumberOf(const Json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_number_integer()) {
    return std::nullopt;
  }
  return static_cast<Number>(found->get<std::int64_t>());
}

void ReadJson(std::string_view text, LogRecord* record) {
  if (IsNestedDeep(text)) {
    return;
  }
  const Json json = Json::parse(text, nullptr, false);
  if (!json.is_object()) {
    return;
  }
  record->id = NumberOf<std::int32_t>(json, "id");
  record->pid = NumberOf<std::uint32_t>(json, "process_id");
  if (const auto type = json.find("type"); type != json.end() && type->is_string()) {
    record->name = type->get<std::string>();
  }
  if (record->kind == LogKind::kReceived && record->name == "custom_message") {
    if (const auto param = json.find("param"); param != json.end() && param->is_string()) {
      record->name = param->get<std::string>();
    }
  }
  if (const auto status = json.find("status"); status != json.end() && status->is_boolean()) {
    record->isModified = record->name == "edit" && status->get<bool>();
  }
}

bool IsOfOperatorThread(const LogRecord& record) {
  switch (record.kind) {
  case LogKind::kPreloadRun:
  case LogKind::kOpenRun:
  case LogKind::kProgramChosen:
  case LogKind::kSlotEmpty:
  case LogKind::kSlotTaken:
  case LogKind::kPreloadInvalid:
  case LogKind::kProcessUsed:
  case LogKind::kPreloadMissing:
  case LogKind::kPreloadDone:
  case LogKind::kStarted:
  case LogKind::kStartFailed:
  case LogKind::kServerFailed:
  case LogKind::kConnectTry:
  case LogKind::kConnectFailed:
  case LogKind::kConnected:
  case LogKind::kSent:
  case LogKind::kReply:
    return true;
  default:
    return false;
  }
}

bool IsOfHost(const LogRecord& record) {
  return record.kind == LogKind::kQueued || record.kind == LogKind::kNoLink ||
         record.kind == LogKind::kCloseConnecting || record.kind == LogKind::kCloseAsks;
}

std::string FileNameIn(std::string_view path) { return std::string(path.substr(path.find_last_of("\\/") + 1)); }

} // namespace

std::string OperationName(std::int32_t op) {
  switch (op) {
  case 2:
    return "preload";
  case 3:
    return "open";
  case 4:
    return "close";
  case 5:
    return "fullscreen";
  case 7:
    return "setpos";
  case 16:
    return "operator";
  case 20:
    return "browser_command";
  case 22:
    return "change_theme_mode";
  default:
    return "op " + std::to_string(op);
  }
}

std::vector<LogRecord> LogReader::Feed(std::string_view bytes) {
  std::vector<LogRecord> records;
  while (!bytes.empty()) {
    const std::size_t end = bytes.find('\n');
    if (end == std::string_view::npos) {
      m_half += bytes;
      break;
    }
    m_half += bytes.substr(0, end);
    bytes.remove_prefix(end + 1);
    std::string_view line = m_half;
    if (line.ends_with('\r')) {
      line.remove_suffix(1);
    }
    records.push_back(Read(line));
    m_half.clear();
  }
  return records;
}

void LogReader::FileWasEmptied() {
  m_half.clear();
  m_lineCount = 0;
}

bool LogReader::IsNoLog() const {
  return !m_hasLogLine && (m_lineCount > 0 || (!m_half.empty() && m_half.front() != '['));
}

LogRecord LogReader::Read(std::string_view line) {
  LogRecord record;
  record.number = ++m_lineCount;
  if (!ReadHeader(line, &record)) {
    if (m_last.has_value()) {
      const std::size_t number = record.number;
      record = *m_last;
      record.number = number;
    }
    record.kind = LogKind::kContinuation;
    record.message = MendWidened(line);
    return record;
  }
  m_hasLogLine = true;
  Classify(record);
  AssignRun(record);
  if (record.run > 0) {
    Join(record);
  }
  m_lastKindOfThread[record.thread] = record.kind;
  m_lastOpOfThread[record.thread] = record.op;
  m_last = record;
  m_last->message.clear();
  m_last->name.clear();
  return record;
}

void LogReader::Classify(LogRecord& record) const {
  const std::string_view function = record.function;
  const std::string_view message = record.message;
  const auto is = [&](std::string_view name, std::string_view begin) {
    return function == name && message.starts_with(begin);
  };
  const auto take = [&record, message](LogKind kind, std::string_view pidLabel, std::string_view numberLabel) {
    record.kind = kind;
    if (!pidLabel.empty()) {
      record.pid = NumberBehind<std::uint32_t>(message, pidLabel);
    }
    if (!numberLabel.empty()) {
      record.value = NumberBehind<std::int64_t>(message, numberLabel).value_or(0);
    }
  };
  if (is("VexelSDKThread::DoOperator", "m_op(SDK_Operator)=")) {
    take(LogKind::kQueued, "m_pid=", "");
    record.op = NumberBehind<std::int32_t>(message, "m_op(SDK_Operator)=").value_or(-1);
    record.id = NumberBehind<std::int32_t>(message, "m_id=");
    record.pid.reset(); // the host's record names no process: the number there is always 0
  } else if (is("VexelSDKThread::DoOperator", "helper is null.")) {
    take(LogKind::kNoLink, "", "");
  } else if (is("VexelSDKThread::DoOperator", "helper is connecting.")) {
    take(LogKind::kCloseConnecting, "pid=", "");
  } else if (is("VexelSDKThread::DoOperator", "helper is modify.")) {
    take(LogKind::kCloseAsks, "", "");
  } else if (is("OperatorThreadFun", "data.m_op = SDK_PreLoadProcess")) {
    take(LogKind::kPreloadRun, "", "");
  } else if (is("OperatorThreadFun", "data.m_op = SDK_OPEN")) {
    take(LogKind::kOpenRun, "", "");
    record.id = NumberBehind<std::int32_t>(message, "m_id=");
  } else if (is("VexelSDKThread::HandleOpenProcess", "nAppType=")) {
    take(LogKind::kProgramChosen, "", "nAppType=");
    const std::size_t at = message.find("pName=");
    record.name = at == std::string_view::npos ? std::string() : std::string(message.substr(at + 6));
  } else if (is("VexelSDKThread::HandleOpenProcess", "Invalid Old Process")) {
    take(LogKind::kSlotEmpty, "", "");
  } else if (is("VexelSDKThread::HandleOpenProcess", "Reset PreLoad")) {
    take(LogKind::kSlotTaken, "", "");
  } else if (is("VexelSDKThread::HandleOpenProcess", "Preload Process Invalid.")) {
    take(LogKind::kPreloadInvalid, ", pid=", "");
    record.id = NumberBehind<std::int32_t>(message, "m_id=");
  } else if (is("VexelSDKThread::HandleOpenProcess", "Use Process ")) {
    take(LogKind::kProcessUsed, "Use Process ", "");
  } else if (is("VexelSDKThread::PreloadIfMissing", "preload process not exist")) {
    take(LogKind::kPreloadMissing, "", "");
    const std::size_t at = message.find("name=");
    record.name = at == std::string_view::npos ? std::string() : std::string(message.substr(at + 5));
  } else if (is("VexelSDKThread::CreatePreLoadProcess", "done.")) {
    take(LogKind::kPreloadDone, "pid=", "");
  } else if (is("VexelSdkProcessUtil::CreateProcessBy", "Process: ")) {
    take(LogKind::kStarted, "Process: ", "");
  } else if (is("VexelSdkProcessUtil::CreateProcessBy", "CreateProcessW failed: ")) {
    take(LogKind::kStartFailed, "", "failed: ");
  } else if (is("VexelSdkProcessUtil::IsProcessValid", "process is not running")) {
    take(LogKind::kNotRunning, "pid=", "");
  } else if (is("VexelSdkProcessUtil::IsProcessValid", "process path not match")) {
    take(LogKind::kOtherPath, "pid=", "");
  } else if (is("VexelSDKHelper::StartServer", "error occur.")) {
    take(LogKind::kServerFailed, "", "last_error=");
  } else if (is("VexelSDKHelper::ConnectServer", "try failure.")) {
    take(LogKind::kConnectTry, "pid=", "last_error=");
  } else if (is("VexelSDKHelper::ConnectServer", "failure.")) {
    take(LogKind::kConnectFailed, "pid=", "duration=");
    record.isStopped = message.find("is_stop=1") != std::string_view::npos;
  } else if (is("VexelSDKHelper::ConnectServer", "success.")) {
    take(LogKind::kConnected, "pid=", "duration=");
  } else if (is("VexelSDKHelper::WriteOperator", "data=")) {
    take(LogKind::kSent, "", "");
    ReadJson(message.substr(5), &record);
  } else if (is("VexelSDKHelper::WriteOperator", "respon=")) {
    take(LogKind::kReply, "", "");
  } else if (is("VexelSDKHelper::GetOperator", "data=")) {
    take(LogKind::kReceived, "", "");
    ReadJson(message.substr(5), &record);
  }
  if (record.kind == LogKind::kNotRunning || record.kind == LogKind::kOtherPath) {
    const std::size_t at = message.find("path=");
    record.name = at == std::string_view::npos ? std::string() : FileNameIn(message.substr(at + 5));
  }
}

int LogReader::StartRun() {
  m_runs.emplace_back();
  return static_cast<int>(m_runs.size());
}

void LogReader::AssignRun(LogRecord& record) {
  const auto latestWhere = [this](const auto& holds) {
    for (int run = RunCount(); run > 0; --run) {
      if (holds(m_runs[static_cast<std::size_t>(run) - 1])) {
        return run;
      }
    }
    return 0;
  };
  if (IsOfHost(record)) {
    const auto lastKind = m_lastKindOfThread.find(record.thread);
    const bool isBehindOpen = lastKind != m_lastKindOfThread.end() && lastKind->second == LogKind::kQueued &&
                              m_lastOpOfThread[record.thread] == 3;
    const int known = latestWhere([&](const Run& run) { return run.hostThreads.contains(record.thread); });
    const bool isInit = record.kind == LogKind::kQueued && record.op == 2 && record.id == 0 && !isBehindOpen;
    const bool isFirstOpenAgain = record.kind == LogKind::kQueued && record.op == 3 && record.id == 1 && known == 0 &&
                                  RunCount() > 0 && m_runs.back().openedIds.contains(1);
    if (isInit || isFirstOpenAgain || RunCount() == 0) {
      record.run = StartRun();
    } else {
      record.run = known != 0 ? known : RunCount();
    }
    RunOf(record).hostThreads.insert(record.thread);
    return;
  }
  if (IsOfOperatorThread(record)) {
    record.run = latestWhere([&](const Run& run) { return run.operatorThread == record.thread; });
    if (record.run != 0 && record.run + 1 == RunCount() && m_runs.back().operatorThread == 0 &&
        record.kind == LogKind::kPreloadRun && m_runs.back().openedIds.empty()) {
      // A second start of an engine that runs already: its lines go on in the run before.
      Run& before = RunOf(record);
      before.hostThreads.insert(m_runs.back().hostThreads.begin(), m_runs.back().hostThreads.end());
      m_runs.pop_back();
      return;
    }
    if (record.run == 0) {
      // The oldest run that has no such thread yet: hosts that start together run their first records in that order.
      for (int run = 1; run <= RunCount() && record.run == 0; ++run) {
        if (m_runs[static_cast<std::size_t>(run) - 1].operatorThread == 0) {
          record.run = run;
        }
      }
      if (record.run == 0) {
        record.run = StartRun();
      }
      RunOf(record).operatorThread = record.thread;
    }
    return;
  }
  if (record.kind == LogKind::kReceived) {
    record.run = latestWhere([&](const Run& run) { return run.messageThread == record.thread; });
    if (record.run == 0 && record.pid.has_value()) {
      record.run = latestWhere([&](const Run& run) { return run.pidToId.contains(*record.pid); });
    }
    if (record.run == 0) {
      record.run = latestWhere([](const Run& run) { return run.messageThread == 0; });
    }
    if (record.run == 0) {
      record.run = RunCount() > 0 ? RunCount() : StartRun();
    }
    RunOf(record).messageThread = record.thread;
    return;
  }
  // The kill list's thread, and lines that are not known: by the process, else the latest run.
  record.run = latestWhere([&](const Run& run) { return run.operatorThread == record.thread; });
  if (record.run == 0 && record.pid.has_value()) {
    record.run = latestWhere([&](const Run& run) { return run.pidToName.contains(*record.pid); });
  }
  if (record.run == 0) {
    record.run = RunCount();
  }
}

void LogReader::Join(LogRecord& record) {
  Run& run = RunOf(record);
  const bool isOperator = record.thread == run.operatorThread;
  switch (record.kind) {
  case LogKind::kQueued:
    if (record.op == 3 && record.id.has_value()) {
      run.openedIds.insert(*record.id);
    }
    return;
  case LogKind::kNoLink:
  case LogKind::kCloseConnecting:
  case LogKind::kCloseAsks:
    // Written right behind the call's own line, by the same thread.
    if (m_last.has_value() && m_last->thread == record.thread && m_last->kind == LogKind::kQueued) {
      record.id = m_last->id;
    } else if (record.pid.has_value() && run.pidToId.contains(*record.pid)) {
      record.id = run.pidToId[*record.pid];
    }
    return;
  case LogKind::kPreloadRun:
    run.currentId = 0;
    run.currentPid.reset();
    run.currentName.clear();
    run.isOpening = false;
    record.id = 0;
    return;
  case LogKind::kOpenRun:
    run.currentId = record.id;
    run.currentPid.reset();
    run.currentName.clear();
    run.isOpening = true;
    return;
  case LogKind::kProgramChosen:
  case LogKind::kPreloadMissing:
    run.currentName = record.name;
    break;
  case LogKind::kStarted:
    run.currentPid = record.pid;
    if (record.pid.has_value()) {
      const std::string byOrder = run.preloadsDone == 0 ? kLauncher : kEditor;
      record.name = run.currentName.empty() ? byOrder : run.currentName;
      run.pidToName[*record.pid] = record.name;
    }
    break;
  case LogKind::kPreloadDone:
    if (record.pid.value_or(0) != 0) {
      const std::string byOrder = run.preloadsDone == 0 ? kLauncher : kEditor;
      record.name = run.currentName.empty() ? byOrder : run.currentName;
      run.pidToName[*record.pid] = record.name;
    }
    if (run.currentName.empty()) {
      ++run.preloadsDone;
    }
    run.currentName.clear();
    break;
  case LogKind::kProcessUsed:
    run.isOpening = false;
    run.currentPid = record.pid;
    if (record.pid.value_or(0) != 0 && run.currentId.has_value()) {
      run.pidToId[*record.pid] = *run.currentId;
      record.name = run.currentName;
      if (!run.currentName.empty()) {
        run.pidToName[*record.pid] = run.currentName;
      }
    }
    break;
  case LogKind::kSent:
    record.isInner = isOperator && run.isOpening;
    if (record.isInner) {
      record.id = run.currentId; // the open that this belongs to, whatever the old link was last opened for
      return;
    }
    run.currentId = record.id;
    run.currentPid = record.pid;
    return;
  case LogKind::kReply:
    record.id = run.currentId;
    if (m_last.has_value() && m_last->thread == record.thread && m_last->kind == LogKind::kSent) {
      record.pid = m_last->pid;
      record.isInner = m_last->isInner;
    } else {
      record.pid = run.currentPid;
    }
    return;
  case LogKind::kReceived:
    if (!record.id.has_value() && record.pid.has_value() && run.pidToId.contains(*record.pid)) {
      record.id = run.pidToId[*record.pid];
    }
    return;
  default:
    break;
  }
  if (isOperator && !record.id.has_value()) {
    if (record.kind == LogKind::kConnectTry || record.kind == LogKind::kConnectFailed ||
        record.kind == LogKind::kConnected) {
      const auto found = record.pid.has_value() ? run.pidToId.find(*record.pid) : run.pidToId.end();
      record.id = found != run.pidToId.end() ? std::optional<std::int32_t>(found->second) : run.currentId;
    } else {
      record.id = run.currentId;
    }
  } else if (!isOperator && record.pid.has_value() && !record.id.has_value()) {
    if (const auto found = run.pidToId.find(*record.pid); found != run.pidToId.end()) {
      record.id = found->second;
    }
  }
}

void LogSelector::Learn(const LogRecord& record) {
  if (m_filter.id.has_value() && record.kind == LogKind::kProcessUsed && record.id == m_filter.id &&
      record.pid.value_or(0) != 0) {
    m_pidsOfId.insert({record.run, *record.pid});
  }
}

bool LogSelector::Wants(const LogRecord& record) const {
  if (m_filter.run.has_value() && record.run != *m_filter.run) {
    return false;
  }
  if (m_filter.pid.has_value() && record.pid != m_filter.pid) {
    return false;
  }
  if (m_filter.id.has_value() && record.id != m_filter.id) {
    return record.pid.has_value() && m_pidsOfId.contains({record.run, *record.pid});
  }
  return true;
}

} // namespace vexelctl
