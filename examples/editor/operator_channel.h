#pragma once

#include "examples/editor/pipe_library.h"

#include <functional>
#include <string>

namespace example {

/// The way of the operator messages into the editor: a server of the pipe library, whose texts go to one function.
class OperatorChannel final : public IMsgProcessor {
public:
  /// Called on threads of the library, with a text that is never null. What it throws goes no further.
  using Handler = std::function<void(const char* text)>;

  /// Keeps a reference to the library.
  OperatorChannel(const PipeLibrary& library, Handler handler);
  /// Ends the serving; no call of the handler follows. Blocks for a handler that is at work.
  ~OperatorChannel();
  OperatorChannel(const OperatorChannel&) = delete;
  OperatorChannel& operator=(const OperatorChannel&) = delete;

  /// Serves under that name from now on. False when that cannot be.
  bool Start(const std::string& pipeName);

  void* Destroy(unsigned int flag) override;
  std::intptr_t OnMessage(const char* text) override;
  void NoOp() override;
  IMsgProcessor* Self() override;
  void DestroyOther(IMsgProcessor* other) override;

private:
  const PipeLibrary& m_library;
  const Handler m_handler;
  PipeServer* m_server = nullptr;
};

} // namespace example
