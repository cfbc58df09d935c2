#pragma once

// What every target here reads its input with.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

// Ends the process, for the fuzzer to keep the input, where the two readings differ.
inline void check(bool same, const char* what) {
  if (same) return;
  std::fprintf(stderr, "differs from the plain reading: %s\n", what);
  std::abort();
}
