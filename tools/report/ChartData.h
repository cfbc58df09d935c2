// What the page's script draws.
// The time axis of all charts is the same: milliseconds before the end of the page, zero or negative.
#pragma once

#include <string>

#include "Scope.h"

namespace report {

// The charts, the changes of the process's keys, the deaths and the gaps as JSON (page.js says how they are
// used). The text is fit to stand inside a script element: it holds none of <, > and &, and nothing beyond
// ASCII.
std::string chartData(const Scope& scope);

}  // namespace report
