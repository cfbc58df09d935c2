#pragma once

#include <filesystem>
#include <string>
#include <variant>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <osutils/Telemetry.h>
#include <statsd/StatsdCollection.h>
#include <statsd/StatsdConfiguration.h>
#include <unistd.h>

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

// The field 1 of a state atom.
inline std::string pidField(pid_t pid) {
  std::string field = "\x08";
  for (; pid >= 0x80; pid >>= 7) field += static_cast<char>(pid | 0x80);
  return field + static_cast<char>(pid);
}

inline std::string payloadOf(const AtomReport& report) {
  return std::string(Torv::OS::Telemetry::parseAtom(report.atom).payload);
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

  static Report fetch() {
    StatsdCollection collection;
    collection.addConfiguration(kConfigId, 1000);
    auto answer = collection.fetchReportsBlocked();
    auto& reports = std::get<std::vector<Report>>(answer);
    return reports.empty() ? Report() : std::move(reports.at(0));
  }

  test::TempDir mDirectory;
  test::ScopedEnv mEnvironment{"TORV_RUNTIME_DIR", mDirectory.path()};
};

}  // namespace libstatsd
