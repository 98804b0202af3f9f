#include "vexelsdk/link/reader_msg_proc.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

/// The slots as a library of another compiler sees them: the object's first word leads to a table of addresses.
template <typename Function> Function Slot(const void* object, std::size_t index) {
  void* const* table = nullptr;
  std::memcpy(&table, object, sizeof table);
  return reinterpret_cast<Function>(table[index]);
}

using DestroyFun = void* (*)(void*, unsigned);
using OnMessageFun = std::intptr_t (*)(void*, const char*);
using NoOpFun = void (*)(void*);
using SelfFun = void* (*)(void*);
using DestroyOtherFun = void (*)(void*, void*);

ReaderMsgProcPtr MakeReader() { return ReaderMsgProcPtr(new ReaderMsgProc); }

TEST(ReaderMsgProc, IsDrivenThroughTheRawTableOfItsSlots) {
  ReaderMsgProcPtr reader = MakeReader();
  IMsgProcessor* const object = reader.get();
  EXPECT_EQ(Slot<OnMessageFun>(object, 1)(object, "{\"type\":\"x\"}"), 0);
  EXPECT_EQ(reader->PopMessage(), "{\"type\":\"x\"}");
  Slot<NoOpFun>(object, 2)(object);
  EXPECT_EQ(Slot<SelfFun>(object, 3)(object), object);
  IMsgProcessor* const released = reader.release();
  EXPECT_EQ(Slot<DestroyFun>(released, 0)(released, 1), released);
}

TEST(ReaderMsgProc, DestroysAnotherThroughItsSlotZeroWithFlagOne) {
  struct Other {
    void* const* table;
    unsigned flag;
    int calls;
  };
  static const auto destroy = +[](void* self, unsigned flag) -> void* {
    auto* const other = static_cast<Other*>(self);
    other->flag = flag;
    ++other->calls;
    return self;
  };
  void* const table[] = {reinterpret_cast<void*>(destroy)};
  Other other{table, 0, 0};
  ReaderMsgProcPtr reader = MakeReader();
  IMsgProcessor* const object = reader.get();
  Slot<DestroyOtherFun>(object, 4)(object, &other);
  EXPECT_EQ(other.calls, 1);
  EXPECT_EQ(other.flag, 1u);
  Slot<DestroyOtherFun>(object, 4)(object, nullptr);
  Slot<DestroyOtherFun>(object, 4)(object, object); // itself: stays alive
  reader->OnMessage("alive");
  EXPECT_EQ(reader->PopMessage(), "alive");
}

TEST(ReaderMsgProc, FlagZeroEndsTheObjectAndKeepsItsMemory) {
  alignas(ReaderMsgProc) unsigned char memory[sizeof(ReaderMsgProc)];
  IMsgProcessor* const object = new (memory) ReaderMsgProc;
  EXPECT_EQ(object->DeletingDestructor(0), static_cast<void*>(memory));
}

TEST(ReaderMsgProc, GivesTextsBackInTheOrderOfArrival) {
  ReaderMsgProcPtr reader = MakeReader();
  for (const char* const text : {"a", "b", "a"}) {
    EXPECT_EQ(reader->OnMessage(text), 0);
  }
  EXPECT_EQ(reader->PopMessage(), "a");
  EXPECT_EQ(reader->PopMessage(), "b");
  EXPECT_EQ(reader->PopMessage(), "a");
  EXPECT_EQ(reader->PopMessage(), "");
}

TEST(ReaderMsgProc, DropsARepeatWhileItsTwinWaitsAndSignalsOnce) {
  ReaderMsgProcPtr reader = MakeReader();
  reader->OnMessage("same");
  EXPECT_TRUE(reader->WaitForArrival(0));
  reader->OnMessage("same");
  EXPECT_FALSE(reader->WaitForArrival(0));
  EXPECT_EQ(reader->PopMessage(), "same");
  reader->OnMessage("same"); // the twin has been fetched
  EXPECT_TRUE(reader->WaitForArrival(0));
  EXPECT_EQ(reader->PopMessage(), "same");
  EXPECT_EQ(reader->PopMessage(), "");
}

TEST(ReaderMsgProc, DropsTheProbeTextWhereverItStands) {
  ReaderMsgProcPtr reader = MakeReader();
  reader->OnMessage("testserver");
  reader->OnMessage(R"({"type":"other","param":"a testserver b"})");
  EXPECT_FALSE(reader->WaitForArrival(0));
  EXPECT_EQ(reader->PopMessage(), "");
}

TEST(ReaderMsgProc, ADroppedProbeDoesNotPartTwins) {
  ReaderMsgProcPtr reader = MakeReader();
  for (const char* const text : {"same", "testserver", "same"}) {
    EXPECT_EQ(reader->OnMessage(text), 0);
  }
  EXPECT_EQ(reader->PopMessage(), "same");
  EXPECT_EQ(reader->PopMessage(), "");
}

TEST(ReaderMsgProc, KeepsWhatOnlyResemblesTheNewestTextOrTheProbe) {
  const std::vector<std::string> texts = {"same", "sam", "same ", "Same", "testServer", "test server", "estserver"};
  ReaderMsgProcPtr reader = MakeReader();
  for (const std::string& text : texts) {
    EXPECT_EQ(reader->OnMessage(text.c_str()), 0);
    EXPECT_TRUE(reader->WaitForArrival(0)) << text;
  }
  for (const std::string& text : texts) {
    EXPECT_EQ(reader->PopMessage(), text);
  }
}

TEST(ReaderMsgProc, TakesNothingFromNullOrAnEmptyText) {
  ReaderMsgProcPtr reader = MakeReader();
  EXPECT_EQ(reader->OnMessage(nullptr), 0);
  EXPECT_EQ(reader->OnMessage(""), 0);
  EXPECT_FALSE(reader->WaitForArrival(0));
  EXPECT_EQ(reader->PopMessage(), "");
}

TEST(ReaderMsgProc, KeepsEveryTextOfManyThreads) {
  constexpr int kThreads = 4;
  constexpr int kTexts = 500;
  ReaderMsgProcPtr reader = MakeReader();
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&reader, t] {
      for (int i = 0; i < kTexts; ++i) {
        reader->OnMessage((std::to_string(t) + ":" + std::to_string(i)).c_str());
      }
    });
  }
  std::vector<int> next(kThreads, 0);
  int taken = 0;
  while (taken < kThreads * kTexts) {
    const std::string text = reader->PopMessage();
    if (text.empty()) {
      std::this_thread::yield();
      continue;
    }
    const int thread = std::stoi(text);
    EXPECT_EQ(std::stoi(text.substr(text.find(':') + 1)), next[static_cast<std::size_t>(thread)]++);
    ++taken;
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(reader->PopMessage(), "");
}

} // namespace
