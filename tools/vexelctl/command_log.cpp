#include "tools/vexelctl/commands.h"
#include "tools/vexelctl/console.h"
#include "tools/vexelctl/log_file.h"
#include "tools/vexelctl/text.h"
#include "tools/vexelctl/windows_util.h"

#include <windows.h>

#include <nlohmann/json.hpp>

#include <atomic>

namespace vexelctl {
namespace {

Colour ColourOf(const LogRecord& record) {
  if (record.level == "ERROR" || record.level == "FATAL" || record.kind == LogKind::kStartFailed) {
    return Colour::kRed;
  }
  if (record.level == "WARNING" || record.kind == LogKind::kNoLink || record.kind == LogKind::kNotRunning) {
    return Colour::kYellow;
  }
  if (record.kind == LogKind::kReceived) {
    return Colour::kGreen;
  }
  if (record.kind == LogKind::kSent) {
    return Colour::kBlue;
  }
  return Colour::kNone;
}

std::string Padded(std::string text, std::size_t width) {
  text.resize(std::max(text.size(), width), ' ');
  return text;
}

void Print(const LogRecord& record, bool isJson) {
  if (isJson) {
    nlohmann::ordered_json json;
    json["line"] = record.number;
    json["time"] = record.time;
    json["run"] = record.run;
    if (record.id.has_value()) {
      json["id"] = *record.id;
    }
    if (record.pid.has_value()) {
      json["pid"] = *record.pid;
    }
    json["thread"] = record.thread;
    json["level"] = record.level;
    json["source"] = record.source;
    json["function"] = record.function;
    json["message"] = record.message;
    if (record.kind == LogKind::kContinuation) {
      json["continued"] = true;
    }
    if (record.kind == LogKind::kQueued) {
      json["operation"] = OperationName(record.op);
    }
    PrintLine(json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
    return;
  }
  if (record.kind == LogKind::kContinuation) {
    PrintLine("    " + Printable(record.message));
    return;
  }
  const std::string id = record.id.has_value() && *record.id != 0 ? "id " + std::to_string(*record.id) : "";
  const std::string pid = record.pid.value_or(0) != 0 ? "pid " + std::to_string(*record.pid) : "";
  // The class says nothing that the function's name does not.
  const std::string function = record.function.substr(record.function.rfind(':') + 1);
  std::string message = Printable(record.message);
  if (record.kind == LogKind::kQueued) {
    message = OperationName(record.op) + Painted(Colour::kGrey, "  " + message);
  }
  PrintLine(Painted(Colour::kGrey, record.time + "  run " + std::to_string(record.run)) + "  " + Padded(id, 6) + " " +
            Padded(pid, 10) + " " + Padded(Printable(function), 20) + " " + Painted(ColourOf(record), message));
}

// Relaxed: it carries no other data with it, and seen late it costs one pass more. Set by the system's thread for Ctrl+C.
std::atomic<bool> g_isInterrupted{false};

BOOL WINAPI OnControl(DWORD) {
  g_isInterrupted.store(true, std::memory_order_relaxed);
  return TRUE;
}

int Follow(const LogOptions& options, LogSelector selector) {
  LogFile file;
  LogReader reader;
  std::string error;
  if (!file.Open(options.file, &error)) {
    return Fail(error, kExitInput);
  }
  SetConsoleCtrlHandler(OnControl, TRUE);
  const ULONGLONG start = GetTickCount64();
  while (!g_isInterrupted.load(std::memory_order_relaxed)) {
    std::string bytes;
    bool wasEmptied = false;
    if (!file.ReadMore(&bytes, &wasEmptied, &error)) {
      return Fail(error, kExitInput);
    }
    if (wasEmptied) {
      reader.FileWasEmptied();
      Warn("the log was emptied, and is read from its beginning again");
    }
    const std::vector<LogRecord> records = reader.Feed(bytes);
    if (reader.IsNoLog()) {
      return Fail("'" + options.file + "' is no log of the SDK: none of its lines begins like one", kExitInput);
    }
    for (const LogRecord& record : records) {
      selector.Learn(record);
    }
    for (const LogRecord& record : records) {
      if (selector.Wants(record)) {
        Print(record, options.isJson);
      }
    }
    if (options.forSeconds.has_value() && static_cast<double>(GetTickCount64() - start) >= *options.forSeconds * 1000) {
      break;
    }
    Sleep(100);
  }
  return kExitFine;
}

} // namespace

int RunLog(const LogOptions& options) {
  LogSelector selector({options.id, options.pid, options.run});
  if (options.isFollowing) {
    return Follow(options, selector);
  }
  std::vector<LogRecord> records;
  int runCount = 0;
  const int code = ReadWholeLog(options.file, &records, &runCount);
  if (code == kExitInput) {
    return code;
  }
  for (const LogRecord& record : records) {
    selector.Learn(record);
  }
  std::size_t count = 0;
  for (const LogRecord& record : records) {
    if (selector.Wants(record)) {
      Print(record, options.isJson);
      ++count;
    }
  }
  if (count == 0 && code == kExitFine) {
    return Fail("no line of the log fits: it holds " + std::to_string(records.size()) + " lines of " +
                    std::to_string(runCount) + (runCount == 1 ? " run" : " runs"),
                kExitProblem);
  }
  return code;
}

} // namespace vexelctl
