#pragma once

#include <string>
#include <variant>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <osutils/Telemetry.h>
#include <statsd/StatsEventWriter.h>
#include <statsd/StatsdCollection.h>
#include <statsd/StatsdConfiguration.h>

#include "fixture/Process.h"
#include "support/TempDir.h"

namespace libstatsd {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr int32_t kConfigId = 57476;
constexpr int32_t kStateAtom = 110010;
constexpr int32_t kSessionAtom = 111983;

// The bytes that "07 05 01" spells; spaces do not count.
inline std::string bytes(std::string hex) {
  std::erase(hex, ' ');
  std::string out;
  for (size_t at = 0; at < hex.size(); at += 2) out += char(std::stoi(hex.substr(at, 2), nullptr, 16));
  return out;
}

// A datagram with the event that `hex` spells.
inline std::string datagram(const std::string& hex) {
  return bytes("05 3412 80005962 00000000 74617473" + hex);
}

// A runtime directory for this process as the service that keeps atoms.
class StatsdTest : public testing::Test {
 protected:
  static PublishStatus publish(const std::vector<std::string>& sources = {"AID_APP"}) {
    StatsdConfiguration configuration;
    for (const int32_t atom : {kStateAtom, kSessionAtom}) EXPECT_TRUE(configuration.addEventAtomId(atom));
    for (const std::string& source : sources) configuration.addAllowedLogSource(source);
    return configuration.publishConfigurationBlocked(kConfigId, 1000);
  }

  // The payloads of the atoms.
  static std::vector<std::string> fetch() {
    StatsdCollection collection;
    collection.addConfiguration(kConfigId, 1000);
    const auto answer = collection.fetchReportsBlocked();
    std::vector<std::string> payloads;
    for (const Report& report : std::get<std::vector<Report>>(answer)) {
      for (const AtomReport& atom : report) {
        payloads.emplace_back(Torv::OS::Telemetry::parseAtom(atom.atom).payload);
      }
    }
    return payloads;
  }

  test::TempDir mDirectory;
  test::ScopedEnv mEnvironment{"TORV_RUNTIME_DIR", mDirectory.path()};
  StatsEventWriter mWriter;
};

}  // namespace libstatsd
