// What clients may take from a process that serves binder objects. Every bound of the carrier stands here,
// with its unit, its reason, and what happens beyond it.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>

namespace platform::binder {

// Bytes of a transaction or of a reply: the device's receive buffer, 1 MiB less two pages. The sender of more
// gets FAILED_TRANSACTION; a frame that announces more ends its connection, and nothing is allocated for it.
inline constexpr size_t kMaxPayload = 1024 * 1024 - 8 * 1024;

// Bytes of payload that a two-way call carries free of charge. Larger ones count against Limits::requests.
inline constexpr size_t kSmallPayload = size_t{8} * 1024;

// Bytes that a one-way call counts beside its payload: what the queue needs for it, so that the bound on
// bytes bounds the number of calls too (4,096 empty ones for each uid).
inline constexpr size_t kOneWayOverhead = 256;

// A resource that the clients of a process share.
struct Share {
  size_t total;  // for all uids together
  size_t byUid;  // for one uid; a client beyond it waits until its uid has given some back
};

// The bounds that tests make smaller.
struct Limits {
  // From the first byte of a frame to its last, and from a reply's first byte to its last: any honest client
  // needs milliseconds. Beyond it the client's connection is closed, with one log line. Time in which the
  // server itself does not read counts for nobody.
  std::chrono::milliseconds transfer{5000};

  // Connections at a time; 0 stands for RLIMIT_NOFILE less kReservedDescriptors, at most kMaxConnections.
  // When they are full, the uid that holds most gives one up: the one that has stalled for longest, else the
  // one that has been idle for longest. A client notices when it sends next, and connects again. If no
  // connection can go, the new one is closed.
  size_t connections = 0;

  // Bytes of two-way requests over kSmallPayload that are being read, wait for the pool, or run. Half a
  // request may hold its bytes for `transfer`, so one uid never gets more than a quarter. Beyond it nothing
  // more is read from that uid's connections.
  Share requests{size_t{16} << 20, size_t{4} << 20};

  // Bytes of replies that their clients have not taken yet, beyond what the socket holds. Beyond it the
  // connection waits until an earlier reply of the same uid is taken or given up. A reply over kSmallPayload
  // keeps the transaction's slot of the pool until then.
  Share replies{size_t{16} << 20, size_t{4} << 20};

  // Bytes of one-way calls that are being read, wait, or run, each with kOneWayOverhead. One uid gets as much
  // as one call of the largest size needs. Beyond it nothing more is read from the connection that sent the
  // call until earlier calls have run.
  Share oneWays{size_t{4} << 20, size_t{1} << 20};
};

// The slots of a pool of `slots` that one uid may hold: a quarter, as of the connections, but up to four
// unless that is more than half. Its further calls wait. Half of a large pool would be unfair on a machine of
// few processors, where so many calls of one uid slow down each call of another. Fewer than four would be too
// few for a client of which two calls wait for a slow device. A pool of less than four slots is for those who
// come first.
constexpr size_t slotsByUid(size_t slots) {
  return slots < 4 ? slots : std::max(slots / 4, std::min<size_t>(slots / 2, 4));
}
// A uid holds at most one in so many of the connections. Beyond it, it gives up one of its own.
inline constexpr size_t kConnectionShares = 4;
// Descriptors that stay free for the files of the process and for connections that are being closed.
inline constexpr size_t kReservedDescriptors = 128;
// Each connection has a thread: 12 KiB of stack and buffer while it is idle.
inline constexpr size_t kMaxConnections = 1024;
// Connections that have been given up and are not closed yet. Beyond it the next one is accepted when one of
// them has gone, which takes a moment of its thread.
inline constexpr size_t kClosingConnections = 32;
// How long a connection has been idle, or a frame or reply has been under way, before the connection may be
// given up for another one. Without it, one that has a request in the kernel's buffer could go, and a flood
// of connections would make a thread for each.
inline constexpr std::chrono::milliseconds kGiveUpAfter{100};
// Connections that wait in the kernel to be accepted. A flood keeps that queue full whatever its length is,
// and a good client that has got into it waits for those before it.
inline constexpr int kBacklog = 32;
// The pause before the next accept(2) if the system refuses descriptors or memory; it could fail at once
// again.
inline constexpr std::chrono::milliseconds kAcceptPause{100};

// How long the process waits for the calls under way when its pool is stopped. Then the pool ends without
// them.
inline constexpr std::chrono::milliseconds kDrain{3000};

// How long a client waits for room for a one-way call before the call fails with FAILED_TRANSACTION. The
// server takes calls up to Limits::oneWays; further ones fill the socket of the calling thread, 208 KiB with
// Linux's defaults.
inline constexpr std::chrono::milliseconds kOneWayPatience{1000};
// How long a client waits for a place in the queue of connections that a server has not accepted yet. Beyond
// it the server counts as busy. The client waits in line for one turn, then tries so many times, about 0.3
// ms, and so on.
inline constexpr std::chrono::milliseconds kConnectPatience{2000};
inline constexpr std::chrono::milliseconds kConnectTurn{5};
inline constexpr int kConnectTries = 200;

// Bytes of stack for the thread of a connection: what a transaction may need, with room for the frames of a
// sanitizer.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr size_t kStackSize = size_t{2} << 20;
#else
inline constexpr size_t kStackSize = size_t{256} << 10;
#endif

}  // namespace platform::binder
