// The tables of the page. They hold everything that the charts show, for readers without JavaScript and for
// paper. Each function returns HTML.
#pragma once

#include <string>

#include "Scope.h"

namespace report {

std::string factsTable(const Scope& scope);
std::string statesTable(const Scope& scope);
std::string changesTable(const Scope& scope);
// Context, global states, deaths and gaps.
std::string systemTables(const Scope& scope);
// The samples of every history, the newest first.
std::string figureTables(const Scope& scope);
// The states of the processes that the page is not about.
std::string othersTable(const Scope& scope);
size_t countOthers(const Scope& scope);

// "crash_story_app (4711)", as HTML.
std::string processName(const Scope& scope);

}  // namespace report
