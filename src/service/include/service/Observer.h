#pragma once

#include <optional>
#include <string>
#include <unordered_map>

namespace Torv::OS::Diagnostics {

// An object that a Producer tells about system events.
class Observer {
 public:
  virtual ~Observer() = default;

  // Called for each event, on the binder thread that received it; several threads may call at the same time.
  // `data` holds details of the event, or nullopt if the producer passes none on.
  virtual void onEvent(int eventId, std::optional<std::unordered_map<std::string, std::string>> data) = 0;
};

}  // namespace Torv::OS::Diagnostics
