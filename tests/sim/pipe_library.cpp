#include "tests/sim/pipe_library.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstring>
#include <deque>
#include <list>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

#include "tests/sim/core.h"
#include "tests/sim/editor.h"
#include "tests/sim/process.h"

// The library's own view of the binary contract, written down apart from the SDK's so that a slot out of order shows.
// The names are the contract's, at global scope: sanitizers compare the names of types across a call.
class IMsgProcessor {
public:
  virtual void* DeletingDestructor(unsigned flag) = 0;
  virtual std::intptr_t OnMessage(const char* text) = 0;
  virtual void NoOp() = 0;
  virtual IMsgProcessor* Self() = 0;
  virtual void DestroyOther(IMsgProcessor* other) = 0;

protected:
  ~IMsgProcessor() = default;
};

class PipeServer {
public:
  virtual void* DeletingDestructor(unsigned flag) = 0;
  virtual void SetMsgProcessor(IMsgProcessor* processor) = 0;
  virtual std::int32_t Start(const char* name) = 0;

protected:
  ~PipeServer() = default;
};

namespace sim {

using namespace internal;

namespace {

constexpr std::uint32_t kSemaphoreTimeout = 121;
constexpr std::uint32_t kNoData = 232;
constexpr std::uint32_t kCrashCode = 0xC0000005;
constexpr std::string_view kServerPrefix = "vexel_browser_";
constexpr std::string_view kEditorPrefix = "vexel_browser_editor_";

struct Editor {
  EditorScript script;
  std::uint64_t serial = 0; // of its process
  bool serving = false;
  bool ended = false;
  int refused = 0;
  int attempts = 0;
  std::vector<int> used; // for each step
  std::vector<ReceivedText> received;
  std::deque<std::string> outbox; // events that wait for a server
};

struct Connection {
  std::uint32_t pid = 0;
  std::uint64_t serial = 0;
  std::unique_ptr<char[]> reply; // valid until the next exchange on this connection
};

class Server final : public PipeServer {
public:
  void* DeletingDestructor(unsigned flag) override;
  void SetMsgProcessor(IMsgProcessor* receiver) override;
  std::int32_t Start(const char* name) override;

  void Run();
  /// Calls the receiver with the mutex released. Needs the mutex.
  void Deliver(Lock& lock, const std::string& text);

  std::string m_name; // empty until it serves
  IMsgProcessor* m_processor = nullptr;
  std::deque<std::string> m_queue;
  std::condition_variable m_changed;
  std::thread m_thread;
  bool m_stop = false;
  bool m_ended = false; // its thread needs the mutex no more
  int m_calls = 0;      // deliveries in progress
};

struct Pipes {
  std::map<std::uint32_t, Editor> editors;
  std::map<std::uint32_t, Connection> connections;
  std::list<std::unique_ptr<Server>> servers;
  std::vector<std::pair<std::uint32_t, ReceivedText>> received;
  std::uint32_t nextConnection = 1;
};

Pipes& ThePipes() {
  static Pipes& pipes = *new Pipes;
  return pipes;
}

// Every wait of the library is on this one: exchanges, connects, deliveries that end.
std::condition_variable& Changed() {
  static std::condition_variable& changed = *new std::condition_variable;
  return changed;
}

Editor* FindEditor(std::uint32_t pid) {
  const auto place = ThePipes().editors.find(pid);
  return place == ThePipes().editors.end() || place->second.ended ? nullptr : &place->second;
}

Server* FindServer(std::uint32_t pid) {
  const std::string name = std::string(kServerPrefix) + std::to_string(pid);
  for (const std::unique_ptr<Server>& server : ThePipes().servers) {
    if (server->m_name == name && !server->m_stop) {
      return server.get();
    }
  }
  return nullptr;
}

std::optional<std::uint32_t> PidOfName(std::string_view name, std::string_view prefix) {
  if (!name.starts_with(prefix)) {
    return std::nullopt;
  }
  const std::string_view digits = name.substr(prefix.size());
  std::uint32_t pid = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), pid);
  return error == std::errc() && end == digits.data() + digits.size() ? std::optional<std::uint32_t>(pid)
                                                                      : std::nullopt;
}

// An event goes to the server, or waits for one.
bool Send(std::uint32_t pid, const std::string& text) {
  if (RunningSerial(pid) == 0) {
    return false;
  }
  if (Server* server = FindServer(pid)) {
    server->m_queue.push_back(text);
    server->m_changed.notify_all();
    return true;
  }
  Editor* editor = FindEditor(pid);
  if (editor == nullptr) {
    return false;
  }
  editor->outbox.push_back(text);
  return true;
}

