// A pipe library that joins nobody: its objects are tables of function pointers made by hand, so it proves which slot
// of which table the other side means, whatever compiler made the other side. What it is asked goes to the file
// "fakepipe.log" beside it, a line each, and every message sent through it is answered by events to the receiver.

#include <windows.h>

#include <array>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <thread>

// The server object that this library makes, by slots. Named as the other side names it: the type check of calls through
// pointers compares the names in a function's type, and CreatePipeSvr and ReleasePipeSvr have this one in theirs.
struct PipeServer;

namespace {

using Server = PipeServer;

// The other side's receiver, by slots.
struct Processor;
struct ProcessorTable {
  void* (*deletingDestructor)(Processor* self, unsigned flag);
  std::intptr_t (*onMessage)(Processor* self, const char* text);
  void (*noOp)(Processor* self);
  Processor* (*self)(Processor* self);
  void (*destroyOther)(Processor* self, Processor* other);
};
struct Processor {
  const ProcessorTable* table;
};

struct ServerTable {
  void* (*deletingDestructor)(Server* self, unsigned flag);
  void (*setMsgProcessor)(Server* self, Processor* processor);
  std::int32_t (*start)(Server* self, const char* name);
};

} // namespace

struct PipeServer {
  const ServerTable* table;
  Processor* processor;
  std::string* name;
};

namespace {

std::mutex lock;
std::map<std::uint32_t, std::string> connections; // number to the other end's process id
std::map<std::string, Server*> servers;           // by the process id in their name

std::string ModuleFolder() {
  HMODULE module = nullptr;
  std::array<char, MAX_PATH> path{};
  GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                     reinterpret_cast<const char*>(&lock), &module);
  const DWORD length = GetModuleFileNameA(module, path.data(), MAX_PATH);
  const std::string text(path.data(), length);
  return text.substr(0, text.find_last_of('\\') + 1);
}

/// Appends a line. Call it with the lock held.
void Note(const std::string& line) {
  const HANDLE file =
      CreateFileA((ModuleFolder() + "fakepipe.log").c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE,
                  nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) {
    return;
  }
  const std::string text = line + "\r\n";
  DWORD written = 0;
  WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
  CloseHandle(file);
}

void* DestroyServer(Server* self, unsigned flag) {
  const std::lock_guard guard(lock);
  Note("server slot 0 flag=" + std::to_string(flag));
  return self;
}

void SetMsgProcessor(Server* self, Processor* processor) {
  const std::lock_guard guard(lock);
  self->processor = processor;
  Note(std::string("server slot 1 processor=") + (processor == nullptr ? "null" : "set"));
}

std::int32_t StartServer(Server* self, const char* name) {
  const std::lock_guard guard(lock);
  *self->name = name;
  const std::string prefix = "vexel_browser_";
  servers[self->name->substr(prefix.size())] = self;
  Note("server slot 2 name=" + self->name->substr(0, prefix.size()) +
       "PID processor=" + (self->processor == nullptr ? "null" : "set"));
  return 1;
}

constexpr ServerTable kServerTable{&DestroyServer, &SetMsgProcessor, &StartServer};

void* DestroyOwn(Processor* self, unsigned flag) {
  Note("own processor slot 0 flag=" + std::to_string(flag));
  return self;
}

constexpr ProcessorTable kOwnTable{&DestroyOwn, nullptr, nullptr, nullptr, nullptr};

/// Walks through the slots of the receiver of the process `pid`, on a thread of this library.
void CallProcessor(const std::string& pid) {
  const std::lock_guard guard(lock);
  const auto found = servers.find(pid);
  if (found == servers.end() || found->second->processor == nullptr) {
    Note("no processor");
    return;
  }
  Processor* const processor = found->second->processor;
  Note(std::string("processor slot 3 is itself=") + (processor->table->self(processor) == processor ? "yes" : "no"));
  processor->table->noOp(processor);
  Note("processor slot 2 returned");
  processor->table->destroyOther(processor, processor);
  processor->table->destroyOther(processor, nullptr);
  Note("processor slot 4 leaves itself and null alone");
  Processor own{&kOwnTable};
  processor->table->destroyOther(processor, &own);
  const std::intptr_t result =
      processor->table->onMessage(processor, "{\"type\":\"custom_message\",\"param\":\"from the table\"}");
  Note("processor slot 1 result=" + std::to_string(result));
}

} // namespace

extern "C" {

std::uint32_t CltConnectServer(const char* name) {
  const std::lock_guard guard(lock);
  const std::string text = name;
  const std::string prefix = "vexel_browser_editor_";
  const std::uint32_t number = static_cast<std::uint32_t>(connections.size()) + 1;
  connections[number] = text.substr(prefix.size());
  Note("connect " + text.substr(0, prefix.size()) + "PID");
  return number;
}

void CltDisConnect(std::uint32_t connection) {
  const std::lock_guard guard(lock);
  Note("disconnect known=" + std::to_string(connections.contains(connection)));
}

const char* CltComunicate(std::uint32_t connection, const char* text) {
  std::string pid;
  {
    const std::lock_guard guard(lock);
    pid = connections[connection];
    Note(std::string("send ") + text);
  }
  std::thread(&CallProcessor, pid).join();
  return "taken";
}

Server* CreatePipeSvr() {
  const std::lock_guard guard(lock);
  Note("create");
  return new Server{&kServerTable, nullptr, new std::string};
}

void ReleasePipeSvr(Server* server) {
  const std::lock_guard guard(lock);
  Note("release");
  std::erase_if(servers, [server](const auto& entry) { return entry.second == server; });
  delete server->name;
  delete server;
}

} // extern "C"
