#include "examples/editor/operator_channel.h"

#include <utility>

namespace example {

OperatorChannel::OperatorChannel(const PipeLibrary& library, Handler handler)
    : m_library(library), m_handler(std::move(handler)) {}

OperatorChannel::~OperatorChannel() {
  if (m_server != nullptr) {
    m_library.releaseServer(m_server);
  }
}

bool OperatorChannel::Start(const std::string& pipeName) {
  m_server = m_library.createServer();
  if (m_server == nullptr) {
    return false;
  }
  m_server->SetMsgProcessor(this);
  return m_server->Start(pipeName.c_str()) != 0;
}

// The editor owns this object; whatever the library asks for, it is not destroyed from there.
void* OperatorChannel::Destroy(unsigned int) { return this; }

std::intptr_t OperatorChannel::OnMessage(const char* text) {
  if (text == nullptr) {
    return 0;
  }
  try {
    m_handler(text);
  } catch (...) {
    // Out of memory: nothing may leave through the library's frames.
    return -1;
  }
  return 0;
}

void OperatorChannel::NoOp() {}

IMsgProcessor* OperatorChannel::Self() { return this; }

void OperatorChannel::DestroyOther(IMsgProcessor*) {}

} // namespace example
