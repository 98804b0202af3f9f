// The smallest editor that keeps its side of the contract: it takes every text, answers an "open" with an event of its
// own, and leaves when it is told to or when nobody needs it any more. It shows nothing.

#define NOMINMAX
#include <windows.h>

#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>
#include <pipe/vpipe.h>
#include <string>

namespace {

constexpr DWORD kPauseMs = 20;
constexpr ULONGLONG kIdleLimitMs = 600000;  // leaves when no picture has come for so long
constexpr ULONGLONG kConnectLimitMs = 5000; // an event that finds no host for so long is dropped

struct PipeLibrary {
  decltype(&CltConnectServer) connect = nullptr;
  decltype(&CltDisConnect) disconnect = nullptr;
  decltype(&CltComunicate) communicate = nullptr;
  decltype(&CreatePipeSvr) createServer = nullptr;

  bool Load() {
    // From the editor's own folder, never by way of the search path.
    wchar_t path[MAX_PATH] = {};
    const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    wchar_t* name = length == 0 || length == MAX_PATH ? nullptr : wcsrchr(path, L'\\');
    if (name == nullptr || name + 1 + wcslen(L"vpipearm64.dll") >= path + MAX_PATH) {
      return false;
    }
    wcscpy(name + 1, L"vpipearm64.dll");
    const HMODULE module = LoadLibraryW(path);
    return module != nullptr && Find(module, "CltConnectServer", &connect) &&
           Find(module, "CltDisConnect", &disconnect) && Find(module, "CltComunicate", &communicate) &&
           Find(module, "CreatePipeSvr", &createServer);
  }

private:
  template <typename Function> static bool Find(HMODULE module, const char* name, Function* function) {
    *function = reinterpret_cast<Function>(reinterpret_cast<void (*)()>(GetProcAddress(module, name)));
    return *function != nullptr;
  }
};

/// Takes the host's texts on threads of the pipe library. The host waits for each return: note it down, do it later.
class Operators final : public IMsgProcessor {
public:
  void* Destroy(unsigned int) override { return this; }
  std::intptr_t OnMessage(const char* text) override {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_texts.emplace_back(text);
    return 0;
  }
  void NoOp() override {}
  IMsgProcessor* Self() override { return this; }
  void DestroyOther(IMsgProcessor*) override {}

  bool Take(std::string* text) {
    const std::lock_guard<std::mutex> guard(m_lock);
    if (m_texts.empty()) {
      return false;
    }
    *text = std::move(m_texts.front());
    m_texts.pop_front();
    return true;
  }

private:
  std::mutex m_lock;
  std::deque<std::string> m_texts;
};

/// Sends events to whichever host serves this process now; a later host may take the place of the first.
class Events {
public:
  explicit Events(const PipeLibrary& library)
      : m_library(library), m_name("vexel_browser_" + std::to_string(GetCurrentProcessId())) {}

  void Send(const std::string& text) {
    const ULONGLONG start = GetTickCount64();
    while (GetTickCount64() - start < kConnectLimitMs) {
      if (m_connection == 0) {
        m_connection = m_library.connect(m_name.c_str());
      }
      if (m_connection != 0 && m_library.communicate(m_connection, text.c_str()) != nullptr) {
        return;
      }
      if (m_connection != 0) {
        m_library.disconnect(m_connection);
        m_connection = 0;
      }
      Sleep(kPauseMs);
    }
  }

private:
  const PipeLibrary& m_library;
  std::string m_name;
  std::uint32_t m_connection = 0;
};

// The texts have no blanks between tokens, and a quote within a value is escaped: so this finds keys and nothing else.
bool IsOfType(const std::string& text, const char* type) {
  return text.find("\"type\":\"" + std::string(type) + "\"") != std::string::npos;
}

long long Number(const std::string& text, const char* key) {
  const std::string start = "\"" + std::string(key) + "\":";
  const std::size_t at = text.find(start);
  return at == std::string::npos ? 0 : std::strtoll(text.c_str() + at + start.size(), nullptr, 10);
}

} // namespace

int WINAPI WinMain(HINSTANCE, HINSTANCE, char* arguments, int) {
  PipeLibrary library;
  Operators& operators = *new Operators; // stays until the process ends: the pipe library may call at any time
  if (std::strstr(arguments, "/vexelsdk") == nullptr || !library.Load()) {
    return 1;
  }
  const std::string pid = std::to_string(GetCurrentProcessId());
  PipeServer* server = library.createServer();
  if (server == nullptr) {
    return 1;
  }
  server->SetMsgProcessor(&operators);
  if (server->Start(("vexel_browser_editor_" + pid).c_str()) == 0) {
    return 1;
  }

  Events events(library);
  std::string id = "0";
  HWND window = nullptr; // the host's; the picture's life is tied to it
  ULONGLONG lastText = GetTickCount64();
  while (true) {
    std::string text;
    if (!operators.Take(&text)) {
      if (window != nullptr ? !IsWindow(window) : GetTickCount64() - lastText > kIdleLimitMs) {
        break;
      }
      Sleep(kPauseMs);
      continue;
    }
    lastText = GetTickCount64();
    if (IsOfType(text, "open")) {
      id = std::to_string(Number(text, "id"));
      window = reinterpret_cast<HWND>(static_cast<INT_PTR>(Number(text, "tabwnd")));
      events.Send("{\"id\":" + id + ",\"param\":\"picture_taken\",\"type\":\"custom_message\"}");
    } else if (IsOfType(text, "close")) {
      break; // an editor with unsaved changes asks its user first, unless "status" is false
    }
  }
  // In this order, or else the end of this process counts as a crash.
  events.Send("{\"id\":" + id + ",\"type\":\"finish_operator\"}");
  events.Send("{\"process_id\":" + pid + ",\"type\":\"process_exit\"}");
  return 0;
}
