// The trace, read back with the messages of its schema.
#include "timeline/Trace.h"

#include <map>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "trace.pb.h"

namespace timeline {
namespace {

using testing::ElementsAre;
using trace::CounterDescriptor;
using trace::TrackDescriptor;
using trace::TrackEvent;

struct ReadTrace {
  explicit ReadTrace(const Timeline& timeline) {
    EXPECT_TRUE(whole.ParseFromString(toTrace(timeline)));
    for (const auto& packet : whole.packet()) {
      if (packet.has_track_descriptor()) tracks[packet.track_descriptor().uuid()] = packet.track_descriptor();
    }
  }

  // "psi_cpu_history/some_avg10", "app/screen"
  std::string path(uint64_t uuid) const {
    const TrackDescriptor& track = tracks.at(uuid);
    const std::string name = track.has_process() ? track.process().process_name() : track.name();
    return track.has_parent_uuid() ? path(track.parent_uuid()) + '/' + name : name;
  }

  // The events in the order of the packets: "<ms> <B, E, I or C> <track> <name or value>".
  std::vector<std::string> events() const {
    std::vector<std::string> lines;
    for (const auto& packet : whole.packet()) {
      if (!packet.has_track_event()) continue;
      const TrackEvent& event = packet.track_event();
      std::string line = std::to_string(packet.timestamp() / 1'000'000) + " " + "?BEIC"[event.type()] + " " +
                         path(event.track_uuid());
      if (event.has_name()) line += " " + event.name();
      if (event.has_counter_value()) line += " " + std::to_string(event.counter_value());
      if (event.has_double_counter_value()) line += " " + std::to_string(event.double_counter_value());
      lines.push_back(line);
    }
    return lines;
  }

  trace::Trace whole;
  std::map<uint64_t, TrackDescriptor> tracks;
};

TEST(TraceTest, processesHaveATrackForEachKeyAndASliceForEachValue) {
  Timeline timeline;
  timeline.changes = {{1000, 7, "screen", "home", true},
                      {1000, 7, "user", "a", true},
                      {2000, 7, "screen", "map", false},
                      {2500, 7, "user", std::nullopt, false}};
  timeline.deaths = {{3000, 7, 11, ""}};
  timeline.names[7] = "app";
  timeline.endMs = 9000;
  EXPECT_THAT(
      ReadTrace(timeline).events(),
      ElementsAre("1000 B app/screen home", "1000 B app/user a", "2000 E app/screen", "2000 B app/screen map",
                  "2500 E app/user", "3000 E app/screen", "3000 I app died of Segmentation fault"));
}

TEST(TraceTest, metricsAreCountersWithTheirUnits) {
  Timeline timeline;
  timeline.series = {{"mem", "Free_KB", Unit::Kibibytes, {{1000, 5.0}, {2000, std::nullopt}, {3000, 6.0}}},
                     {"mem", "Free_%", Unit::Percent, {{1000, 12.5}}}};
  const ReadTrace trace(timeline);
  EXPECT_THAT(trace.events(),
              ElementsAre("1000 C mem/Free_KB 5", "1000 C mem/Free_% 12.500000", "3000 C mem/Free_KB 6"));
  int counters = 0;
  for (const auto& [uuid, track] : trace.tracks) {
    if (!track.has_counter()) continue;
    ++counters;
    if (track.name() == "Free_%") {
      EXPECT_EQ(track.counter().unit_name(), "%");
    } else {
      EXPECT_EQ(track.counter().unit(), CounterDescriptor::UNIT_SIZE_BYTES);
      EXPECT_EQ(track.counter().unit_multiplier(), 1024);
    }
  }
  EXPECT_EQ(counters, 2);
}

TEST(TraceTest, globalStatesAndGapsHaveTracksOfTheirOwn) {
  Timeline timeline;
  timeline.globals = {{500, "telemetry", "id", "one"}, {2000, "telemetry", "id", "two"}};
  timeline.gaps = {{3000, 4000, "no service"}};
  timeline.endMs = 5000;
  EXPECT_THAT(ReadTrace(timeline).events(),
              ElementsAre("500 B telemetry/id one", "2000 E telemetry/id", "2000 B telemetry/id two",
                          "3000 B not observed no service", "4000 E not observed", "5000 E telemetry/id"));
}

TEST(TraceTest, packetsNameTheirClockAndTheirSequence) {
  Timeline timeline;
  timeline.clocks = {10, 20, 30};
  timeline.deaths = {{5, 1, std::nullopt, ""}};
  const ReadTrace trace(timeline);
  const auto& first = trace.whole.packet(0);
  EXPECT_EQ(first.sequence_flags(), 1);
  ASSERT_EQ(first.clock_snapshot().clocks_size(), 3);
  EXPECT_EQ(first.clock_snapshot().clocks(0).clock_id(), 6);
  EXPECT_EQ(first.clock_snapshot().clocks(0).timestamp(), 10'000'000);
  for (const auto& packet : trace.whole.packet()) EXPECT_EQ(packet.trusted_packet_sequence_id(), 1);
  const auto& death = trace.whole.packet(trace.whole.packet_size() - 1);
  EXPECT_EQ(death.timestamp(), 5'000'000);
  EXPECT_EQ(death.timestamp_clock_id(), 6);
}

}  // namespace
}  // namespace timeline
