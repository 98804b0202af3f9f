// The other process of the pipe tests: pipe_peer MODE NAME [ARGUMENT]. Exit code 0 when all went as the mode says.

#include <windows.h>

#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>

#include "tests/pipe/pipe_util.h"

namespace {

/// Answers with the text's length, and does as it is told by some texts.
class ServingProcessor final : public ProcessorBase {
public:
  std::intptr_t OnMessage(const char* text) override {
    if (std::strcmp(text, "die") == 0) {
      TerminateProcess(GetCurrentProcess(), 7);
    }
    if (std::strcmp(text, "throw") == 0) {
      throw std::runtime_error("told to");
    }
    return static_cast<std::intptr_t>(std::strlen(text));
  }
};

std::string FromHex(const std::string& hex) {
  std::string bytes;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes += static_cast<char>(static_cast<unsigned char>(std::stoul(hex.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

HANDLE RawServe(const std::string& name) {
  const HANDLE pipe = CreateNamedPipeA(("\\\\.\\pipe\\" + name).c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE | PIPE_WAIT,
                                       1, 65536, 65536, 0, nullptr);
  if (pipe != INVALID_HANDLE_VALUE && !ConnectNamedPipe(pipe, nullptr) && GetLastError() != ERROR_PIPE_CONNECTED) {
    return INVALID_HANDLE_VALUE;
  }
  return pipe;
}

/// Tells the test, which made the event, that this process has come to the point.
void Signal(const std::string& name) {
  const HANDLE event = OpenEventA(EVENT_MODIFY_STATE, FALSE, name.c_str());
  SetEvent(event);
  CloseHandle(event);
}

int Run(const std::string& mode, const std::string& name, const std::string& argument) {
  const Library& library = TheLibrary();
  if (mode == "serve") { // until it is killed
    static ServingProcessor processor;
    PipeServer* server = library.createPipeSvr();
    server->SetMsgProcessor(&processor);
    if (server->Start(name.c_str()) == 0) {
      return 2;
    }
    Sleep(INFINITE);
  }
  if (mode == "takes") { // whether the name can be served
    ServingProcessor processor;
    PipeServer* server = library.createPipeSvr();
    server->SetMsgProcessor(&processor);
    const bool started = server->Start(name.c_str()) != 0;
    const DWORD error = GetLastError();
    library.releasePipeSvr(server);
    return started ? 0 : static_cast<int>(error);
  }
  if (mode == "send") { // ARGUMENT texts, each answered, and gone at once without a farewell
    const std::uint32_t connection = ConnectSoon(name);
    for (int i = 0; i < std::stoi(argument); ++i) {
      if (library.comunicate(connection, ("event " + std::to_string(i)).c_str()) == nullptr) {
        return 3;
      }
    }
    TerminateProcess(GetCurrentProcess(), 0);
  }
  if (mode == "blast") { // ARGUMENT texts without waiting for any answer, and gone at once
    const HANDLE pipe = RawConnect(name);
    for (int i = 0; i < std::stoi(argument); ++i) {
      if (!RawWrite(pipe, RawFrame("event " + std::to_string(i)))) {
        return 3;
      }
    }
    TerminateProcess(GetCurrentProcess(), 0);
  }
  if (mode == "flood") { // texts until the server goes
    const std::uint32_t connection = ConnectSoon(name);
    while (library.comunicate(connection, "flood") != nullptr) {
    }
    return GetLastError() == ERROR_BROKEN_PIPE ? 0 : 3;
  }
  if (mode == "cut") { // gone in the middle of a text
    const HANDLE pipe = RawConnect(name);
    RawWrite(pipe, RawFrame("whole") + RawFrame("cut off").substr(0, 8));
    TerminateProcess(GetCurrentProcess(), 0);
  }
  if (mode == "bytes") { // sends the bytes ARGUMENT, and waits to be cut off
    const HANDLE pipe = RawConnect(name);
    if (!RawWrite(pipe, FromHex(argument))) {
      return 3;
    }
    while (!RawRead(pipe).empty()) {
    }
    return GetLastError() == ERROR_BROKEN_PIPE || GetLastError() == ERROR_PIPE_NOT_CONNECTED ? 0 : 4;
  }
  if (mode == "deaf") { // sends texts and reads no answer, until it is cut off
    const HANDLE pipe = RawConnect(name);
    while (RawWrite(pipe, RawFrame("can you hear me?"))) {
    }
    return 0;
  }
  if (mode == "answer" || mode == "answer-and-die") { // a server that answers with the bytes ARGUMENT
    const HANDLE pipe = RawServe(name);
    if (RawRead(pipe).empty() || !RawWrite(pipe, FromHex(argument))) {
      return 3;
    }
    if (mode == "answer-and-die") {
      TerminateProcess(GetCurrentProcess(), 0);
    }
    return RawRead(pipe).empty() ? 0 : 4;
  }
  if (mode == "mute") { // a server that reads and does not answer; signals the event NAME once something has come
    const HANDLE pipe = RawServe(name);
    while (!RawRead(pipe).empty()) {
      Signal(name);
    }
    return 0;
  }
  if (mode == "unreading") { // a server that does not even read; until it is killed
    RawServe(name);
    Sleep(INFINITE);
  }
  return 1;
}

} // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: pipe_peer MODE NAME [ARGUMENT]\n");
    return 1;
  }
  return Run(argv[1], argv[2], argc > 3 ? argv[3] : "");
}
