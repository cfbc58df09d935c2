// Compares the parsers of the collectors with plain readings of the same text, by streams or scanf.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

#include "TextScanner.h"

// Aborts, so that the fuzzer keeps the input, unless both readings are the `same`.
inline void check(bool same, const char* what) {
  if (same) return;
  std::fprintf(stderr, "differs from the plain reading: %s\n", what);
  std::abort();
}

// Calls `compare` with each line as the scanner finds it and as a stream finds it. Aborts if they differ.
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
