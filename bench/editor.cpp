// The editor of the benchmarks, under the names of both programs that the SDK starts: it has a window, serves operators,
// notes when each came, and sends events when it is told to.

#include "bench/board.h"
#include "bench/clock.h"
#include "bench/pipe_library.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

namespace {

using bench::EditorPlace;
using bench::NowUs;
using bench::TheBoard;

class Editor final : public IMsgProcessor {
public:
  Editor(EditorPlace& place, HANDLE told) : m_place(place), m_told(told) {}
  void* Destroy(unsigned int) override { return this; }
  std::intptr_t OnMessage(const char* text) override {
    const double now = NowUs();
    if (std::strstr(text, "\"type\":\"open\"") != nullptr) {
      m_place.openedAt = now;
      return 0;
    }
    const std::uint32_t number = m_place.operators.load(std::memory_order_relaxed);
    m_place.operatorAt[number % bench::kKeptTimes].store(now, std::memory_order_relaxed);
    m_place.operators.store(number + 1, std::memory_order_release);
    const char* const code = std::strstr(text, "\"operator\":");
    if (code != nullptr && std::atoi(code + std::strlen("\"operator\":")) >= bench::kSendEvents) {
      SetEvent(m_told);
    }
    return 0;
  }
  void NoOp() override {}
  IMsgProcessor* Self() override { return this; }
  void DestroyOther(IMsgProcessor*) override {}

private:
  EditorPlace& m_place;
  HANDLE m_told;
};

/// Sends what the board asks for, each text with its number and its time.
void SendEvents(EditorPlace& place, std::uint32_t connection) {
  const bench::Board& board = TheBoard();
  std::minstd_rand random(GetCurrentProcessId());
  std::uniform_real_distribution<double> jitter(0, board.eventJitterMs.load());
  const std::uint32_t count = board.events.load();
  double due = NowUs();
  for (std::uint32_t i = 0; i < count; ++i) {
    due += (board.eventPaceMs.load() + jitter(random)) * 1000;
    // In steps that the system can wait for; what it oversleeps is made up for by the next one.
    if (const double left = due - NowUs(); left > 500) {
      Sleep(static_cast<DWORD>(left / 1000 + 0.5));
    }
    char text[160];
    std::snprintf(text, sizeof text, R"({"at":%.1f,"number":%u,"process_id":%lu,"type":"custom_message"})", NowUs(), i,
                  GetCurrentProcessId());
    if (bench::ThePipeLibrary().comunicate(connection, text) == nullptr) {
      return;
    }
    place.eventsSent.store(i + 1);
  }
}

HWND MakeWindow() {
  WNDCLASSW shape{};
  shape.lpfnWndProc = DefWindowProcW;
  shape.hInstance = GetModuleHandleW(nullptr);
  shape.lpszClassName = L"vexelbench";
  RegisterClassW(&shape);
  return CreateWindowExW(0, shape.lpszClassName, L"", WS_OVERLAPPEDWINDOW, 0, 0, 640, 480, nullptr, nullptr,
                         shape.hInstance, nullptr);
}

} // namespace

int main() {
  bench::Board& board = TheBoard();
  const std::uint32_t number = board.editors.fetch_add(1);
  if (number >= bench::kMaxEditors) {
    return 1;
  }
  EditorPlace& place = board.places[number];
  place.pid = GetCurrentProcessId();
  MakeWindow();
  const HANDLE told = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  const HANDLE host = OpenProcess(SYNCHRONIZE, FALSE, board.hostPid.load());
  Editor editor(place, told);
  const std::string pid = std::to_string(GetCurrentProcessId());
  PipeServer* const server = bench::ThePipeLibrary().createPipeSvr();
  server->SetMsgProcessor(&editor);
  if (server->Start(("vexel_browser_editor_" + pid).c_str()) == 0) {
    return 1;
  }
  const std::uint32_t connection = bench::ConnectSoon("vexel_browser_" + pid);
  place.readyAt = NowUs();
  const HANDLE wakers[] = {told, host};
  while (WaitForMultipleObjects(2, wakers, FALSE, INFINITE) == WAIT_OBJECT_0) {
    SendEvents(place, connection);
  }
  return 0;
}