void Server::Deliver(Lock& lock, const std::string& text) {
  IMsgProcessor* const processor = m_processor;
  if (processor == nullptr) {
    return;
  }
  ++m_calls;
  lock.unlock();
  processor->OnMessage(text.c_str());
  lock.lock();
  --m_calls;
  m_changed.notify_all();
  Changed().notify_all();
}

void Server::Run() {
  MarkOwnThread();
  Lock lock = TakeLock();
  BeginTurn(lock);
  while (!m_stop) {
    if (m_queue.empty()) {
      WaitUntil(lock, m_changed, kNever, [this] { return m_stop || !m_queue.empty(); });
      continue;
    }
    // The text leaves the queue only after it was taken, so that an empty queue means that all were.
    const std::string text = m_queue.front();
    Deliver(lock, text);
    m_queue.pop_front();
    m_changed.notify_all();
  }
  OwnThreadEnds();
  m_ended = true;
  m_changed.notify_all();
}

void* Server::DeletingDestructor(unsigned /*flag*/) { Die("a pipe server is given back by ReleasePipeSvr only"); }

void Server::SetMsgProcessor(IMsgProcessor* receiver) {
  const Call call("PipeServer::SetMsgProcessor");
  m_processor = receiver;
}

std::int32_t Server::Start(const char* name) {
  Call call("PipeServer::Start");
  if (call.Fails(kPipeBusy)) {
    return 0;
  }
  const std::string text = name == nullptr ? "" : name;
  if (text.empty() || !m_name.empty()) {
    Leave(kInvalidParameter);
    return 0;
  }
  for (const std::unique_ptr<Server>& server : ThePipes().servers) {
    if (server->m_name == text) {
      Leave(kPipeBusy);
      return 0;
    }
  }
  m_name = text;
  const std::optional<std::uint32_t> pid = PidOfName(text, kServerPrefix);
  if (pid.has_value()) {
    if (Editor* editor = FindEditor(*pid)) {
      m_queue.insert(m_queue.end(), editor->outbox.begin(), editor->outbox.end());
      editor->outbox.clear();
    }
  }
  OwnThreadBegins();
  m_thread = std::thread([this] { Run(); });
  return 1;
}

// Takes a server out and destroys it, after the last call into its processor.
void Destroy(Lock& lock, std::list<std::unique_ptr<Server>>::iterator place) {
  const std::unique_ptr<Server> server = std::move(*place);
  ThePipes().servers.erase(place);
  server->m_stop = true;
  server->m_changed.notify_all();
  if (server->m_thread.get_id() == std::this_thread::get_id()) {
    Die("a pipe server was released from within its own OnMessage");
  }
  WaitUntil(lock, server->m_changed, kNever,
            [&] { return server->m_calls == 0 && (server->m_ended || !server->m_thread.joinable()); });
  std::thread thread = std::move(server->m_thread);
  lock.unlock();
  if (thread.joinable()) {
    thread.join();
  }
  lock.lock();
}

// What an editor does with a text, and the use of that rule.
EditorStep StepFor(Editor* editor, const std::string& text) {
  for (std::size_t i = 0; i < editor->script.steps.size(); ++i) {
    const EditorStep& step = editor->script.steps[i];
    const bool fits = text.find(step.when) != std::string::npos;
    if (fits && (step.times < 0 || editor->used[i] < step.times)) {
      ++editor->used[i];
      return step;
    }
  }
  return EditorStep();
}

std::uint32_t CltConnectServer(const char* name) {
  Call call("CltConnectServer");
  const std::optional<std::uint32_t> pid = PidOfName(name == nullptr ? "" : name, kEditorPrefix);
  Editor* editor = pid.has_value() ? FindEditor(*pid) : nullptr;
  if (editor != nullptr) {
    ++editor->attempts;
  }
  if (call.Fails(kFileNotFound)) {
    return 0;
  }
  if (editor == nullptr || !editor->serving) {
    Leave(kFileNotFound);
    return 0;
  }
  if (editor->refused < editor->script.refusedConnects) {
    ++editor->refused;
    Leave(kPipeBusy);
    return 0;
  }
  const std::uint64_t serial = editor->serial;
  if (editor->script.connectMs != 0) {
    WaitUntil(call.GetLock(), Changed(), DeadlineIn(editor->script.connectMs),
              [&] { return Stopping() || RunningSerial(*pid) != serial; });
    if (RunningSerial(*pid) != serial) {
      Leave(kFileNotFound);
      return 0;
    }
  }
  const std::uint32_t number = ThePipes().nextConnection++;
  Connection& connection = ThePipes().connections[number];
  connection.pid = *pid;
  connection.serial = serial;
  return number;
}

