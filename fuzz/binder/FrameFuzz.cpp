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

struct Outcome {
  std::vector<std::string> frames;
  bool malformed = false;

  bool operator==(const Outcome&) const = default;
};

// Takes what the reader has; false at a malformed frame.
bool drain(FrameReader& reader, Outcome* outcome) {
  Frame frame;
  for (;;) {
    switch (reader.next(&frame)) {
      case FrameReader::Result::Frame:
        outcome->frames.emplace_back(reinterpret_cast<const char*>(frame.payload), frame.header.size);
        break;
      case FrameReader::Result::NeedMore:
        return true;
      case FrameReader::Result::Malformed:
        outcome->malformed = true;
        return false;
    }
  }
}

Outcome inOnePiece(const uint8_t* data, size_t size) {
  Outcome outcome;
  FrameReader reader(FrameKind::Transaction);
  reader.feed(data, size);
  drain(reader, &outcome);
  return outcome;
}

Outcome inPieces(const uint8_t* data, size_t size, const uint8_t* cuts, size_t count) {
  Outcome outcome;
  FrameReader reader(FrameKind::Transaction);
  size_t at = 0;
  for (size_t i = 0; at < size; ++i) {
    const size_t wish = count != 0 ? cuts[i % count] + size_t{1} : size;
    const size_t part = wish < size - at ? wish : size - at;
    const std::vector<uint8_t> piece(data + at, data + at + part);
    at += part;
    reader.feed(piece.data(), piece.size());
    // Now and then a reader is stopped before it has taken all.
    Frame frame;
    if (wish % 3 == 0 && reader.next(&frame) == FrameReader::Result::Frame) {
      outcome.frames.emplace_back(reinterpret_cast<const char*>(frame.payload), frame.header.size);
    } else if (!drain(reader, &outcome)) {
      return outcome;
    }
    reader.keep();
    if (reader.heldSize() > at) abort();
  }
  drain(reader, &outcome);
  return outcome;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const size_t cuts = std::min<size_t>(data[0] % 8, size - 1);
  const uint8_t* const stream = data + 1 + cuts;
  const size_t streamSize = size - 1 - cuts;
  if (!(inOnePiece(stream, streamSize) == inPieces(stream, streamSize, data + 1, cuts))) abort();
  return 0;
}
