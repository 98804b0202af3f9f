#pragma once

#include <cstdint>
#include <string>

namespace sdktest {

/// The SDK's pipe for the events of one editor, written to by hand.
class RawEventPipe {
public:
  /// Connects, and fails the test if that cannot be.
  explicit RawEventPipe(std::uint32_t pid);
  ~RawEventPipe();
  RawEventPipe(const RawEventPipe&) = delete;
  RawEventPipe& operator=(const RawEventPipe&) = delete;

  /// False when the SDK has closed the pipe.
  bool Write(const std::string& bytes);
  /// Waits until the SDK closes the pipe. False after the limit of WaitFor.
  bool WaitUntilClosed();

private:
  void* m_pipe;
};

/// A text as it travels.
std::string Frame(const std::string& text);

} // namespace sdktest