void CltDisConnect(std::uint32_t number) {
  const Call call("CltDisConnect");
  ThePipes().connections.erase(number);
}

const char* CltComunicate(std::uint32_t number, const char* text) {
  Call call("CltComunicate");
  const auto fail = [](std::uint32_t error) -> const char* {
    Leave(error);
    return nullptr;
  };
  const auto place = ThePipes().connections.find(number);
  if (place == ThePipes().connections.end()) {
    return fail(kInvalidHandleValue);
  }
  const std::uint32_t pid = place->second.pid;
  const std::uint64_t serial = place->second.serial;
  place->second.reply.reset(); // a reply lives until the next exchange
  const auto gone = [&] { return RunningSerial(pid) != serial; };
  Editor* editor = FindEditor(pid);
  if (gone() || editor == nullptr) {
    return fail(kBrokenPipe);
  }
  if (call.Fails(kNoData)) {
    return nullptr;
  }
  const std::string received = text == nullptr ? "" : text;
  const ReceivedText record{received, static_cast<std::uint64_t>(NowNs() / kNsPerMs)};
  editor->received.push_back(record);
  ThePipes().received.emplace_back(pid, record);
  const std::uint32_t silenceMs = editor->script.silenceMs;
  EditorStep step;
  Lock& lock = call.GetLock();
  if (editor->script.handler != nullptr) {
    const auto handler = editor->script.handler;
    lock.unlock();
    step = handler(pid, received);
    lock.lock();
  } else {
    step = StepFor(editor, received);
  }
  for (const std::string& event : step.events) {
    Send(pid, event);
  }
  if (step.delayMs != 0) {
    WaitUntil(lock, Changed(), DeadlineIn(step.delayMs), [&] { return Stopping() || gone(); });
  }
  if (step.answer == Answer::kSilent) {
    const bool broken = WaitUntil(lock, Changed(), DeadlineIn(silenceMs), [&] { return Stopping() || gone(); });
    return fail(broken ? kBrokenPipe : kSemaphoreTimeout);
  }
  if (gone()) {
    return fail(kBrokenPipe);
  }
  if (step.answer == Answer::kDie) {
    EndIfSame(pid, serial, step.exitCode);
    return fail(kBrokenPipe);
  }
  if (step.answer == Answer::kNull) {
    return fail(kNoData);
  }
  // The connection may have been closed by another thread meanwhile.
  const auto now = ThePipes().connections.find(number);
  if (now == ThePipes().connections.end()) {
    return fail(kInvalidHandleValue);
  }
  now->second.reply = std::make_unique<char[]>(step.reply.size() + 1);
  std::memcpy(now->second.reply.get(), step.reply.c_str(), step.reply.size() + 1);
  const char* const reply = now->second.reply.get();
  if (step.exitsAfterReply) {
    EndIfSame(pid, serial, step.exitCode);
  }
  return reply;
}

PipeServer* CreatePipeSvr() {
  Call call("CreatePipeSvr");
  if (call.Fails(kNotEnoughMemory)) {
    return nullptr;
  }
  ThePipes().servers.push_back(std::make_unique<Server>());
  return ThePipes().servers.back().get();
}

void ReleasePipeSvr(PipeServer* released) {
  Call call("ReleasePipeSvr");
  if (released == nullptr) {
    return;
  }
  auto& servers = ThePipes().servers;
  const auto place =
      std::find_if(servers.begin(), servers.end(), [&](const auto& server) { return server.get() == released; });
  if (place == servers.end()) {
    Die("ReleasePipeSvr was called with a server that is none, or was released before");
  }
  Destroy(call.GetLock(), place);
}

} // namespace

