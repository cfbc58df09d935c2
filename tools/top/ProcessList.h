// The rows of the list of processes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "timeline/Timeline.h"
#include "top/Lines.h"

namespace top {

// When the list is looked at.
struct Moment {
  int64_t atMs = 0;
  int64_t freshMs = 0;  // a change counts as fresh for this long
};

// The processes at a time, by pid, that hold `filter` in pid, name, keys or values.
// An empty filter matches all. The filter is compared byte by byte, as the texts were published.
std::vector<timeline::ProcessSnapshot> matchingProcesses(const timeline::Timeline& timeline, int64_t atMs,
                                                         const std::string& filter);

// The row of a process with its keys behind it, the newest change first; those of an open one are left out.
// The texts of this and the next function are printable and not yet cut to any width.
Line processLine(const timeline::ProcessSnapshot& process, bool open, const Moment& moment);

// The row of one key below an open process.
Line keyLine(const std::string& key, const timeline::KeyState& state, const Moment& moment);

// The names of the columns, and how many processes there are.
// For the dead: those among `processes` whose death was seen by then.
Line processHeads(const std::vector<timeline::ProcessSnapshot>& processes);

// A time that has passed, for people: "3 s", "12 min".
std::string agoText(int64_t ms);

}  // namespace top
