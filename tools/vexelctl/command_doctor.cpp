#include "tools/vexelctl/commands.h"
#include "tools/vexelctl/console.h"
#include "tools/vexelctl/param_check.h"
#include "tools/vexelctl/sdk_library.h"
#include "tools/vexelctl/switch_values.h"
#include "tools/vexelctl/windows_util.h"

#include "foundation/ini_wrapper.h"
#include "foundation/paths.h"
#include "platform/file.h"
#include "platform/process.h"
#include "public/vexelsdk/app_launch_table.h"
#include "public/vexelsdk/open_param.h"
#include "public/vexelsdk/process_inventory.h"
#include "public/vexelsdk/vexelsdk_process_util.h"

#include <windows.h>

#include <nlohmann/json.hpp>

namespace vexelctl {
namespace {

constexpr wchar_t kHostMutex[] = L"{bdbc4e79-d9a7-473f-b0bb-48ab50548842}";
constexpr const char* kPipeFunctions[] = {"CltConnectServer", "CltDisConnect", "CltComunicate", "CreatePipeSvr",
                                          "ReleasePipeSvr"};
constexpr std::int64_t kOversized = 0xA00000;

enum class Grade { kFine, kNote, kProblem };

struct Finding {
  Grade grade;
  std::string topic;
  std::string text;
  std::string remedy; // empty when nothing has to be done
};

class Doctor {
public:
  explicit Doctor(const DoctorOptions& options)
      : m_options(options), m_sdk(LibraryPath(options.sdk)),
        m_host(options.host.empty() ? ProgramPath() : FullPath(ToWide(options.host))) {}

  std::vector<Finding> Look();

private:
  void Add(Grade grade, const std::string& topic, const std::string& text, const std::string& remedy = {}) {
    m_findings.push_back({grade, topic, text, remedy});
  }
  void LookAtSdk();
  void LookAtPipeLibrary();
  void LookAtPrograms();
  void LookAtSwitches();
  void LookAtLog();
  void LookAtElevation();
  void LookAtSavedPids();
  void LookAtFirstOpen();
  bool IsServed(std::uint32_t pid) const;
  std::string WhyNotUsable(std::uint32_t pid, const std::wstring& path, bool* isForeign) const;
  std::string ProgramFault(const std::wstring& path) const;

