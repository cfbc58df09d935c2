#include "timeline/Trace.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <tuple>
#include <utility>

#include <string.h>

#include "trace.pb.h"

namespace timeline {
namespace {

using trace::CounterDescriptor;
using trace::TrackDescriptor;
using trace::TrackEvent;

constexpr uint32_t kSequence = 1;                 // all packets are of one writer
constexpr uint32_t kIncrementalStateCleared = 1;  // of sequence_flags: the first packet of a sequence
// The numbers of the format's clocks.
constexpr uint32_t kRealtimeClock = 1;
constexpr uint32_t kMonotonicClock = 3;
constexpr uint32_t kBootClock = 6;
constexpr uint64_t kNsPerMs = 1'000'000;

struct Event {
  int64_t bootMs = 0;
  TrackEvent event;
};

// Descriptors of tracks come first, then all events in the order of their times.
class TraceWriter {
 public:
  explicit TraceWriter(const Timeline& timeline) : mTimeline(timeline) {}

  std::string write() {
    addClocks();
    addSeries();
    addProcesses();
    addGlobals();
    addGaps();
    // An end of a slice comes before the beginning of the next one at the same time.
    std::stable_sort(mEvents.begin(), mEvents.end(), [](const Event& a, const Event& b) {
      return std::pair(a.bootMs, a.event.type() != TrackEvent::TYPE_SLICE_END) <
             std::pair(b.bootMs, b.event.type() != TrackEvent::TYPE_SLICE_END);
    });
    for (Event& event : mEvents) {
      trace::TracePacket& packet = newPacket();
      packet.set_timestamp(static_cast<uint64_t>(event.bootMs) * kNsPerMs);
      packet.set_timestamp_clock_id(kBootClock);
      *packet.mutable_track_event() = std::move(event.event);
    }
    return mTrace.SerializeAsString();
  }

 private:
  // Viewers drop packets of a sequence whose first packet does not say that its state begins anew.
  trace::TracePacket& newPacket() {
    trace::TracePacket& packet = *mTrace.add_packet();
    packet.set_trusted_packet_sequence_id(kSequence);
    if (mTrace.packet_size() == 1) packet.set_sequence_flags(kIncrementalStateCleared);
    return packet;
  }

  // A track for `name`, below `parent` unless that is 0. The reference is valid until the next packet.
  TrackDescriptor& newTrack(const std::string& name, uint64_t parent) {
    TrackDescriptor& track = *newPacket().mutable_track_descriptor();
    track.set_uuid(++mLastUuid);
    if (!name.empty()) track.set_name(name);
    if (parent != 0) track.set_parent_uuid(parent);
    return track;
  }

  TrackEvent& newEvent(int64_t bootMs, uint64_t track, TrackEvent::Type type) {
    Event& event = mEvents.emplace_back();
    event.bootMs = std::max<int64_t>(bootMs, 0);  // of a global state: published before this machine's boot
    event.event.set_track_uuid(track);
    event.event.set_type(type);
    return event.event;
  }

  void addSlice(uint64_t track, const char* category, const std::string& name, int64_t fromMs, int64_t toMs) {
    TrackEvent& begin = newEvent(fromMs, track, TrackEvent::TYPE_SLICE_BEGIN);
    begin.add_categories(category);
    begin.set_name(name);
    // One that ends when it begins would end first: such a value was seen at a single moment.
    newEvent(std::max(toMs, fromMs + 1), track, TrackEvent::TYPE_SLICE_END);
  }

  // Readings of the same moment let a viewer show wall-clock times.
  void addClocks() {
    const Clocks& now = mTimeline.clocks;
    trace::ClockSnapshot& snapshot = *newPacket().mutable_clock_snapshot();
    for (const auto& [id, ms] : {std::pair(kBootClock, now.bootMs),
                                 {kMonotonicClock, now.monotonicMs},
                                 {kRealtimeClock, now.wallMs}}) {
      auto& clock = *snapshot.add_clocks();
      clock.set_clock_id(id);
      clock.set_timestamp(static_cast<uint64_t>(ms) * kNsPerMs);
    }
  }

  // Memory is told as KiB with a multiplier: viewers then show MiB and GiB as they like.
  void addSeries() {
    std::map<std::string, uint64_t> sources;
    for (const Series& series : mTimeline.series) {
      // Uuids begin with 1, so 0 means that the source has no track yet.
      uint64_t& source = sources[series.source];
      if (source == 0) source = newTrack(series.source, 0).uuid();
      TrackDescriptor& track = newTrack(series.metric, source);
      CounterDescriptor& counter = *track.mutable_counter();
      if (series.unit == Unit::Kibibytes) {
        counter.set_unit(CounterDescriptor::UNIT_SIZE_BYTES);
        counter.set_unit_multiplier(1024);
      } else {
        counter.set_unit_name(series.unit == Unit::None ? "count" : unitName(series.unit));
      }
      for (const Point& point : series.points) addPoint(track.uuid(), series.unit, point);
    }
  }

