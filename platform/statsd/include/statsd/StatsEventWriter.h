// The publisher's side of statsd: C++17, needs no other header of the platform.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

namespace libstatsd {

// What became of an atom, as far as its writer can know: nobody acknowledges an atom.
enum class WriteResult {
  Sent,       // the atom is in the service's queue; a service that does not hear the caller's user drops it
  TooLarge,   // the atom would be longer than 4064 bytes; the service is told that it was given up
  QueueFull,  // the service's queue stayed full for 20 ms
  NoService,  // no service could be reached
};

// Sends atoms to the service of the current runtime directory, in the encoding of libstatssocket. Keeps a
// socket from the first atom on, stays with the service that it has found until that one ends, and then finds
// one that was started again. A call waits for 20 ms at most, and only while the service's queue is full. An
// atom that could not be sent is not sent again, but counted, and the service is told of such atoms before
// the next one that reaches it. Thread-safe; threads do not wait for each other.
class StatsEventWriter {
 public:
  StatsEventWriter();
  ~StatsEventWriter();

  // Both copy the texts, which are UTF-8, and stamp the atom with the present boot time. They are not
  // [[nodiscard]]: most applications go on whatever the result is.

  // Publishes the newest value of one state of process `pid` (atom 110010).
  WriteResult publishApplicationState(int32_t pid, std::string_view key, std::string_view value);
  // Publishes the ids of the present telemetry session (atom 111983).
  WriteResult publishTelemetrySession(std::string_view serviceSessionId,
                                      std::string_view userActiveSessionId);

 private:
  class Sender;

  std::unique_ptr<Sender> mSender;
};

}  // namespace libstatsd
