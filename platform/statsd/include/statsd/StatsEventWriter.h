// The publisher's side of statsd: C++17, needs no other header of the platform.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include <statsd/StatsEvent.h>

namespace libstatsd {

enum class WriteResult {
  Sent,      // the event is in the service's queue, or was received; a service that does not hear it drops it
  TooLarge,  // the event was given up (see StatsEvent)
  QueueFull,  // the service's queue stayed full for 20 ms
  NoService,  // no service could be reached
};

// Sends events to the service of the current runtime directory. Connects at the first write, and again after
// a restart of the service. A write waits for 20 ms at most, and only while the service's queue is full. Lost
// events are counted, and the service is told of them before the next event that reaches it. Thread-safe;
// threads do not wait for each other.
class StatsEventWriter {
 public:
  StatsEventWriter();
  ~StatsEventWriter();
  StatsEventWriter(const StatsEventWriter&) = delete;
  StatsEventWriter& operator=(const StatsEventWriter&) = delete;

  // Not [[nodiscard]]: most applications go on whatever the result is.
  WriteResult write(const StatsEvent& event);

  // Publishes the newest value of one state of process `pid` (atom 110010). Texts are UTF-8.
  WriteResult publishApplicationState(int32_t pid, std::string_view key, std::string_view value);
  // Publishes the ids of the present telemetry session (atom 111983).
  WriteResult publishTelemetrySession(std::string_view serviceSessionId,
                                      std::string_view userActiveSessionId);

 private:
  class Connection;

  std::unique_ptr<Connection> mConnection;
};

}  // namespace libstatsd