  // Whole KiB as integers, because viewers scale integers with the multiplier exactly. Shares as doubles.
  void addPoint(uint64_t track, Unit unit, const Point& point) {
    if (!point.value) return;  // the format has no way to say that a counter has no value
    TrackEvent& event = newEvent(point.bootMs, track, TrackEvent::TYPE_COUNTER);
    if (unit == Unit::Kibibytes) {
      event.set_counter_value(std::llround(*point.value));
    } else {
      event.set_double_counter_value(*point.value);
    }
  }

  // A track for each key, because slices of one track must nest, and values of two keys overlap as they like.
  void addProcesses() {
    std::map<int32_t, std::map<std::string, std::vector<const KeyChange*>>> changes;
    for (const KeyChange& change : mTimeline.changes) changes[change.pid][change.key].push_back(&change);
    for (const Death& death : mTimeline.deaths) changes[death.pid];
    for (const auto& [pid, keys] : changes) {
      const std::string name = nameOf(mTimeline, pid);
      TrackDescriptor& track = newTrack("", 0);
      track.mutable_process()->set_pid(pid);
      track.mutable_process()->set_process_name(name.empty() ? "process " + std::to_string(pid) : name);
      const uint64_t process = track.uuid();
      for (const Death& death : mTimeline.deaths) {
        if (death.pid == pid) addDeath(process, death);
      }
      for (const auto& [key, values] : keys) addKey(newTrack(key, process).uuid(), values);
    }
  }

  // On the track of the process itself, not of a key: a process without keys dies as well.
  void addDeath(uint64_t track, const Death& death) {
    TrackEvent& event = newEvent(death.seenMs, track, TrackEvent::TYPE_INSTANT);
    event.add_categories("death");
    event.set_name(death.signal ? std::string("died of ") + strsignal(*death.signal) : "died");
  }

  // A value lasts until the next one of its key. An empty value ends the one before it and begins nothing.
  void addKey(uint64_t track, const std::vector<const KeyChange*>& values) {
    for (size_t i = 0; i < values.size(); ++i) {
      if (!values[i]->value) continue;
      const int64_t next = i + 1 < values.size() ? values[i + 1]->seenMs : mTimeline.endMs;
      addSlice(track, "state", *values[i]->value, values[i]->seenMs,
               std::min(next, deathAfter(values[i]->pid, values[i]->seenMs)));
    }
  }

  // The first death of the process at or after `bootMs`; the end of the timeline if there is none.
  int64_t deathAfter(int32_t pid, int64_t bootMs) const {
    for (const Death& death : mTimeline.deaths) {
      if (death.pid == pid && death.seenMs >= bootMs) return death.seenMs;
    }
    return mTimeline.endMs;
  }

  // One track for each namespace, with a child for each key, as with processes.
  void addGlobals() {
    std::map<std::pair<std::string, std::string>, std::vector<const GlobalChange*>> states;
    for (const GlobalChange& change : mTimeline.globals) {
      states[{change.nameSpace, change.key}].push_back(&change);
    }
    std::map<std::string, uint64_t> namespaces;
    for (const auto& [name, values] : states) {
      uint64_t& parent = namespaces[name.first];
      if (parent == 0) parent = newTrack(name.first, 0).uuid();
      const uint64_t track = newTrack(name.second, parent).uuid();
      for (size_t i = 0; i < values.size(); ++i) {
        addSlice(track, "global", values[i]->value, values[i]->publishedMs,
                 i + 1 < values.size() ? values[i + 1]->publishedMs : mTimeline.endMs);
      }
    }
  }

  // The format has no notion of a time in which nobody looked. A track of its own says it, so that flat
  // counters are not taken for measured ones.
  void addGaps() {
    if (mTimeline.gaps.empty()) return;
    const uint64_t track = newTrack("not observed", 0).uuid();
    for (const Gap& gap : mTimeline.gaps) addSlice(track, "gap", gap.reason, gap.fromMs, gap.toMs);
  }

  // Events wait here until all tracks are described, and are sorted then.
  const Timeline& mTimeline;
  trace::Trace mTrace;
  std::vector<Event> mEvents;
  uint64_t mLastUuid = 0;
};

}  // namespace

// The whole trace is built in memory, as the timeline is.
std::string toTrace(const Timeline& timeline) {
  return TraceWriter(timeline).write();
}

}  // namespace timeline
