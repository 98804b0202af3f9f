#pragma once

#include "foundation/k_event.h"
#include "vexelsdk/link/pipe_contract.h"

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>

/// The inbound queue of one link. The pipe library puts texts in on its own threads, the message thread takes them out.
class ReaderMsgProc final : public IMsgProcessor {
public:
  ReaderMsgProc();
  ReaderMsgProc(const ReaderMsgProc&) = delete;
  ReaderMsgProc& operator=(const ReaderMsgProc&) = delete;
  ~ReaderMsgProc() = default;

  void* DeletingDestructor(unsigned flag) override;
  /// Queues a copy of a NUL-terminated text and signals its arrival. Drops null, an empty text, a repeat of the newest
  /// text still queued, and any text that holds "testserver". Always 0. Any thread.
  std::intptr_t OnMessage(const char* text) override;
  void NoOp() override;
  IMsgProcessor* Self() override;
  void DestroyOther(IMsgProcessor* other) override;

  /// The oldest text, taken out of the queue; empty when there is none. Any thread, never blocks for long.
  std::string PopMessage();

  /// Blocks up to `milliseconds` for a text that was stored since the last wait. True when one was.
  bool WaitForArrival(std::uint32_t milliseconds);

private:
  std::mutex m_lock; // guards m_messages; the last lock that anybody takes
  std::deque<std::string> m_messages;
  vx::KEvent m_arrived; // signalled for each text stored; the engine polls and does not wait on it
};

/// Ends a processor the way the library would: through slot 0.
struct MsgProcessorDeleter {
  void operator()(IMsgProcessor* processor) const { processor->DeletingDestructor(1); }
};

using ReaderMsgProcPtr = std::unique_ptr<ReaderMsgProc, MsgProcessorDeleter>;
