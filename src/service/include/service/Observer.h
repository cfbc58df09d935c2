#pragma once

#include <optional>
#include <string>
#include <unordered_map>

namespace Torv::OS::Diagnostics {

// Whoever wants to be told of system events.
class Observer {
 public:
  virtual ~Observer() = default;

  // Called on the binder thread that received the event; several may come at once. `data` holds details of
  // the event where its sender's are passed on.
  virtual void onEvent(int eventId, std::optional<std::unordered_map<std::string, std::string>> data) = 0;
};

}  // namespace Torv::OS::Diagnostics
