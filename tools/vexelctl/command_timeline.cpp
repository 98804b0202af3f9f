#include "tools/vexelctl/commands.h"
#include "tools/vexelctl/console.h"
#include "tools/vexelctl/log_file.h"
#include "tools/vexelctl/timeline.h"
#include "tools/vexelctl/windows_util.h"

#include <windows.h>

#include <nlohmann/json.hpp>

namespace vexelctl {
namespace {

bool EndsWith(const std::string& text, const char* end) {
  const std::wstring wide = ToWide(text);
  const std::wstring wideEnd = ToWide(end);
  return wide.size() >= wideEnd.size() && _wcsicmp(wide.c_str() + wide.size() - wideEnd.size(), wideEnd.c_str()) == 0;
}

bool WriteWhole(const std::string& path, const std::string& text, std::string* error) {
  const HANDLE file =
      CreateFileW(ToWide(path).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  DWORD done = 0;
  const bool isWritten = file != INVALID_HANDLE_VALUE &&
                         WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &done, nullptr) != 0 &&
                         done == text.size();
  if (!isWritten) {
    *error = "'" + path + "' cannot be written, " + SystemMessage(GetLastError());
  }
  if (file != INVALID_HANDLE_VALUE) {
    CloseHandle(file);
  }
  return isWritten;
}

} // namespace

int RunTimeline(const TimelineOptions& options) {
  const bool isSvg = EndsWith(options.output, ".svg");
  if (!isSvg && !EndsWith(options.output, ".json")) {
    return Fail("'" + options.output + "' must end in .svg for a picture or in .json for a trace viewer", kExitUsage);
  }
  std::vector<LogRecord> records;
  int runCount = 0;
  const int code = ReadWholeLog(options.file, &records, &runCount);
  if (code == kExitInput) {
    return code;
  }
  if (options.run > runCount) {
    return Fail("there is no run " + std::to_string(options.run) + ": the log holds " + std::to_string(runCount) +
                    (runCount == 1 ? " run" : " runs"),
                kExitProblem);
  }
  const Timeline timeline = LayOut(records, options.run);
  if (timeline.lanes.empty()) {
    return Fail("the log tells of no window and no process, so there is nothing to draw; at a log level of 2 or more "
                "the lines that tell of them are not written",
                kExitInput);
  }
  const std::string title = ToUtf8(NameOf(ToWide(options.file)));
  const std::string day = DateText(timeline.begin / 1000000);
  std::string error;
  const std::string text = isSvg ? TimelineSvg(timeline, title + ", " + day) : TimelineTrace(timeline, title);
  if (!WriteWhole(options.output, text, &error)) {
    return Fail(error, kExitInput);
  }
  std::size_t windows = 0;
  std::size_t processes = 0;
  for (const TimelineLane& lane : timeline.lanes) {
    windows += lane.kind == LaneKind::kWindow ? 1U : 0U;
    processes += lane.kind == LaneKind::kProcess ? 1U : 0U;
  }
  if (options.isJson) {
    nlohmann::ordered_json json;
    json["output"] = options.output;
    json["runs"] = runCount;
    json["windows"] = windows;
    json["processes"] = processes;
    PrintLine(json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
  } else {
    PrintLine(options.output + ": " + std::to_string(windows) + (windows == 1 ? " window, " : " windows, ") +
              std::to_string(processes) + (processes == 1 ? " process" : " processes"));
  }
  return code;
}

} // namespace vexelctl
