// What bounds the host's statsd. Each limit says its unit, why it exists, and what happens beyond it.
#pragma once

#include <cstddef>

namespace libstatsd {

// Bytes that the configuration keeps between two fetches, as on a device: an atom counts its payload and
// kAtomBytes, which is what a record takes besides. A fetch holds its atoms in further forms, so a store full
// of small atoms costs 15 MiB for a moment. Beyond it, the uid that holds most loses its oldest atom, so that
// one publisher cannot push out another's atoms. Dropped atoms are counted by uid.
inline constexpr size_t kMaxStoreBytes = size_t{2} << 20;
inline constexpr size_t kAtomBytes = 80;

// Uids with counters of their own. The first ones get them; what others send is in the totals only. A host
// has few uids that publish, so this only bounds the memory.
inline constexpr size_t kMaxCountedUids = 64;

// Uids in the text of the status: those that lost most atoms come first.
inline constexpr size_t kMaxListedUids = 16;

// Datagrams that one system call takes off the socket. A call for each datagram makes statsd half as fast.
inline constexpr int kMaxBatch = 32;

}  // namespace libstatsd
