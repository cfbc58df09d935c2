#pragma once

#include <cstdio>
#include <cstdlib>

// Ends the process, for the fuzzer to keep the input, where the two readings differ.
inline void check(bool same, const char* what) {
  if (same) return;
  std::fprintf(stderr, "differs from the plain reading: %s\n", what);
  std::abort();
}
