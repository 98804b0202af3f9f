#include "tests/sweep/callback_buffers.h"

#include <mutex>
#include <set>

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
  std::set<void*> live;
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
    ledger.live.insert(memory);
    ++ledger.made;
  }
  return memory;
}

void __wrap_free(void* memory) {
  {
    Ledger& ledger = TheLedger();
    const std::lock_guard lock(ledger.lock);
    ledger.freed += ledger.live.erase(memory);
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
  for (const void* const memory : TheLedger().live) {
    all.push_back(static_cast<const char*>(memory));
  }
  return all;
}

std::vector<std::string> LiveTexts() {
  const std::vector<const char*> all = Live();
  return {all.begin(), all.end()};
}

void DropLive() {
  const std::lock_guard lock(TheLedger().lock);
  for (void* const memory : TheLedger().live) {
    __real_free(memory);
  }
  TheLedger().live.clear();
}

} // namespace buffers
