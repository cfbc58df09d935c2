// A stream of any bytes, cut into reads by its own first bytes: it must give the frames that it gives in one
// piece, and hold no more than came.

#include <cstdlib>
#include <string>
#include <vector>

#include "Frame.h"

namespace {

using platform::binder::Frame;
using platform::binder::FrameKind;
using platform::binder::FrameReader;
using Result = FrameReader::Result;

// The payloads of the frames, each behind a '+', and a '-' where the stream is malformed.
using Outcome = std::vector<std::string>;

Result take(FrameReader& reader, Outcome* outcome) {
  Frame frame;
  const Result result = reader.next(&frame);
  if (result == Result::Malformed) outcome->emplace_back("-");
  if (result == Result::Frame) {
    outcome->push_back("+" + std::string(reinterpret_cast<const char*>(frame.payload), frame.header.size));
  }
  return result;
}

// Reads the stream in pieces of the `cuts` sizes, in turn.
Outcome read(const uint8_t* data, size_t size, const std::vector<size_t>& cuts) {
  Outcome outcome;
  FrameReader reader(FrameKind::Transaction);
  size_t at = 0;
  for (size_t i = 0; at < size; ++i) {
    const size_t part = std::min(cuts[i % cuts.size()], size - at);
    const std::vector<uint8_t> piece(data + at, data + at + part);
    at += part;
    reader.feed(piece.data(), piece.size());
    // Now and then a reader is stopped before it has taken all.
    Result result = take(reader, &outcome);
    while (result == Result::Frame && part % 3 != 0) result = take(reader, &outcome);
    if (result == Result::Malformed) return outcome;
    reader.keep();
    if (reader.heldSize() > at) abort();
  }
  while (take(reader, &outcome) == Result::Frame) {
  }
  return outcome;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const size_t count = std::min<size_t>(data[0] % 8, size - 1);
  std::vector<size_t> cuts(data + 1, data + 1 + count);
  for (size_t& cut : cuts) ++cut;
  if (cuts.empty()) cuts = {1};
  const size_t streamSize = size - 1 - count;
  const uint8_t* const stream = data + 1 + count;
  if (read(stream, streamSize, {streamSize}) != read(stream, streamSize, cuts)) abort();
  return 0;
}
