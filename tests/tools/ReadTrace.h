// A trace, read back with the messages of its schema.
#pragma once

#include <map>
#include <string>

#include <gtest/gtest.h>

#include "trace.pb.h"

namespace timeline {

struct ReadTrace {
  explicit ReadTrace(const std::string& bytes) {
    EXPECT_TRUE(whole.ParseFromString(bytes));
    for (const auto& packet : whole.packet()) {
      if (packet.has_track_descriptor()) tracks[packet.track_descriptor().uuid()] = packet.track_descriptor();
    }
  }

  // "psi_cpu_history/some_avg10", "app/screen"
  std::string path(uint64_t uuid) const {
    const trace::TrackDescriptor& track = tracks.at(uuid);
    const std::string name = track.has_process() ? track.process().process_name() : track.name();
    return track.has_parent_uuid() ? path(track.parent_uuid()) + '/' + name : name;
  }

  trace::Trace whole;
  std::map<uint64_t, trace::TrackDescriptor> tracks;
};

}  // namespace timeline
