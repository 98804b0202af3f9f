#include "pipe/frame.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace vpipe {
namespace {

using Status = FrameDecoder::Status;

std::string Header(std::uint32_t length) {
  std::string header(4, '\0');
  for (unsigned i = 0; i < 4; ++i) {
    header[i] = static_cast<char>(static_cast<unsigned char>(length >> (8 * i)));
  }
  return header;
}

std::string Frame(const std::string& text) { return Header(static_cast<std::uint32_t>(text.size())) + text; }

/// Feeds `bytes`, in chunks as large as the decoder takes them, without asking for texts.
void Feed(FrameDecoder& decoder, std::string_view bytes) {
  while (!bytes.empty()) {
    const FrameDecoder::Space space = decoder.Prepare();
    ASSERT_GT(space.size, 0u);
    const std::size_t size = std::min(space.size, bytes.size());
    std::memcpy(space.data, bytes.data(), size);
    decoder.Commit(size);
    bytes.remove_prefix(size);
  }
}

/// Takes all whole texts out; the last status in `*last`.
std::vector<std::string> Drain(FrameDecoder& decoder, Status* last) {
  std::vector<std::string> texts;
  std::string_view text;
  while ((*last = decoder.Next(&text)) == Status::kMessage) {
    EXPECT_EQ(text.data()[text.size()], '\0');
    texts.emplace_back(text);
  }
  return texts;
}

TEST(TextScan, FindsANulAtEveryPlaceAndNoneWhereNoneIs) {
  for (const std::size_t size :
       {std::size_t{1}, std::size_t{255}, std::size_t{256}, std::size_t{257}, std::size_t{800}}) {
    std::string bytes(size, 'x');
    ASSERT_FALSE(HoldsNul(bytes.data(), size));
    for (std::size_t place = 0; place < size; ++place) {
      bytes[place] = '\0';
      ASSERT_TRUE(HoldsNul(bytes.data(), size)) << place << " of " << size;
      ASSERT_FALSE(HoldsNul(bytes.data(), place));
      bytes[place] = 'x';
    }
  }
  EXPECT_FALSE(HoldsNul("", 0));
}

TEST(TextScan, TellsTheLengthFromEveryStartAndStopsAtTheLimit) {
  std::string room(2048, 'x'); // more than a block behind every text that is looked at
  const char* const text = room.data();
  for (std::size_t start = 0; start < 300; ++start) {
    for (const std::size_t length :
         {std::size_t{0}, std::size_t{1}, std::size_t{200}, std::size_t{256}, std::size_t{700}}) {
      room[start + length] = '\0';
      ASSERT_EQ(LengthUpTo(text + start, 1500), length) << "from " << start;
      ASSERT_EQ(LengthUpTo(text + start, length), length);
      ASSERT_EQ(LengthUpTo(text + start, length / 2), length / 2);
      room[start + length] = 'x';
    }
  }
}

TEST(FrameEncoder, PutsTheLengthFirstLowestByteFirst) {
  FrameEncoder encoder;
  const std::string text(0x0102, 'a');
  ASSERT_TRUE(encoder.Encode(text));
  EXPECT_EQ(encoder.Frame(), std::string("\x02\x01\x00\x00", 4) + text);
}

TEST(FrameEncoder, RefusesWhatADecoderWouldNotTake) {
  FrameEncoder encoder;
  EXPECT_FALSE(encoder.Encode(""));
  EXPECT_FALSE(encoder.Encode(std::string_view("a\0b", 3)));
  EXPECT_FALSE(encoder.Encode(std::string(kMaxTextBytes + 1, 'a')));
  EXPECT_TRUE(encoder.Frame().empty());
  EXPECT_EQ(encoder.Capacity(), 0u);
  EXPECT_TRUE(encoder.Encode(std::string(kMaxTextBytes, 'a')));
  EXPECT_EQ(encoder.Frame().size(), kMaxTextBytes + 4);
}

TEST(FrameEncoder, UsesOneBufferAgainAndDropsALargeOne) {
  FrameEncoder encoder;
  ASSERT_TRUE(encoder.Encode("first"));
  const char* place = encoder.Frame().data();
  for (std::size_t size = 1; size < 2000; ++size) {
    ASSERT_TRUE(encoder.Encode(std::string(size, 'b')));
    ASSERT_EQ(encoder.Frame().data(), place);
  }
  ASSERT_TRUE(encoder.Encode(std::string(kKeptBufferBytes + 1, 'c')));
  EXPECT_GT(encoder.Capacity(), kKeptBufferBytes);
  ASSERT_TRUE(encoder.Encode("small"));
  EXPECT_LE(encoder.Capacity(), kKeptBufferBytes);
  EXPECT_EQ(encoder.Frame(), Frame("small"));
}

TEST(FrameDecoder, GivesOutATextThatCameByteByByte) {
  FrameDecoder decoder;
  const std::string bytes = Frame("hello");
  std::string_view text;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    ASSERT_EQ(decoder.Next(&text), Status::kNeedMore);
    ASSERT_EQ(decoder.Buffered(), i);
    Feed(decoder, std::string_view(bytes).substr(i, 1));
  }
  ASSERT_EQ(decoder.Next(&text), Status::kMessage);
  EXPECT_EQ(text, "hello");
  EXPECT_EQ(decoder.Next(&text), Status::kNeedMore);
  EXPECT_EQ(decoder.Buffered(), 0u);
}

