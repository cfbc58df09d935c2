// The trace, read back with the messages of its schema, and without them.
#include "timeline/Trace.h"

#include <gmock/gmock.h>
#include <google/protobuf/text_format.h>
#include <google/protobuf/unknown_field_set.h>

#include "ReadTrace.h"

namespace timeline {
namespace {

// The events in the order of the packets: "<ms> <B, E or I> <track> <name>".
std::vector<std::string> eventsOf(const ReadTrace& trace) {
  std::vector<std::string> lines;
  for (const auto& packet : trace.whole.packet()) {
    if (!packet.has_track_event()) continue;
    const auto& event = packet.track_event();
    std::string line = std::to_string(packet.timestamp() / 1'000'000) + " " + "?BEI"[event.type()] + " " +
                       trace.path(event.track_uuid());
    if (event.has_name()) line += " " + event.name();
    lines.push_back(line);
  }
  return lines;
}

TEST(TraceTest, keysGlobalStatesAndGapsHaveTracksWithASliceForEachValue) {
  Timeline timeline;
  timeline.changes = {{1000, 7, "screen", "home", true},
                      {1000, 7, "user", "a", true},
                      {2000, 7, "screen", "map", false},
                      {2500, 7, "user", std::nullopt, false}};
  timeline.deaths = {{3000, 7, 11, ""}};
  timeline.names[7] = "app";
  timeline.globals = {{500, "telemetry", "id", "one"}, {2100, "telemetry", "id", "two"}};
  timeline.gaps = {{4000, 5000, "no service"}};
  timeline.endMs = 9000;
  EXPECT_THAT(eventsOf(ReadTrace(toTrace(timeline))),
              testing::ElementsAre("500 B telemetry/id one", "1000 B app/screen home", "1000 B app/user a",
                                   "2000 E app/screen", "2000 B app/screen map", "2100 E telemetry/id",
                                   "2100 B telemetry/id two", "2500 E app/user", "3000 E app/screen",
                                   "3000 I app died of Segmentation fault", "4000 B not observed no service",
                                   "5000 E not observed", "9000 E telemetry/id"));
}

// Without the project's messages, so that a wrong number in them shows: viewers know the public ones.
TEST(TraceTest, fieldsHaveTheNumbersOfThePublicFormat) {
  Timeline timeline;
  timeline.clocks = {1, 2, 3};
  timeline.endMs = 6;
  timeline.series = {{"m", "KB", Unit::Kibibytes, {{4, 8.0}}}, {"m", "%", Unit::Percent, {{4, 0.5}}}};
  timeline.changes = {{5, 7, "k", "v", true}};
  google::protobuf::UnknownFieldSet fields;
  ASSERT_TRUE(fields.ParseFromString(toTrace(timeline)));
  google::protobuf::TextFormat::Printer printer;
  printer.SetSingleLineMode(true);
  std::string text;
  ASSERT_TRUE(printer.PrintUnknownFieldsToString(fields, &text));
  EXPECT_EQ(text,
            "1 { 6 { 1 { 1: 6 2: 1000000 } 1 { 1: 3 2: 2000000 } 1 { 1: 1 2: 3000000 } } 10: 1 13: 1 } "
            "1 { 10: 1 60 { 1: 1 2: \"m\" } } "
            "1 { 10: 1 60 { 1: 2 2: \"KB\" 5: 1 8 { 3: 3 4: 1024 } } } "
            "1 { 10: 1 60 { 1: 3 2: \"%\" 5: 1 8 { 6: \"%\" } } } "
            "1 { 10: 1 60 { 1: 4 3 { 1: 7 6: \"process 7\" } } } "
            "1 { 10: 1 60 { 1: 5 2: \"k\" 5: 4 } } "
            "1 { 8: 4000000 10: 1 11 { 9: 4 11: 2 30: 8 } 58: 6 } "
            "1 { 8: 4000000 10: 1 11 { 9: 4 11: 3 44: 0x3fe0000000000000 } 58: 6 } "
            "1 { 8: 5000000 10: 1 11 { 9: 1 11: 5 22: \"state\" 23: \"v\" } 58: 6 } "
            "1 { 8: 6000000 10: 1 11 { 9: 2 11: 5 } 58: 6 } ");
}

}  // namespace
}  // namespace timeline
