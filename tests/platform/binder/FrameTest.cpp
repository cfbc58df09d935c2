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

std::string frame(uint32_t code, const std::string& payload) {
  const FrameHeader header{static_cast<uint32_t>(FrameKind::Transaction),
                           static_cast<uint32_t>(payload.size()), code, 0};
  return std::string(reinterpret_cast<const char*>(&header), sizeof(header)) + payload;
}

void feed(FrameReader& reader, const std::string& bytes) {
  reader.feed(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

// What next() gives at most `count` times.
std::vector<std::string> take(FrameReader& reader, size_t count) {
  std::vector<std::string> frames;
  Frame next;
  while (frames.size() < count && reader.next(&next) == Result::Frame) {
    frames.push_back(std::to_string(next.header.value) + ":" +
                     std::string(reinterpret_cast<const char*>(next.payload), next.header.size));
  }
  return frames;
}

// A reply that its client does not take stops the reader in the middle of what it was fed.
TEST(FrameReader, GivesTheSameFramesHoweverTheStreamIsCutAndWhenTheyAreAskedFor) {
  const std::string large(10000, 'x');
  const auto stream = frame(1, "one") + frame(2, "") + frame(3, large) + frame(4, "four");
  for (const size_t step : {size_t{1}, size_t{2}, size_t{15}, size_t{16}, size_t{17}, size_t{19},
                            size_t{4096}, stream.size() - 2, stream.size()}) {
    for (const size_t atOnce : {1, 10}) {
      FrameReader reader(FrameKind::Transaction);
      std::vector<std::string> frames;
      for (size_t at = 0; at < stream.size(); at += step) {
        std::string part = stream.substr(at, step);
        feed(reader, part);
        for (std::string& next : take(reader, atOnce)) frames.push_back(std::move(next));
        reader.keep();
        part.assign(part.size(), '?');  // the caller's memory is not looked at again
      }
      for (std::string& next : take(reader, 10)) frames.push_back(std::move(next));
      EXPECT_EQ(frames, (std::vector<std::string>{"1:one", "2:", "3:" + large, "4:four"})) << step;
      EXPECT_FALSE(reader.inFrame());
    }
  }
}

TEST(FrameReader, HoldsNoMoreThanCameAndStopsForGoodAtWhatIsNoFrame) {
  const auto start = frame(1, std::string(kMaxPayload, 'x')).substr(0, 100);
  FrameReader reader(FrameKind::Transaction);
  feed(reader, start);
  EXPECT_TRUE(take(reader, 1).empty());
  reader.keep();
  EXPECT_EQ(reader.heldSize(), 100u);
  Frame next;
  const auto tooLarge = frame(1, std::string(kMaxPayload + 1, 'x')).substr(0, sizeof(FrameHeader));
  for (const std::string& bad : {std::string(64, 'G'), tooLarge}) {
    const auto stream = frame(1, "one") + bad + frame(2, "two");
    FrameReader reader(FrameKind::Transaction);
    feed(reader, stream);
    EXPECT_EQ(take(reader, 10).size(), 1u);
    EXPECT_EQ(reader.next(&next), Result::Malformed);
    EXPECT_NE(reader.fault(), nullptr);
    EXPECT_EQ(reader.next(&next), Result::Malformed);
  }
  FrameReader replies(FrameKind::Reply);
  feed(replies, start);  // a transaction
  EXPECT_EQ(replies.next(&next), Result::Malformed);
}

}  // namespace