TEST(FrameDecoder, EndsEachTextWithNulAndKeepsTheNextFrame) {
  FrameDecoder decoder;
  Feed(decoder, Frame("one") + Frame("two") + Frame("three").substr(0, 6));
  std::string_view text;
  ASSERT_EQ(decoder.Next(&text), Status::kMessage);
  EXPECT_STREQ(text.data(), "one");
  EXPECT_EQ(decoder.Buffered(), Frame("two").size() + 6);
  ASSERT_EQ(decoder.Next(&text), Status::kMessage);
  EXPECT_STREQ(text.data(), "two");
  // Reading on while a text is out must bring the next frame's first byte back as well.
  Feed(decoder, Frame("three").substr(6));
  ASSERT_EQ(decoder.Next(&text), Status::kMessage);
  EXPECT_STREQ(text.data(), "three");
}

TEST(FrameDecoder, TreatsAnyCuttingOfTheStreamAlike) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  FrameDecoder decoder;
  std::string stream;
  std::vector<std::string> sent;
  for (int i = 0; i < 400; ++i) {
    const std::size_t size = i % 40 == 0 ? random() % 200000 + 1 : random() % 300 + 1;
    std::string text(size, '\0');
    for (char& c : text) {
      c = static_cast<char>(static_cast<unsigned char>(random() % 255 + 1));
    }
    stream += Frame(text);
    sent.push_back(std::move(text));
  }
  std::vector<std::string> received;
  for (std::string_view rest = stream; !rest.empty();) {
    const std::size_t limit = random() % 3 == 0 ? 5 : 100000;
    const std::size_t size = std::min<std::size_t>(random() % limit + 1, rest.size());
    Feed(decoder, rest.substr(0, size));
    rest.remove_prefix(size);
    if (random() % 4 != 0) {
      Status last{};
      for (std::string& text : Drain(decoder, &last)) {
        received.push_back(std::move(text));
      }
      ASSERT_EQ(last, Status::kNeedMore);
    }
  }
  Status last{};
  for (std::string& text : Drain(decoder, &last)) {
    received.push_back(std::move(text));
  }
  EXPECT_EQ(last, Status::kNeedMore);
  EXPECT_EQ(decoder.Buffered(), 0u);
  EXPECT_TRUE(received == sent);
}

