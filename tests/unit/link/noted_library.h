#pragma once

#include "tests/sim/module.h"
#include "tests/sim/world.h"
#include "vexelsdk/link/pipe_contract.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// A pipe library that notes each call, in order, and does what the test says. One at a time.
class NotedLibrary {
public:
  static constexpr std::uint32_t kConnection = 7;

  NotedLibrary() {
    s_current = this;
    sim::AddLibrary(sim::kPipeLibraryPath, {{"CltConnectServer", reinterpret_cast<void*>(&CltConnectServer)},
                                            {"CltDisConnect", reinterpret_cast<void*>(&CltDisConnect)},
                                            {"CltComunicate", reinterpret_cast<void*>(&CltComunicate)},
                                            {"CreatePipeSvr", reinterpret_cast<void*>(&CreatePipeSvr)},
                                            {"ReleasePipeSvr", reinterpret_cast<void*>(&ReleasePipeSvr)}});
  }
  ~NotedLibrary() { s_current = nullptr; }
  NotedLibrary(const NotedLibrary&) = delete;
  NotedLibrary& operator=(const NotedLibrary&) = delete;

  /// How often the calls so far begin with `name`.
  int Count(const std::string& name) const {
    int count = 0;
    for (const std::string& call : calls) {
      count += call.starts_with(name) ? 1 : 0;
    }
    return count;
  }

  /// What was written with CltComunicate.
  std::vector<std::string> texts;
  /// The name of each call, behind it what it was given.
  std::vector<std::string> calls;

  // What each entry does, and gives back.
  std::function<std::uint32_t()> connect = [] { return kConnection; };
  std::function<const char*()> communicate = [] { return "ok"; };
  std::function<bool()> create = [] { return true; };
  std::function<std::int32_t()> start = [] { return 1; };
  std::function<void()> release = [] {};

  IMsgProcessor* processor = nullptr;

private:
  class Server final : public PipeServer {
  public:
    void* DeletingDestructor(unsigned /*flag*/) override {
      s_current->calls.emplace_back("~PipeServer");
      return this;
    }
    void SetMsgProcessor(IMsgProcessor* receiver) override {
      s_current->calls.emplace_back("SetMsgProcessor");
      s_current->processor = receiver;
    }
    std::int32_t Start(const char* name) override {
      s_current->calls.emplace_back(std::string("Start ") + name);
      return s_current->start();
    }
  };

  static std::uint32_t CltConnectServer(const char* name) {
    s_current->calls.emplace_back(std::string("CltConnectServer ") + name);
    return s_current->connect();
  }
  static void CltDisConnect(std::uint32_t connection) {
    s_current->calls.emplace_back("CltDisConnect " + std::to_string(connection));
  }
  static const char* CltComunicate(std::uint32_t connection, const char* text) {
    s_current->calls.emplace_back("CltComunicate " + std::to_string(connection));
    s_current->texts.emplace_back(text);
    return s_current->communicate();
  }
  static PipeServer* CreatePipeSvr() {
    s_current->calls.emplace_back("CreatePipeSvr");
    return s_current->create() ? &s_current->m_server : nullptr;
  }
  static void ReleasePipeSvr(PipeServer* server) {
    s_current->calls.emplace_back(server == &s_current->m_server ? "ReleasePipeSvr" : "ReleasePipeSvr of another");
    s_current->release();
  }

  static inline NotedLibrary* s_current = nullptr;
  Server m_server;
};
