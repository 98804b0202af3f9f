#include "tests/sweep/callback_buffers.h"

#include <map>
#include <mutex>

extern "C" {
void* __real_malloc(std::size_t size);
void __real_free(void* memory);
void* __wrap_malloc(std::size_t size);
void __wrap_free(void* memory);
}

namespace {

// It outlives the static objects, whose destructors may free.
struct Ledger {
  std::mutex lock;
  std::map<void*, std::size_t> live;  // with its number
  std::map<std::size_t, void*> fresh; // by number: live and not taken by TakeFresh
  std::size_t made = 0;
  std::size_t freed = 0;
};

Ledger& TheLedger() {
  static Ledger& ledger = *new Ledger;
  return ledger;
}

} // namespace

void* __wrap_malloc(std::size_t size) {
  void* const memory = __real_malloc(size);
  if (memory != nullptr) {
    Ledger& ledger = TheLedger();
    const std::lock_guard lock(ledger.lock);
    ledger.live[memory] = ledger.made;
    ledger.fresh[ledger.made] = memory;
    ++ledger.made;
  }
  return memory;
}

void __wrap_free(void* memory) {
  {
    Ledger& ledger = TheLedger();
    const std::lock_guard lock(ledger.lock);
    if (const auto found = ledger.live.find(memory); found != ledger.live.end()) {
      ledger.fresh.erase(found->second);
      ledger.live.erase(found);
      ++ledger.freed;
    }
  }
  __real_free(memory);
}

namespace buffers {

std::size_t Made() {
  const std::lock_guard lock(TheLedger().lock);
  return TheLedger().made;
}

std::size_t Freed() {
  const std::lock_guard lock(TheLedger().lock);
  return TheLedger().freed;
}

bool IsLive(const void* buffer) {
  const std::lock_guard lock(TheLedger().lock);
  return TheLedger().live.contains(const_cast<void*>(buffer));
}

std::vector<const char*> Live() {
  const std::lock_guard lock(TheLedger().lock);
  std::vector<const char*> all;
  for (const auto& [memory, number] : TheLedger().live) {
    all.push_back(static_cast<const char*>(memory));
  }
  return all;
}

std::vector<std::string> LiveTexts() {
  const std::vector<const char*> all = Live();
  return {all.begin(), all.end()};
}

std::vector<const char*> TakeFresh() {
  const std::lock_guard lock(TheLedger().lock);
  std::vector<const char*> all;
  for (const auto& [number, memory] : TheLedger().fresh) {
    all.push_back(static_cast<const char*>(memory));
  }
  TheLedger().fresh.clear();
  return all;
}

void DropLive() {
  const std::lock_guard lock(TheLedger().lock);
  TheLedger().fresh.clear();
  for (const auto& [memory, number] : TheLedger().live) {
    __real_free(memory);
  }
  TheLedger().live.clear();
}

} // namespace buffers
