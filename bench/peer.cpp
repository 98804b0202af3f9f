// The other process of the pipe sections: vexelbench_peer MODE NAME [NUMBER].

#include "bench/board.h"
#include "bench/clock.h"
#include "bench/pipe_library.h"
#include "bench/raw_pipe.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr char kReply[] = "-1000000000000000000"; // 20 bytes, and the same as the library's number
constexpr DWORD kReplyBytes = sizeof kReply - 1;
constexpr std::intptr_t kReplyNumber = -1000000000000000000;

/// A text that starts with this ends the peer while its client waits.
constexpr char kDie = '!';

[[noreturn]] void Die() {
  bench::TheBoard().peerAt = bench::NowUs();
  TerminateProcess(GetCurrentProcess(), 0);
  std::abort();
}

class Replier final : public IMsgProcessor {
public:
  void* Destroy(unsigned int) override { return this; }
  std::intptr_t OnMessage(const char* text) override {
    if (*text == kDie) {
      Die();
    }
    return kReplyNumber;
  }
  void NoOp() override {}
  IMsgProcessor* Self() override { return this; }
  void DestroyOther(IMsgProcessor*) override {}
};

int ServeLibrary(const std::string& name) {
  static Replier replier;
  PipeServer* const server = bench::ThePipeLibrary().createPipeSvr();
  server->SetMsgProcessor(&replier);
  if (server->Start(name.c_str()) == 0) {
    return 1;
  }
  Sleep(INFINITE);
  return 0;
}

/// One client after the other, a reply for each `size` bytes.
int ServeRaw(const std::string& name, bench::PipeMode mode, DWORD size) {
  const HANDLE pipe = bench::MakeRawServer(name, mode, 1);
  std::vector<char> buffer(size);
  for (;;) {
    if (!ConnectNamedPipe(pipe, nullptr) && GetLastError() != ERROR_PIPE_CONNECTED) {
      return 1;
    }
    while (mode == bench::PipeMode::kMessage ? bench::RawRead(pipe, buffer.data(), size) != 0
                                             : bench::RawReadAll(pipe, buffer.data(), size)) {
      if (buffer[0] == kDie) {
        Die();
      }
      if (!bench::RawWrite(pipe, kReply, kReplyBytes)) {
        break;
      }
    }
    DisconnectNamedPipe(pipe);
  }
}

/// Counts messages and replies to each `count`th alone.
int CountRaw(const std::string& name, DWORD count) {
  const HANDLE pipe = bench::MakeRawServer(name, bench::PipeMode::kMessage, 1);
  ConnectNamedPipe(pipe, nullptr);
  char buffer[4096];
  DWORD counted = 0;
  while (bench::RawRead(pipe, buffer, sizeof buffer) != 0) {
    if (++counted % count == 0) {
      bench::RawWrite(pipe, kReply, kReplyBytes);
    }
  }
  return 0;
}

int SendAndDie(const std::string& name, DWORD count) {
  const std::uint32_t connection = bench::ConnectSoon(name);
  for (DWORD i = 0; i < count; ++i) {
    bench::ThePipeLibrary().comunicate(connection, ("event " + std::to_string(i)).c_str());
  }
  Die();
}

int SendRawAndDie(const std::string& name, DWORD count) {
  const HANDLE pipe = bench::OpenRawSoon(name, bench::PipeMode::kMessage);
  for (DWORD i = 0; i < count; ++i) {
    const std::string text = "event " + std::to_string(i);
    bench::RawWrite(pipe, text.data(), static_cast<DWORD>(text.size()));
  }
  Die();
}

} // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "";
  const std::string name = argc > 2 ? argv[2] : "";
  const auto number = static_cast<DWORD>(argc > 3 ? std::atol(argv[3]) : 0);
  if (mode == "library") {
    return ServeLibrary(name);
  }
  if (mode == "message") {
    return ServeRaw(name, bench::PipeMode::kMessage, number);
  }
  if (mode == "byte") {
    return ServeRaw(name, bench::PipeMode::kByte, number);
  }
  if (mode == "count") {
    return CountRaw(name, number);
  }
  if (mode == "events") {
    return SendAndDie(name, number);
  }
  if (mode == "raw-events") {
    return SendRawAndDie(name, number);
  }
  return 2;
}
