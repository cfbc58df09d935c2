#pragma once

#include <string>

#include "timeline/Timeline.h"

namespace timeline {

// The timeline as a trace in the public protobuf format that trace viewers open. All times are boot-clock
// nanoseconds. Its tracks:
// - one counter for each series, under one track for each history: per cent as doubles, memory as KiB in
// bytes;
// - one for each process with one child for each of its keys: a slice for each value, from the time it was
// seen to
//   the next one, the key's end, the process's death or the trace's end; an instant for the death;
// - one for each global state, with slices as well;
// - one with a slice for each gap, if there are any.
// Events are in the order of their times; an end comes before what begins at the same time.
std::string toTrace(const Timeline& timeline);

}  // namespace timeline
