#pragma once

#include <string>
#include <variant>
#include <vector>

#include <statsd/StatsdCollection.h>
#include <statsd/StatsdConfiguration.h>

namespace test {

// What statsd's client library is asked in this program, and what it answers.
struct FakeStatsd {
  std::vector<std::string> calls;
  int32_t refusedAtom = 0;
  libstatsd::PublishStatus status = libstatsd::PublishStatus::Success;
  std::variant<std::vector<libstatsd::Report>, libstatsd::Error> reports;
};

FakeStatsd& fakeStatsd();

}  // namespace test
