#pragma once

// What every target here reads its input with.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

#include "TextScanner.h"

// Ends the process, for the fuzzer to keep the input, where the two readings differ.
inline void check(bool same, const char* what) {
  if (same) return;
  std::fprintf(stderr, "differs from the plain reading: %s\n", what);
  std::abort();
}

// Hands over each line of the input, as the scanner finds it and as a stream does, which must agree.
template <typename Compare>
void forEachLine(const uint8_t* data, size_t size, Compare compare) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::string_view rest = text;
  std::string_view found;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    check(Torv::OS::Diagnostics::nextLine(rest, found) && found == line, "line");
    compare(found, line);
  }
  check(!Torv::OS::Diagnostics::nextLine(rest, found), "end");
}