TEST(FrameDecoder, BreaksForGoodOnLengthZero) {
  FrameDecoder decoder;
  Feed(decoder, Frame("good") + Header(0) + Frame("lost"));
  Status last{};
  EXPECT_EQ(Drain(decoder, &last), std::vector<std::string>{"good"});
  EXPECT_EQ(last, Status::kBroken);
  Feed(decoder, Frame("more"));
  EXPECT_TRUE(Drain(decoder, &last).empty());
  EXPECT_EQ(last, Status::kBroken);
  decoder.Reset();
  Feed(decoder, Frame("new"));
  EXPECT_EQ(Drain(decoder, &last), std::vector<std::string>{"new"});
}

TEST(FrameDecoder, BreaksOnALengthOverTheLimitWithoutRoomForIt) {
  for (const std::uint32_t length : {static_cast<std::uint32_t>(kMaxTextBytes) + 1, 0x7FFFFFFFu, 0x80000000u, ~0u}) {
    FrameDecoder decoder;
    Feed(decoder, Header(length));
    std::string_view text;
    EXPECT_EQ(decoder.Next(&text), Status::kBroken);
    EXPECT_LE(decoder.Capacity(), kInitialBufferBytes);
  }
}

TEST(FrameDecoder, BreaksOnANulAnywhereInAText) {
  for (const std::size_t place : {0u, 1u, 4u}) {
    std::string text = "hello";
    text[place] = '\0';
    FrameDecoder decoder;
    Feed(decoder, Frame(text));
    std::string_view out;
    EXPECT_EQ(decoder.Next(&out), Status::kBroken);
  }
}

TEST(FrameDecoder, TakesTheLongestTextAndGivesItsRoomBack) {
  FrameDecoder decoder;
  const std::string text(kMaxTextBytes, 'x');
  Feed(decoder, Frame(text));
  std::string_view out;
  ASSERT_EQ(decoder.Next(&out), Status::kMessage);
  EXPECT_TRUE(out == text);
  EXPECT_GT(decoder.Capacity(), kKeptBufferBytes);
  Feed(decoder, Frame("small"));
  EXPECT_LE(decoder.Capacity(), kKeptBufferBytes);
  ASSERT_EQ(decoder.Next(&out), Status::kMessage);
  EXPECT_EQ(out, "small");
}

TEST(FrameDecoder, GrowsWithWhatArrivesAndNotWithWhatIsAnnounced) {
  FrameDecoder decoder;
  Feed(decoder, Header(kMaxTextBytes) + std::string(1000, 'x'));
  std::string_view text;
  EXPECT_EQ(decoder.Next(&text), Status::kNeedMore);
  decoder.Prepare();
  EXPECT_EQ(decoder.Capacity(), kInitialBufferBytes);
  Feed(decoder, std::string(300000, 'x'));
  EXPECT_LT(decoder.Capacity(), 1000000u);
}

TEST(FrameDecoder, TakesAFewKibibytesForOrdinaryTexts) {
  FrameDecoder decoder;
  std::string_view text;
  for (int i = 0; i < 100; ++i) {
    Feed(decoder, Frame(std::string(500, 'z')));
    ASSERT_EQ(decoder.Next(&text), Status::kMessage);
  }
  EXPECT_LE(decoder.Capacity(), 4096u);
}

TEST(FrameDecoder, KeepsItsBufferFromTextToText) {
  FrameDecoder decoder;
  const char* place = decoder.Prepare().data;
  std::string_view text;
  for (std::size_t size = 1; size < 2000; ++size) {
    const FrameDecoder::Space space = decoder.Prepare();
    ASSERT_EQ(space.data, place);
    ASSERT_EQ(decoder.Capacity(), kInitialBufferBytes);
    const std::string frame = Frame(std::string(size, 'y'));
    std::memcpy(space.data, frame.data(), frame.size());
    decoder.Commit(frame.size());
    ASSERT_EQ(decoder.Next(&text), Status::kMessage);
    ASSERT_EQ(text.size(), size);
  }
}

} // namespace
} // namespace vpipe