namespace internal {

void ResetPipeLibrary() {
  ThePipes().editors.clear();
  ThePipes().connections.clear();
  ThePipes().received.clear();
  ThePipes().nextConnection = 1;
}

void StopServers(Lock& lock) {
  while (!ThePipes().servers.empty()) {
    Destroy(lock, ThePipes().servers.begin());
  }
}

std::map<std::string, void*> PipeLibraryEntries() {
  return {{"CltConnectServer", reinterpret_cast<void*>(&CltConnectServer)},
          {"CltDisConnect", reinterpret_cast<void*>(&CltDisConnect)},
          {"CltComunicate", reinterpret_cast<void*>(&CltComunicate)},
          {"CreatePipeSvr", reinterpret_cast<void*>(&CreatePipeSvr)},
          {"ReleasePipeSvr", reinterpret_cast<void*>(&ReleasePipeSvr)}};
}

void BeginEditor(std::uint32_t pid, const EditorScript& script) {
  const std::uint64_t serial = RunningSerial(pid);
  if (serial == 0) {
    Die("an editor needs a running process");
  }
  Editor& editor = ThePipes().editors[pid];
  if (editor.serial != serial) {
    editor = Editor(); // the id of an earlier one
  }
  editor.script = script;
  editor.serial = serial;
  editor.refused = 0;
  editor.used.assign(script.steps.size(), 0);
  editor.serving = script.serves && script.serveAfterMs == 0;
  for (const std::string& event : script.hello) {
    Send(pid, event);
  }
  if (script.serves && script.serveAfterMs != 0) {
    Schedule(DeadlineIn(script.serveAfterMs), [pid, serial] {
      const Lock lock = TakeLock();
      Editor* later = FindEditor(pid);
      if (later != nullptr && later->serial == serial) {
        later->serving = true;
      }
    });
  }
  if (script.dieAfterMs != 0) {
    Schedule(DeadlineIn(script.dieAfterMs), [pid, serial] {
      const Lock lock = TakeLock();
      EndIfSame(pid, serial, kCrashCode);
    });
  }
}

void EndEditor(std::uint32_t pid) {
  const auto place = ThePipes().editors.find(pid);
  if (place != ThePipes().editors.end()) {
    place->second.ended = true;
    place->second.serving = false;
    place->second.outbox.clear();
  }
  Changed().notify_all();
}

} // namespace internal

void AttachEditor(std::uint32_t pid, const EditorScript& script) {
  const Lock lock = TakeLock();
  BeginEditor(pid, script);
}

void ServePipe(std::uint32_t pid, bool serves) {
  const Lock lock = TakeLock();
  Editor* editor = FindEditor(pid);
  if (editor == nullptr) {
    Die("no editor has the id " + std::to_string(pid));
  }
  editor->serving = serves;
}

bool SendEvent(std::uint32_t pid, const std::string& text) {
  const Lock lock = TakeLock();
  return Send(pid, text);
}

bool Flood(std::uint32_t pid, int count, const std::string& text) {
  bool sent = true;
  for (int i = 0; i < count && sent; ++i) {
    sent = SendEvent(pid, text + std::to_string(i));
  }
  return sent;
}

bool SendEventHere(std::uint32_t pid, const std::string& text) {
  Lock lock = TakeLock();
  Server* server = FindServer(pid);
  if (server == nullptr || server->m_processor == nullptr) {
    return false;
  }
  server->Deliver(lock, text);
  return true;
}

bool FlushEvents(std::uint32_t pid, int seconds) {
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  while (std::chrono::steady_clock::now() < limit) {
    {
      const Lock lock = TakeLock();
      const Server* server = FindServer(pid);
      if (server == nullptr) {
        return false;
      }
      if (server->m_queue.empty() && server->m_calls == 0) {
        return true;
      }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return false;
}

std::vector<ReceivedText> ReceivedTexts(std::uint32_t pid) {
  const Lock lock = TakeLock();
  const auto place = ThePipes().editors.find(pid);
  return place == ThePipes().editors.end() ? std::vector<ReceivedText>() : place->second.received;
}

std::vector<std::pair<std::uint32_t, ReceivedText>> AllReceivedTexts() {
  const Lock lock = TakeLock();
  return ThePipes().received;
}

int ConnectAttempts(std::uint32_t pid) {
  const Lock lock = TakeLock();
  const auto place = ThePipes().editors.find(pid);
  return place == ThePipes().editors.end() ? 0 : place->second.attempts;
}

int OpenConnections() {
  const Lock lock = TakeLock();
  return static_cast<int>(ThePipes().connections.size());
}

std::vector<std::string> ServedNames() {
  const Lock lock = TakeLock();
  std::vector<std::string> names;
  for (const std::unique_ptr<Server>& server : ThePipes().servers) {
    if (!server->m_name.empty()) {
      names.push_back(server->m_name);
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

int LiveServers() {
  const Lock lock = TakeLock();
  return static_cast<int>(ThePipes().servers.size());
}

} // namespace sim
