// The tables of the page. They hold everything that the charts show, for readers without JavaScript and for
// paper. Each function returns HTML.
#pragma once

#include <string>

#include "Scope.h"

namespace report {

// The head of the page: who, of what, when, on which machine. Rows of what is not known are missing.
std::string factsTable(const Scope& scope);
// What the process had last published at the end of the page, each key with the time of its last change.
std::string statesTable(const Scope& scope);
// What the process was seen to change in the time of the page, the oldest first.
std::string changesTable(const Scope& scope);
// Context, global states, deaths and gaps.
std::string systemTables(const Scope& scope);
// The samples of every history, the newest first.
std::string figureTables(const Scope& scope);
// The states of the processes that the page is not about.
std::string othersTable(const Scope& scope);
// How many processes othersTable() shows.
size_t countOthers(const Scope& scope);

// "crash_story_app (4711)", as HTML.
std::string processName(const Scope& scope);

}  // namespace report
