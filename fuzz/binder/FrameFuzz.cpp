// A stream of any bytes, sent in pieces whose sizes are its own first bytes: the reader must give exactly the
// frames that a plain reading of the whole stream gives, and stop at the same place.

#include <sys/socket.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <android-base/unique_fd.h>

#include "Frame.h"

namespace {

using android::base::unique_fd;
using platform::binder::FrameHeader;
using platform::binder::FrameKind;
using platform::binder::FrameReader;
using platform::binder::kMaxPayload;

using Payloads = std::vector<std::string>;

Payloads readPlainly(const uint8_t* data, size_t size) {
  Payloads payloads;
  for (FrameHeader header; size >= sizeof(header);) {
    memcpy(&header, data, sizeof(header));
    data += sizeof(header);
    size -= sizeof(header);
    if (header.kind != static_cast<uint32_t>(FrameKind::Transaction)) break;
    if (header.size > kMaxPayload || header.size > size) break;
    payloads.emplace_back(reinterpret_cast<const char*>(data), header.size);
    data += header.size;
    size -= header.size;
  }
  return payloads;
}

Payloads readFrames(int socket) {
  Payloads payloads;
  FrameReader reader(socket, FrameKind::Transaction, std::chrono::minutes(10));
  while (reader.await()) {
    const auto header = reader.header();
    android::Parcel parcel;
    if (!header.ok() || !reader.payload(header->size, &parcel).ok()) break;
    if (parcel.dataSize() != header->size || parcel.dataPosition() != 0) abort();
    payloads.emplace_back(reinterpret_cast<const char*>(parcel.data()), parcel.dataSize());
  }
  return payloads;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const size_t count = std::min<size_t>(data[0] % 8, size - 1);
  std::vector<size_t> pieces(data + 1, data + 1 + count);
  for (size_t& piece : pieces) ++piece;
  if (pieces.empty()) pieces = {size};
  const std::string stream(data + 1 + count, data + size);

  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) abort();
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
  const auto* const bytes = reinterpret_cast<const uint8_t*>(stream.data());
  if (frames != readPlainly(bytes, stream.size())) abort();
  return 0;
}
