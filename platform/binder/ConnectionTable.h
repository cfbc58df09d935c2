#pragma once

#include <cstddef>
#include <list>
#include <map>
#include <optional>

#include <sys/types.h>

#include "Connection.h"
#include "base/Mutex.h"

namespace platform::binder {

// The connections of a server, and who has to go when there are too many. Thread-safe.
class ConnectionTable {
 public:
  explicit ConnectionTable(size_t most) : mMost(most) {}

  size_t most() const { return mMost; }

  // Makes room for one connection of `uid` and counts it; if its share or the table is full, gives another
  // one up (see Limits::connections). Returns false if none can go.
  bool reserve(uid_t uid);
  // Enters the connection that the room was reserved for. It stays until remove(), or until it is given up.
  void add(Connection& connection);
  void remove(Connection& connection);

  void giveUpAll();

 private:
  bool giveUpOne(std::optional<uid_t> ofUid) REQUIRES(mMutex);
  void uncount(uid_t uid) REQUIRES(mMutex);

  const size_t mMost;
  Torv::Base::Mutex mMutex;
  std::list<Connection*> mConnections GUARDED_BY(mMutex);  // none of those that were given up
  std::map<uid_t, size_t> mHeld GUARDED_BY(mMutex);        // connections and reservations
  size_t mCount GUARDED_BY(mMutex) = 0;                    // the sum over mHeld
};

}  // namespace platform::binder
