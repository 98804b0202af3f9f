#include "foundation/logger.h"
#include "platform/sync.h"
#include "vexelsdk/engine/vexel_sdk_thread.h"

namespace {

constexpr std::uint32_t kPaceMs = 10; // at most one record in this time

/// The number of a link that may be missing, read all the same: see DoOperator. The undefined-behaviour checks stay out
/// of this one call, for they would end the host in another way than the read does.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnonnull" // the call on a null link is what is meant
__attribute__((no_sanitize("undefined"))) std::uint32_t PidOf(const VexelSDKHelper* helper) { return helper->GetPid(); }
#pragma GCC diagnostic pop

} // namespace

bool VexelSDKThread::DoOperator(const SDK_OperatorData& record) {
  if (record.m_op != SDK_CLOSE && !vx::ShouldLog(LOG_INFO)) {
    return Enqueue(record, true); // nothing comes between the gate and the queue, so they share a lock
  }
  if (IsFinished(record.m_id)) {
    return false;
  }
  SDKLOG(LOG_INFO) << "m_op(SDK_Operator)=" << static_cast<std::int32_t>(record.m_op) << ", m_id=" << record.m_id
                   << ", m_pid=" << record.m_pid;
  bool result = true;
  if (record.m_op == SDK_CLOSE) {
    const std::shared_ptr<VexelSDKHelper> owner = GetHelperOfOperator(record);
    VexelSDKHelper* const helper = owner.get();
    if (helper == nullptr) {
      // The number is read from the link that is missing: settled behaviour. Where this line is written the read faults
      // and ends the host; with LOG_INFO shut off it is not made, and the id is finished below.
      SDKLOG(LOG_INFO) << "helper is null. pid=" << PidOf(helper);
      SetClosing(record.m_id);
      SetCallback(record.m_id, nullptr, nullptr);
      SetFinished(record.m_id);
      return false;
    }
    if (helper->IsConnecting()) {
      SDKLOG(LOG_INFO) << "helper is connecting. pid=" << helper->GetPid();
      SetClosing(record.m_id);
      SetCallback(record.m_id, nullptr, nullptr);
      helper->StopConnect();
      return false;
    }
    if (helper->IsModify()) {
      SDKLOG(LOG_INFO) << "helper is modify.";
      SetModifyClose(record.m_id); // the browser stays subscribed: the user's answer comes back as an event
    } else {
      SetClosing(record.m_id);
      SetCallback(record.m_id, nullptr, nullptr);
      result = false;
    }
  }
  Enqueue(record, false);
  return result;
}

/// Queues a copy of the record. False for one whose id is finished.
bool VexelSDKThread::Enqueue(const SDK_OperatorData& record, bool testFinished) {
  SDK_OperatorData copy = record; // made before the lock, moved under it
  bool wake = false;
  {
    const std::lock_guard lock(m_stateLock);
    if (testFinished && m_finishedIds.contains(record.m_id)) {
      return false;
    }
    copy.m_pid = GetPidByIdLocked(record.m_id);
    m_operators.push_back(std::move(copy));
    // Under the lock a load and a store do what an exchange would.
    wake = m_operatorIdle.load(std::memory_order_relaxed) != 0;
    m_operatorIdle.store(0, std::memory_order_relaxed);
  }
  if (wake) {
    platform::WakeByAddressSingle(&m_operatorIdle);
  }
  return true;
}

/// The next record, or false for an empty queue. `done` is set with the last look at the queue before the end.
bool VexelSDKThread::TakeOperator(SDK_OperatorData& record, bool& done) {
  const std::lock_guard lock(m_stateLock);
  const bool taken = !m_operators.empty();
  if (taken) {
    record = std::move(m_operators.front());
    m_operators.pop_front();
  }
  done = m_stop.load(std::memory_order_acquire) && m_operators.empty();
  m_operatorIdle.store(taken ? 0 : 1, std::memory_order_relaxed);
  return taken;
}

/// The queue's wake-up, in place of a look every 10 milliseconds. It waits on a word of memory and not on an event, which
/// the system could refuse to make or to signal: the record would then lie for ever.
void VexelSDKThread::WaitForOperator() {
  while (m_operatorIdle.load(std::memory_order_relaxed) != 0) {
    platform::WaitOnAddress(&m_operatorIdle, 1);
  }
}

void OperatorThreadFun() noexcept {
  std::shared_ptr<VexelSDKThread> engine;
  try {
    engine = VexelSDKThread::GetInstance();
  } catch (...) {
    return;
  }
  bool done = false;
  while (!done) {
    SDK_OperatorData data;
    try {
      if (!engine->TakeOperator(data, done)) {
        // An empty queue has no record to test at the gate, so a finished id 0 makes no difference here.
        if (!done) {
          engine->WaitForOperator();
        }
        continue;
      }
      if (engine->IsFinished(data.m_id)) {
        continue; // the second gate: its id was finished while it waited
      }
      switch (data.m_op) {
      case SDK_NONE:
        break;
      case SDK_PreLoadProcess:
        SDKLOG(LOG_INFO) << "data.m_op = SDK_PreLoadProcess";
        engine->HandlePreLoadProcess();
        break;
      case SDK_OPEN:
        SDKLOG(LOG_INFO) << "data.m_op = SDK_OPEN data.m_id=" << data.m_id;
        engine->HandleOpenProcess(data);
        engine->SendOperator(data);
        break;
      default:
        engine->SendOperator(data);
        break;
      }
    } catch (...) {
      // Out of memory: this record is lost, the next one may fare better.
    }
    platform::Sleep(kPaceMs);
  }
}

void VexelSDKThread::SendOperator(const SDK_OperatorData& record) {
  if (record.m_pid == 0) {
    return; // nobody serves the id: the record ends here
  }
  bool sent = false;
  const std::shared_ptr<VexelSDKHelper> helper = GetHelperByPid(record.m_pid);
  if (helper != nullptr && !helper->WriteOperator(record, &sent)) {
    SetFinished(record.m_id);
    if (!sent && record.m_op == SDK_OPEN) {
      AddToKillList(record.m_pid); // it never got its picture, so it is not left behind
    }
    return;
  }
  // Whatever the operator was, and also when no link was found.
  ReportCustomMessage(record, "open_pic_success");
}
