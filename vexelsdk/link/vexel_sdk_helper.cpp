#include "vexelsdk/link/vexel_sdk_helper.h"

#include "foundation/logger.h"
#include "platform/clock.h"
#include "platform/error.h"
#include "platform/sync.h"
#include "public/vexelsdk/process_inventory.h"

namespace {

constexpr std::int32_t ConnectTimeoutMs = 100000;
constexpr std::uint32_t kConnectPaceMs = 10;

constexpr char kServerPipe[] = "vexel_browser_";
constexpr char kClientPipe[] = "vexel_browser_editor_";

bool IsRunning(std::uint32_t pid) {
  return VexelSdkProcessUtil::IsPathRunning(VexelSdkProcessUtil::GetProcessPath(pid).c_str(), 1) != 0;
}

} // namespace

VexelSDKHelper::~VexelSDKHelper() {
  Disconnect();
  StopServer();
  m_reader.reset(); // behind the server, so that the library calls it no more
  m_serverBinding.reset();
}

// Kept out of line, and compiled so that a test for null is no licence to drop the read, which the undefined-behaviour
// checks leave alone: see DoOperator.
__attribute__((no_sanitize("undefined"))) std::uint32_t VexelSDKHelper::GetPid() const {
  return m_pid.load(std::memory_order_relaxed);
}

bool VexelSDKHelper::StartServer(std::uint32_t pid) {
  if (pid == GetPid() && m_reader != nullptr) {
    return true;
  }
  m_pid.store(pid, std::memory_order_relaxed);
  const std::string name = kServerPipe + std::to_string(pid);
  if (m_server != nullptr || m_reader != nullptr) {
    return true; // the new process id stands, the server stays on the old name
  }
  if (m_serverBinding == nullptr) {
    m_serverBinding = std::make_unique<PipeServerBinding>();
  }
  m_server = m_serverBinding->CreatePipeSvr();
  if (m_server == nullptr) {
    return false;
  }
  m_reader.reset(new ReaderMsgProc);
  m_server->SetMsgProcessor(m_reader.get());
  const std::int32_t started = m_server->Start(name.c_str());
  if (started == 0) {
    SDKLOG(LOG_ERROR) << "error occur. last_error=" << platform::GetLastError();
  }
  return started != 0;
}

bool VexelSDKHelper::ConnectServer() {
  const std::string name = kClientPipe + std::to_string(GetPid());
  m_clientBinding = std::make_unique<PipeClientBinding>();
  const std::uint64_t start = platform::GetTickCount64();
  for (;;) {
    if (m_isStop.load(std::memory_order_relaxed)) {
      break;
    }
    if (static_cast<std::int32_t>(platform::GetTickCount64() - start) > ConnectTimeoutMs) {
      break;
    }
    if (!IsRunning(GetPid())) {
      break;
    }
    m_connection = m_clientBinding->CltConnectServer(name.c_str());
    if (m_connection != 0) {
      break;
    }
    SDKLOG(LOG_ERROR) << "try failure. last_error=" << platform::GetLastError() << ", pid=" << GetPid();
    platform::Sleep(kConnectPaceMs);
  }
  if (m_connection == 0) {
    m_clientBinding.reset();
    SDKLOG(LOG_ERROR) << "failure. is_stop=" << m_isStop.load(std::memory_order_relaxed)
                      << ", duration=" << platform::GetTickCount64() - start << "ms"
                      << ", pid=" << GetPid();
    return false;
  }
  m_connecting.store(false, std::memory_order_relaxed);
  SDKLOG(LOG_INFO) << "success. duration=" << platform::GetTickCount64() - start << "ms"
                   << ", pid=" << GetPid();
  return true;
}

bool VexelSDKHelper::WriteOperator(const SDK_OperatorData& record, bool* sent) {
  if (record.m_op == SDK_CLOSE && (!record.m_status || !IsModify())) {
    m_reading.store(false, std::memory_order_relaxed); // nobody will be asked, so nothing more is awaited
  }
  if (sent != nullptr) {
    *sent = true;
  }
  if (record.m_op == SDK_OPEN) {
    m_id = record.m_id;
    m_openType = record.m_type;
    m_openTick = platform::GetTickCount64();
    m_path = record.m_path;
    // The parameter needs no decoding here: the result would go nowhere.
  }
  if (m_connection == 0 && !ConnectServer()) {
    if (sent != nullptr) {
      *sent = false;
    }
    return false;
  }
  std::string text;
  BuildOperatorMessage(record, text);
  const char* const reply = m_clientBinding->CltComunicate(m_connection, text.c_str());
  SDKLOG(LOG_INFO) << "data=" << text.c_str();
  if (reply != nullptr) {
    SDKLOG(LOG_INFO) << "respon=" << reply << ", last_error=" << platform::GetLastError();
  }
  return reply != nullptr;
}

void VexelSDKHelper::BuildOperatorMessage(const SDK_OperatorData& record, std::string& out) const {
  out = OperatorMessageText(GetPid(), m_id, record);
}

bool VexelSDKHelper::GetOperator(std::string& out, EditorMessage* message) {
  if (m_reader == nullptr) {
    return false;
  }
  std::string text = m_reader->PopMessage();
  if (text.empty()) {
    return false;
  }
  out = std::move(text);
  const EditorMessage read = ReadEditorMessage(out.c_str());
  if (read.modified.has_value()) {
    m_modified.store(*read.modified, std::memory_order_relaxed);
  }
  if (message != nullptr) {
    *message = read;
  }
  SDKLOG(LOG_INFO) << "data=" << out.c_str();
  return true;
}

void VexelSDKHelper::Disconnect() {
  if (m_clientBinding != nullptr && m_connection != 0) {
    m_clientBinding->CltDisConnect(m_connection);
    m_connection = 0;
  }
  m_clientBinding.reset();
}

void VexelSDKHelper::StopServer() {
  if (m_server == nullptr) {
    return;
  }
  if (m_serverBinding == nullptr) {
    m_serverBinding = std::make_unique<PipeServerBinding>();
  }
  m_serverBinding->ReleasePipeSvr(m_server);
  m_server = nullptr;
}
