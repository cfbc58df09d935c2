// What the fuzz targets share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <android/log.h>

// Begins the body of a target, which gets the fuzzer's input as a std::string.
#define FUZZ(input)                                                         \
  static void fuzz(const std::string& input);                               \
  extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) { \
    fuzz({reinterpret_cast<const char*>(data), size});                      \
    return 0;                                                               \
  }                                                                         \
  static void fuzz(const std::string& input)

// Called by the fuzzer before the first input. Bad inputs are logged, and nobody reads that. Not inline,
// because nothing in the file calls it: a target has one file that includes this.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  __android_log_set_minimum_priority(ANDROID_LOG_FATAL);
  return 0;
}

// Aborts, so that the fuzzer keeps the input, unless the condition holds.
inline void check(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}
