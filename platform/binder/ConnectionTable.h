#pragma once

#include <cstddef>
#include <list>
#include <map>
#include <optional>

#include <sys/types.h>

#include "Connection.h"
#include "base/Mutex.h"

namespace platform::binder {

// The connections of a server. Decides which one ends if there are too many; see Limits::connections. Does
// not own them. Thread-safe.
class ConnectionTable {
 public:
  explicit ConnectionTable(size_t most) : mMost(most) {}

  // The number of connections that the table has room for.
  size_t most() const { return mMost; }

  // Enters a connection. If its uid's share or the table is full, gives up another connection first. Returns
  // false if none can be given up; then the connection is not entered. It must live until remove().
  bool add(Connection& connection);
  // Does nothing if the connection is not in the table, for instance because it was given up.
  void remove(Connection& connection);

  // Gives up all connections; they stay in the table until remove().
  void giveUpAll();

 private:
  using Counts = std::map<uid_t, size_t>;

  bool giveUpOne(const Counts& held, std::optional<uid_t> ofUid) REQUIRES(mMutex);

  const size_t mMost;
  Torv::Base::Mutex mMutex;
  std::list<Connection*> mConnections GUARDED_BY(mMutex);
};

}  // namespace platform::binder
