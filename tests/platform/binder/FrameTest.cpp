#include "Frame.h"

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using platform::binder::Frame;
using platform::binder::FrameHeader;
using platform::binder::FrameKind;
using platform::binder::FrameReader;
using platform::binder::kMaxPayload;
using Result = FrameReader::Result;

std::vector<uint8_t> frame(uint32_t code, const std::string& payload) {
  const FrameHeader header{static_cast<uint32_t>(FrameKind::Transaction),
                           static_cast<uint32_t>(payload.size()), code, 0};
  std::vector<uint8_t> data(sizeof(header) + payload.size());
  memcpy(data.data(), &header, sizeof(header));
  memcpy(data.data() + sizeof(header), payload.data(), payload.size());
  return data;
}

std::vector<uint8_t> operator+(std::vector<uint8_t> a, const std::vector<uint8_t>& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

std::string text(const Frame& frame) {
  return std::to_string(frame.header.value) + ":" +
         std::string(reinterpret_cast<const char*>(frame.payload), frame.header.size);
}

TEST(FrameReader, GivesTheSameFramesHoweverTheStreamIsCut) {
  const auto stream = frame(1, "one") + frame(2, "") + frame(3, std::string(10000, 'x')) + frame(4, "four");
  const std::vector<std::string> expected = {"1:one", "2:", "3:" + std::string(10000, 'x'), "4:four"};
  for (const size_t step :
       {size_t{1}, size_t{2}, size_t{15}, size_t{16}, size_t{17}, size_t{19}, size_t{4096}, stream.size()}) {
    FrameReader reader(FrameKind::Transaction);
    std::vector<std::string> frames;
    for (size_t at = 0; at < stream.size(); at += step) {
      std::vector<uint8_t> part(stream.data() + at, stream.data() + std::min(at + step, stream.size()));
      reader.feed(part.data(), part.size());
      Frame next;
      while (reader.next(&next) == Result::Frame) frames.push_back(text(next));
      reader.keep();
      std::fill(part.begin(), part.end(), 0xee);  // the caller's memory is not looked at again
    }
    EXPECT_EQ(frames, expected) << step;
    EXPECT_FALSE(reader.inFrame());
  }
}

// A reply that its client does not take stops the reader in the middle of what it was fed.
TEST(FrameReader, KeepsWholeFramesThatAreNotAskedFor) {
  auto stream = frame(1, "one") + frame(2, "two") + frame(3, "three") + frame(4, "four");
  FrameReader reader(FrameKind::Transaction);
  reader.feed(stream.data(), stream.size() - 2);
  Frame next;
  ASSERT_EQ(reader.next(&next), Result::Frame);
  reader.keep();
  EXPECT_TRUE(reader.inFrame());
  std::vector<std::string> frames;
  while (reader.next(&next) == Result::Frame) frames.push_back(text(next));
  reader.feed(stream.data() + stream.size() - 2, 2);
  while (reader.next(&next) == Result::Frame) frames.push_back(text(next));
  EXPECT_EQ(frames, (std::vector<std::string>{"2:two", "3:three", "4:four"}));
}

TEST(FrameReader, TakesTheLimitAndNotOneByteMore) {
  auto largest = frame(1, std::string(kMaxPayload, 'x'));
  FrameReader reader(FrameKind::Transaction);
  reader.feed(largest.data(), largest.size());
  Frame next;
  EXPECT_EQ(reader.next(&next), Result::Frame);
  EXPECT_EQ(next.header.size, kMaxPayload);

  auto larger = frame(1, std::string(kMaxPayload + 1, 'x'));
  FrameReader strict(FrameKind::Transaction);
  strict.feed(larger.data(), sizeof(FrameHeader));
  EXPECT_EQ(strict.next(&next), Result::Malformed);
  EXPECT_NE(strict.fault(), nullptr);
}

TEST(FrameReader, HoldsNoMoreThanCameWhateverIsAnnounced) {
  const auto large = frame(1, std::string(kMaxPayload, 'x'));
  FrameReader reader(FrameKind::Transaction);
  reader.feed(large.data(), 100);
  Frame next;
  EXPECT_EQ(reader.next(&next), Result::NeedMore);
  reader.keep();
  EXPECT_EQ(reader.heldSize(), 100u);
}

TEST(FrameReader, StopsForGoodAtWhatIsNoFrame) {
  auto garbage = frame(1, "one") + std::vector<uint8_t>(64, 'G') + frame(2, "two");
  FrameReader reader(FrameKind::Transaction);
  reader.feed(garbage.data(), garbage.size());
  Frame next;
  EXPECT_EQ(reader.next(&next), Result::Frame);
  EXPECT_EQ(reader.next(&next), Result::Malformed);
  auto good = frame(3, "three");
  reader.feed(good.data(), good.size());
  EXPECT_EQ(reader.next(&next), Result::Malformed);
  // A reply is no transaction.
  FrameReader replies(FrameKind::Reply);
  replies.feed(good.data(), good.size());
  EXPECT_EQ(replies.next(&next), Result::Malformed);
}

}  // namespace
