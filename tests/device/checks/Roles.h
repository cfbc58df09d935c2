#pragma once

#include <cstdint>
#include <string>
#include <vector>

inline constexpr char kEchoService[] = "Echo";
inline constexpr char kSlowService[] = "SlowNotificationService";
inline constexpr uint32_t kEchoTransaction = 1;

// What this program does when it is started as another process of the machine, and its exit code. The roles:
//   publish KEY VALUE...       publishes states of its own process; ready; stays
//   session SERVICE USER       publishes the telemetry session
//   notify CODE                sends a system event and exits at once
//   query PID VALUE COUNT      makes all three queries COUNT times; the process's state "who" must be VALUE
//   stuck                      ready; once released asks for all states
//   spin                       ready; keeps a processor busy
//   slow                       offers kSlowService, whose observer waits to be released and then says ready;
//                              ready
//   echo BYTES                 offers kEchoService, which answers anything with so many bytes; ready
int playRole(const std::vector<std::string>& arguments);