  const DoctorOptions& m_options;
  const std::wstring m_sdk;
  const std::wstring m_host;
  std::wstring m_pipeLibrary; // empty when there is none that serves
  std::vector<Finding> m_findings;
};

std::vector<Finding> Doctor::Look() {
  Add(Grade::kFine, "host",
      ToUtf8(m_host) + (m_options.host.empty() ? " (this program; --host looks at another)" : ""));
  LookAtSdk();
  LookAtPipeLibrary();
  LookAtPrograms();
  LookAtSwitches();
  LookAtLog();
  LookAtElevation();
  LookAtSavedPids();
  LookAtFirstOpen();
  return m_findings;
}

void Doctor::LookAtSdk() {
  SdkLibrary sdk;
  std::string error;
  if (!sdk.Load(m_sdk, &error)) {
    Add(Grade::kProblem, "sdk", error,
        "put vexelsdk.dll of version " VEXELSDK_VERSION_STRING " for " + OwnMachine() +
            " there, or use the vexelctl beside it");
    return;
  }
  const std::optional<FileVersion> version = VersionOf(m_sdk);
  Add(Grade::kFine, "sdk",
      ToUtf8(m_sdk) + ", version " + (version.has_value() ? version->text : "unknown") + ", " + OwnMachine() +
          (m_options.sdk.empty() ? " (the folder of this program; --sdk names another)" : ""));
}

void Doctor::LookAtPipeLibrary() {
  // The order in which the library looks; a copy that the host has loaded already comes before both.
  const std::wstring places[] = {FolderOf(m_host), FolderOf(m_sdk)};
  std::string searched = "a copy that the host has loaded already";
  for (const std::wstring& place : places) {
    if (&place != &places[0] && _wcsicmp(place.c_str(), places[0].c_str()) == 0) {
      continue; // one folder for both, and one finding
    }
    const std::wstring path = place + kPipeLibraryName;
    searched += ", then " + ToUtf8(place);
    if (!IsFile(path)) {
      continue;
    }
    const std::string found = ToUtf8(path) + " (searched: " + searched + ")";
    const std::string machine = MachineOf(path);
    if (machine != OwnMachine()) {
      // The library goes on to the next place when the load fails.
      Add(Grade::kNote, "pipe library",
          found + " is passed over: it is " + (machine.empty() ? "no library" : "built for " + machine),
          "put vpipearm64.dll for " + OwnMachine() + " in its place");
      continue;
    }
    const HMODULE module = LoadLibraryW(path.c_str());
    if (module == nullptr) {
      Add(Grade::kNote, "pipe library",
          found + " is passed over: it cannot be loaded, " + SystemMessage(GetLastError()),
          "put a whole vpipearm64.dll in its place");
      continue;
    }
    std::string missing;
    for (const char* const name : kPipeFunctions) {
      if (GetProcAddress(module, name) == nullptr) {
        missing += (missing.empty() ? "" : ", ") + std::string(name);
      }
    }
    FreeLibrary(module);
    if (missing.empty()) {
      m_pipeLibrary = path;
      Add(Grade::kFine, "pipe library", found);
    } else {
      Add(Grade::kProblem, "pipe library", found + " lacks " + missing,
          "put the SDK's own vpipearm64.dll in its place");
    }
    return;
  }
  Add(Grade::kProblem, "pipe library",
      "vpipearm64.dll is not to be had (searched: " + searched +
          "): an open then reports \"open_pic_success\" with no picture, and a close ends the host",
      "put vpipearm64.dll into " + ToUtf8(FolderOf(m_sdk)));
}

std::string Doctor::ProgramFault(const std::wstring& path) const {
  if (!IsFile(path)) {
    return "is missing";
  }
  if (std::string why = WhyNotStartable(path); !why.empty()) {
    return why;
  }
  if (path.size() > platform::kMaxPath) {
    return "has a path of " + std::to_string(path.size()) + " letters: beyond 260 it never counts as running";
  }
  return {};
}

void Doctor::LookAtPrograms() {
  AppLaunchTable table(FolderOf(m_sdk));
  for (const std::int32_t type : {1, 2}) {
    const AppLaunchInfo info = table.GetLaunchInfoByType(type);
    const std::string topic = ToUtf8(info.m_name);
    const std::string where = " (searched: the folder of vexelsdk.dll, no other)";
    const std::string fault = ProgramFault(info.m_path);
    if (fault.empty()) {
      Add(Grade::kFine, topic,
          ToUtf8(info.m_path) + ", " + MachineOf(info.m_path) + ", application type " + std::to_string(type) + where);
    } else {
      Add(Grade::kProblem, topic, ToUtf8(info.m_path) + " " + fault + where + ": an open for it ends in silence",
          "put " + topic + " into " + ToUtf8(FolderOf(m_sdk)));
    }
  }
}

void Doctor::LookAtSwitches() {
  const SwitchValues values = ReadSwitchValues();
  const std::string key = "HKEY_CURRENT_USER\\" + ToUtf8(kSwitchesKey);
  const std::string remedy = "reg add HKCU\\" + ToUtf8(kSwitchesKey) + " /v OpenPIC_enable /t REG_DWORD /d 1 /f";
  if (!values.hasKey) {
    Add(Grade::kNote, "switches", key + " is missing: IsSupportPreview says false, GetSwitchValue -101",
        "if the host asks: " + remedy);
    return;
  }
  std::string list;
  bool isEnabled = false;
  for (const SwitchValue& value : values.values) {
    list += (list.empty() ? "" : ", ") + (value.name.empty() ? "(default)" : value.name) + " = " + value.text;
    isEnabled =
        isEnabled || (_stricmp(value.name.c_str(), "OpenPIC_enable") == 0 && value.isNumber && value.number == 1);
  }
  Add(isEnabled ? Grade::kFine : Grade::kNote, "switches",
      key + ": " + (list.empty() ? "no values" : list) + "; IsSupportPreview says " + (isEnabled ? "true" : "false"),
      isEnabled ? "" : "if the host asks: " + remedy);
}

void Doctor::LookAtLog() {
  static const char* const kNames[] = {"everything is written", "INFO and above are written",
                                       "WARNING and above are written", "ERROR and above are written"};
  const LogLevel level = ReadLogLevel();
  const std::string key = "HKEY_LOCAL_MACHINE\\" + ToUtf8(kLogLevelKey) + ", LogLevel";
  Add(Grade::kFine, "log level",
      std::to_string(level.level) + ", " + kNames[level.level] + " (" +
          (level.stored.has_value() ? key + " is " + std::to_string(*level.stored)
           : level.isLong           ? "the default: " + key + " is longer than a REG_DWORD, and does not count"
                                    : "the default: " + key + " is absent") +
          ")" +
          (level.level < 2 ? "; at this level a CloseEditor before \"open_pic_process_success\" ends the host" : ""));

  const std::wstring path = LogPathOf(m_host, m_sdk);
  const std::wstring folder = FolderOf(path);
  if (const std::wstring name = folder.substr(0, folder.size() - 1); IsFile(name)) {
    Add(Grade::kNote, "log file",
        ToUtf8(name) + " is a file, so " + ToUtf8(NameOf(path)) + " cannot be made: nothing is logged",
        "move that file away");
    return;
  }
  const HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file != INVALID_HANDLE_VALUE) {
    LARGE_INTEGER size{};
    GetFileSizeEx(file, &size);
    CloseHandle(file);
    const std::string text = ToUtf8(path) + ", " + std::to_string(size.QuadPart) + " bytes";
    if (size.QuadPart > kOversized) {
      Add(Grade::kNote, "log file", text + ": over 10 MiB, the next host to start empties it",
          "copy it first if it is still wanted");
    } else {
      Add(Grade::kFine, "log file", text);
    }
    return;
  }
  const DWORD code = GetLastError();
  if (code != ERROR_FILE_NOT_FOUND && code != ERROR_PATH_NOT_FOUND) {
    Add(Grade::kNote, "log file", ToUtf8(path) + " cannot be written, " + SystemMessage(code) + ": nothing is logged",
        "grant the host's user the right to write it");
    return;
  }
  // Whether a file could be made there: in the log's folder, or beside the host, where the library makes the folder.
  const std::wstring place = IsFolder(folder) ? folder : FolderOf(m_host);
  const std::wstring probe = place + L"vexelctl-" + std::to_wstring(GetCurrentProcessId()) + L".tmp";
  const HANDLE made = CreateFileW(probe.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                  FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
  if (made == INVALID_HANDLE_VALUE) {
    Add(Grade::kNote, "log file",
        ToUtf8(path) + " is not there and cannot be made, " + SystemMessage(GetLastError()) + ": nothing is logged",
        "make the folder " + ToUtf8(folder) + " and let the host's user write there");
    return;
  }
  CloseHandle(made);
  Add(Grade::kFine, "log file", ToUtf8(path) + ", not there yet: made at the first line");
}

void Doctor::LookAtElevation() {
  if (platform::IsUserAnAdmin()) {
    Add(Grade::kFine, "elevation",
        "this user counts as an administrator: a host started like this takes over only elevated editors");
  } else {
    Add(Grade::kFine, "elevation",
        "this user is no administrator: a host started like this takes over any editor that it can open");
  }
}

// Why the process of a saved id would not be taken over; empty when it would be.
std::string Doctor::WhyNotUsable(std::uint32_t pid, const std::wstring& path, bool* isForeign) const {
  *isForeign = false;
  const std::wstring runs = VexelSdkProcessUtil::GetProcessPath(pid);
  if (VexelSdkProcessUtil::IsPathRunning(runs.c_str(), 1) == 0) {
    return "no such process runs, or this user may not open it";
  }
  if (!VexelSdkProcessUtil::IsSamePath(runs, path)) {
    *isForeign = true;
    return "it runs " + ToUtf8(runs);
  }
  if (platform::IsUserAnAdmin() && !VexelSdkProcessUtil::IsProcessElevated(pid)) {
    return "it is not elevated, and this user is an administrator";
  }
  return {};
}

// Whether a host serves the pipe on which the process of this id sends its events. A connection that sends nothing leaves
// no trace there.
bool Doctor::IsServed(std::uint32_t pid) const {
  const HMODULE module = m_pipeLibrary.empty() ? nullptr : LoadLibraryW(m_pipeLibrary.c_str());
  if (module == nullptr) {
    return false;
  }
  // By way of a type without arguments: the compilers warn of a direct cast from FARPROC.
  const auto function = [module](const char* name) {
    return reinterpret_cast<void (*)()>(GetProcAddress(module, name));
  };
  const auto connect = reinterpret_cast<std::uint32_t (*)(const char*)>(function("CltConnectServer"));
  const auto disconnect = reinterpret_cast<void (*)(std::uint32_t)>(function("CltDisConnect"));
  SetLastError(ERROR_SUCCESS);
  const std::uint32_t connection = connect(("vexel_browser_" + std::to_string(pid)).c_str());
  const bool isServed = connection != 0 || GetLastError() == ERROR_PIPE_BUSY;
  if (connection != 0) {
    disconnect(connection);
  }
  FreeLibrary(module);
  return isServed;
}

void Doctor::LookAtSavedPids() {
  // Not by the library's own way to the file, which would make it.
  const std::wstring file =
      vx::GetSpecialFolder(platform::kCsidlLocalAppData, nullptr) + L"norvelVexel\\config_temp.ini";
  if (!IsFile(file)) {
    Add(Grade::kFine, "saved pids", ToUtf8(file) + " is not there yet: both programs would be started");
    return;
  }
  vx::ini::KIniWrapper ini;
  if (!ini.Load(file.c_str(), vx::ini::INI_UTF8, 0)) {
    Add(Grade::kNote, "saved pids",
        ToUtf8(file) + " cannot be read: both programs would be started, at each start again", "delete the file");
    return;
  }
  AppLaunchTable table(FolderOf(m_sdk));
  for (const std::int32_t type : {1, 2}) {
    const AppLaunchInfo info = table.GetLaunchInfoByType(type);
    const auto pid = static_cast<std::uint32_t>(ini.GetInt(L"common", info.m_pidKey, 0));
    const std::string topic = "saved " + ToUtf8(info.m_pidKey);
    if (pid == 0) {
      Add(Grade::kFine, topic, "none in " + ToUtf8(file) + ": " + ToUtf8(info.m_name) + " would be started");
      continue;
    }
    bool isForeign = false;
    const std::string why = WhyNotUsable(pid, info.m_path, &isForeign);
    const std::string number = std::to_string(pid) + " in " + ToUtf8(file) + ": ";
    if (why.empty() && IsServed(pid)) {
      Add(Grade::kProblem, topic,
          number + "would be taken over as the waiting " + ToUtf8(info.m_name) +
              ", and another host serves it: an open then reports \"open_pic_success\" with no picture, and a close "
              "ends the host",
          "end the other host first, or run this one with an installation in a folder of its own");
    } else if (why.empty()) {
      Add(Grade::kFine, topic, number + "would be taken over as the waiting " + ToUtf8(info.m_name));
    } else {
      Add(Grade::kFine, topic,
          number + "would not be taken over: " + why + "; " + ToUtf8(info.m_name) + " would be started" +
              (isForeign ? ", and that process left alone" : ""));
    }
  }
}

void Doctor::LookAtFirstOpen() {
  const HANDLE mutex = OpenMutexW(SYNCHRONIZE, FALSE, kHostMutex);
  if (mutex != nullptr) {
    CloseHandle(mutex);
  }
  Add(Grade::kFine, "other hosts",
      mutex != nullptr ? "a host with the SDK runs in this session: both share the saved pids"
                       : "no host with the SDK runs in this session");

  const HWND window = CreateWindowExW(0, L"STATIC", L"vexelctl", WS_OVERLAPPEDWINDOW, 0, 0, 10, 10, nullptr, nullptr,
                                      GetModuleHandleW(nullptr), nullptr);
  if (window != nullptr) {
    DestroyWindow(window);
    Add(Grade::kFine, "windows", "a window can be made");
  } else {
    Add(Grade::kProblem, "windows", "no window can be made: pictures need one",
        "run the host in a session with a display");
  }

  if (!m_options.param.empty() && !HoldsSwitches(m_options.param)) {
    Add(Grade::kNote, "parameter", kNoSwitches, "write switches such as \"/apptype:2\" as base64 text");
  }
  std::wstring param = ToWide(m_options.param);
  const std::int32_t type = DecodeOpenParam(param);
  const AppLaunchInfo info = AppLaunchTable(FolderOf(m_sdk)).GetLaunchInfoByType(type);
  const std::string which = m_options.param.empty() ? "without a parameter" : "with this parameter";
  if (info.m_name.empty()) {
    Add(Grade::kProblem, "first open",
        which + " it asks for application type " + std::to_string(type) +
            ", which is no program: the open ends in silence",
        "use \"/apptype:1\" or \"/apptype:2\" in the parameter, as base64 text");
    return;
  }
  bool isHampered = false;
  for (const Finding& finding : m_findings) {
    isHampered =
        isHampered || (finding.grade == Grade::kProblem &&
                       (finding.topic == "sdk" || finding.topic == "pipe library" || finding.topic == "windows" ||
                        finding.topic == ToUtf8(info.m_name) || finding.topic == "saved " + ToUtf8(info.m_pidKey)));
  }
  const std::string text = which + " it goes to " + ToUtf8(info.m_name) + ", application type " + std::to_string(type);
  if (isHampered) {
    Add(Grade::kProblem, "first open", text + ": it would fail, for the problems above", "mend these first");
  } else {
    Add(Grade::kFine, "first open", text + ": nothing stands in its way");
  }
}

const char* NameOf(Grade grade) { return grade == Grade::kFine ? "ok" : grade == Grade::kNote ? "note" : "problem"; }

} // namespace

int RunDoctor(const DoctorOptions& options) {
  if (!options.host.empty() && !IsFile(FullPath(ToWide(options.host)))) {
    return Fail("there is no program '" + options.host + "'", kExitInput);
  }
  if (!options.host.empty() && MachineOf(FullPath(ToWide(options.host))).empty()) {
    return Fail("'" + options.host + "' is no program", kExitInput);
  }
  const std::vector<Finding> findings = Doctor(options).Look();
  std::size_t problems = 0;
  for (const Finding& finding : findings) {
    problems += finding.grade == Grade::kProblem ? 1U : 0U;
  }
  if (options.isJson) {
    nlohmann::ordered_json json;
    json["problems"] = problems;
    json["findings"] = nlohmann::ordered_json::array();
    for (const Finding& finding : findings) {
      nlohmann::ordered_json entry;
      entry["grade"] = NameOf(finding.grade);
      entry["topic"] = finding.topic;
      entry["text"] = finding.text;
      if (!finding.remedy.empty()) {
        entry["remedy"] = finding.remedy;
      }
      json["findings"].push_back(std::move(entry));
    }
    PrintLine(json.dump(1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
    return problems == 0 ? kExitFine : kExitProblem;
  }
  for (const Finding& finding : findings) {
    const Colour colour = finding.grade == Grade::kFine   ? Colour::kGreen
                          : finding.grade == Grade::kNote ? Colour::kYellow
                                                          : Colour::kRed;
    std::string grade = NameOf(finding.grade);
    grade.resize(7, ' ');
    std::string topic = finding.topic;
    topic.resize(std::max<std::size_t>(topic.size(), 17), ' ');
    PrintLine(Painted(colour, grade) + "  " + Painted(Colour::kBold, topic) + " " + finding.text +
              (finding.remedy.empty() ? "" : Painted(colour, " -> " + finding.remedy)));
  }
  PrintLine(problems == 0   ? Painted(Colour::kGreen, "Nothing would fail.")
            : problems == 1 ? Painted(Colour::kRed, "1 problem.")
                            : Painted(Colour::kRed, std::to_string(problems) + " problems."));
  return problems == 0 ? kExitFine : kExitProblem;
}

} // namespace vexelctl
