#include "tests/windows/sdk/host_process.h"

#include "tests/windows/host/wire.h"
#include "tests/windows/sdk/text.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <iterator>

namespace sdktest {
namespace {

constexpr std::chrono::seconds kAnswerLimit{60};
constexpr DWORD kExitLimitMs = 60000;
constexpr std::int64_t kNoNumber = -1000000;

/// This process's environment with some variables more, in the form that a start takes.
std::wstring EnvironmentBlock(const std::map<std::wstring, std::wstring>& more) {
  std::map<std::wstring, std::wstring> variables;
  wchar_t* const own = GetEnvironmentStringsW();
  for (const wchar_t* entry = own; *entry != L'\0'; entry += std::wstring(entry).size() + 1) {
    const std::wstring text = entry;
    const std::size_t equals = text.find(L'=', 1);
    variables[text.substr(0, equals)] = text.substr(equals + 1);
  }
  FreeEnvironmentStringsW(own);
  for (const auto& [name, value] : more) {
    variables[name] = value;
  }
  std::wstring block;
  for (const auto& [name, value] : variables) {
    block += name + L"=" + value;
    block += L'\0';
  }
  block += L'\0';
  return block;
}

/// A pipe of which the host inherits one end.
void MakePipe(HANDLE& read, HANDLE& write, HANDLE& own) {
  SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
  ASSERT_TRUE(CreatePipe(&read, &write, &inherited, 0));
  ASSERT_TRUE(SetHandleInformation(own, HANDLE_FLAG_INHERIT, 0));
}

} // namespace

bool Event::IsParam(const std::string& param) const { return Contains(text, "\"param\":\"" + param + "\""); }

HostProcess::HostProcess(const TestFolder& folder, const std::map<std::wstring, std::wstring>& environment) {
  HANDLE input = nullptr;
  HANDLE output = nullptr;
  MakePipe(input, m_input, m_input);
  MakePipe(m_output, output, m_output);
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = input;
  startup.hStdOutput = output;
  startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
  PROCESS_INFORMATION child{};
  std::wstring command = L"\"" + folder.Path() + L"testhost.exe\" " + folder.RegistryKey();
  std::wstring block = EnvironmentBlock(environment);
  EXPECT_TRUE(CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, CREATE_UNICODE_ENVIRONMENT, block.data(),
                             folder.Path().c_str(), &startup, &child))
      << GetLastError();
  CloseHandle(input);
  CloseHandle(output);
  CloseHandle(child.hThread);
  m_process = child.hProcess;
  m_reader = std::thread([this] { Read(); });
}

HostProcess::~HostProcess() {
  TerminateProcess(m_process, 1);
  EXPECT_EQ(WaitForSingleObject(m_process, kExitLimitMs), WAIT_OBJECT_0);
  m_reader.join();
  CloseHandle(m_process);
  CloseHandle(m_input);
  CloseHandle(m_output);
}

void HostProcess::Read() {
  std::string pending;
  std::array<char, 65536> buffer{};
  for (;;) {
    // The end of the host ends this, and not the end of the pipe: a program that the host has started may hold on to
    // it.
    const bool hasEnded = WaitForSingleObject(m_process, 0) == WAIT_OBJECT_0;
    DWORD count = 0;
    if (!PeekNamedPipe(m_output, nullptr, 0, nullptr, &count, nullptr) || (count == 0 && hasEnded)) {
      break;
    }
    if (count == 0) {
      Sleep(1);
      continue;
    }
    if (!ReadFile(m_output, buffer.data(), static_cast<DWORD>(buffer.size()), &count, nullptr)) {
      break;
    }
    pending.append(buffer.data(), count);
    std::size_t begin = 0;
    for (std::size_t end = pending.find('\n'); end != std::string::npos; end = pending.find('\n', begin)) {
      const std::string line = pending.substr(begin, end - begin);
      begin = end + 1;
      const std::lock_guard guard(m_lock);
      if (line.starts_with("event ")) {
        char* rest = nullptr;
        Event event{};
        event.ms = std::strtoll(line.c_str() + 6, &rest, 10);
        event.thread = static_cast<std::uint32_t>(std::strtoul(rest, &rest, 10));
        event.id = static_cast<std::int32_t>(std::strtol(rest, &rest, 10));
        event.text = wire::Unescape(rest + 1);
        m_events.push_back(event);
      } else if (line.starts_with("note ") || line.starts_with("fault ")) {
        m_notes.push_back(line);
      } else {
        m_answers.push_back(line);
      }
      m_changed.notify_all();
    }
    pending.erase(0, begin);
  }
  const std::lock_guard guard(m_lock);
  m_isOver = true;
  m_changed.notify_all();
}

