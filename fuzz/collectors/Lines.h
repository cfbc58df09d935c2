#pragma once

#include <sstream>
#include <string>

#include "Fuzz.h"
#include "TextScanner.h"

// Calls `compare` with each line as the scanner finds it and as a stream finds it. Aborts if they differ.
template <typename Compare>
void forEachLine(const std::string& text, Compare compare) {
  std::string_view rest = text;
  std::string_view found;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    check(Torv::OS::Diagnostics::nextLine(rest, found) && found == line, "line");
    compare(found, line);
  }
  check(!Torv::OS::Diagnostics::nextLine(rest, found), "end");
}
