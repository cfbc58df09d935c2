// A stream of any bytes, sent in pieces whose sizes are its own first bytes: the reader must give exactly the
// frames that a plain reading of the whole stream gives, and stop at the same place.

#include <sys/socket.h>

#include <cstring>
#include <thread>
#include <vector>

#include <android-base/unique_fd.h>

#include "Frame.h"
#include "Fuzz.h"

using namespace platform::binder;
using android::base::unique_fd;

using Payloads = std::vector<std::string>;

static Payloads readPlainly(std::string_view stream) {
  Payloads payloads;
  for (FrameHeader header; stream.size() >= sizeof(header);) {
    memcpy(&header, stream.data(), sizeof(header));
    stream.remove_prefix(sizeof(header));
    if (header.kind != static_cast<uint32_t>(FrameKind::Transaction)) break;
    if (header.size > kMaxPayload || header.size > stream.size()) break;
    payloads.emplace_back(stream.substr(0, header.size));
    stream.remove_prefix(header.size);
  }
  return payloads;
}

static Payloads readFrames(int socket) {
  Payloads payloads;
  FrameReader reader(socket, FrameKind::Transaction, std::chrono::minutes(10));
  while (reader.await()) {
    const auto header = reader.header();
    android::Parcel parcel;
    if (!header.ok() || !reader.payload(header->size, &parcel).ok()) break;
    check(parcel.dataSize() == header->size && parcel.dataPosition() == 0, "a whole payload");
    payloads.emplace_back(reinterpret_cast<const char*>(parcel.data()), parcel.dataSize());
  }
  return payloads;
}

FUZZ(input) {
  if (input.empty()) return;
  const size_t count = std::min<size_t>(static_cast<uint8_t>(input[0]) % 8, input.size() - 1);
  std::vector<size_t> pieces;
  for (const char size : input.substr(1, count)) pieces.push_back(size_t{1} + static_cast<uint8_t>(size));
  if (pieces.empty()) pieces = {input.size()};
  const std::string stream = input.substr(1 + count);

  int ends[2];
  check(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0, "socketpair");
  const unique_fd reader(ends[0]);
  std::thread sender([&stream, &pieces, end = unique_fd(ends[1])] {
    for (size_t at = 0, i = 0; at < stream.size(); ++i) {
      const size_t piece = std::min(pieces[i % pieces.size()], stream.size() - at);
      if (send(end.get(), stream.data() + at, piece, MSG_NOSIGNAL) < 0) return;
      at += piece;
    }
  });
  // The sender's end closes with the lambda, which lives in the thread.
  const Payloads frames = readFrames(reader.get());
  shutdown(reader.get(), SHUT_RDWR);
  sender.join();
  check(frames == readPlainly(stream), "the frames of a plain reading");
}