void HostProcess::Begin(const std::string& command) {
  const std::string line = command + "\n";
  DWORD written = 0;
  WriteFile(m_input, line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
}

std::optional<std::string> HostProcess::NextAnswer() {
  std::unique_lock guard(m_lock);
  m_changed.wait_for(guard, kAnswerLimit, [this] { return !m_answers.empty() || m_isOver; });
  if (m_answers.empty()) {
    return std::nullopt;
  }
  std::string answer = m_answers.front();
  m_answers.erase(m_answers.begin());
  return answer;
}

std::string HostProcess::EndBegun() {
  const std::optional<std::string> answer = NextAnswer();
  if (!answer || answer->starts_with("err")) {
    ADD_FAILURE() << "the host gave " << answer.value_or("no answer");
    return {};
  }
  return *answer;
}

std::string HostProcess::Do(const std::string& command) {
  SCOPED_TRACE(command);
  Begin(command);
  return EndBegun();
}

std::int64_t HostProcess::Ask(const std::string& command) {
  const std::vector<std::string> words = wire::Words(Do(command));
  if (words.size() != 2 || words[0] != "value") {
    ADD_FAILURE() << command << " gave no single value";
    return kNoNumber;
  }
  return std::strtoll(words[1].c_str(), nullptr, 10);
}

bool HostProcess::DoAndDie(const std::string& command) {
  Begin(command);
  const std::optional<std::string> answer = NextAnswer();
  EXPECT_FALSE(answer.has_value()) << "the host lives and says " << answer.value_or("");
  return !answer.has_value();
}

std::vector<Event> HostProcess::Events() const {
  const std::lock_guard guard(m_lock);
  return m_events;
}

std::vector<Event> HostProcess::EventsFrom(std::size_t first) const {
  const std::lock_guard guard(m_lock);
  return {m_events.begin() + static_cast<std::ptrdiff_t>(std::min(first, m_events.size())), m_events.end()};
}

std::vector<Event> HostProcess::Events(std::int32_t id) const {
  std::vector<Event> events = Events();
  std::erase_if(events, [id](const Event& event) { return event.id != id; });
  return events;
}

std::size_t HostProcess::CountEvents(std::int32_t id, const std::string& part) const {
  const std::vector<Event> events = Events(id);
  return static_cast<std::size_t>(
      std::count_if(events.begin(), events.end(), [&](const Event& event) { return Contains(event.text, part); }));
}

Event HostProcess::WaitForEvent(std::int32_t id, const std::string& part, std::size_t count) {
  Event last{};
  const bool came = WaitFor([&] {
    std::vector<Event> events = Events(id);
    std::erase_if(events, [&](const Event& event) { return !Contains(event.text, part); });
    if (events.size() < count) {
      return false;
    }
    last = events[count - 1];
    return true;
  });
  EXPECT_TRUE(came) << "no event " << part << " for id " << id;
  return last;
}

std::string HostProcess::WaitForNote(const std::string& part) {
  std::string note;
  EXPECT_TRUE(WaitFor([&] {
    const std::lock_guard guard(m_lock);
    for (const std::string& line : m_notes) {
      if (Contains(line, part)) {
        note = line;
        return true;
      }
    }
    return false;
  })) << "no note "
      << part;
  return note;
}

std::uint32_t HostProcess::WaitForExit() {
  DWORD code = STILL_ACTIVE;
  EXPECT_EQ(WaitForSingleObject(m_process, kExitLimitMs), WAIT_OBJECT_0) << "the host does not end";
  GetExitCodeProcess(m_process, &code);
  return code;
}

} // namespace sdktest
