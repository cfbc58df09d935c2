// What bounds the black box and the answers made from it. The limits bind only far beyond ordinary use. What
// they drop or refuse is counted by process and logged at most once a minute.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Torv::OS::Diagnostics {

inline constexpr size_t kKiB = 1024;
inline constexpr size_t kMiB = 1024 * kKiB;

// A process that holds no more than its share loses nothing to others as long as this many processes have
// states.
inline constexpr size_t kProtectedProcesses = 2048;

struct BlackBoxLimits {
  // Memory of the states of all processes, in bytes. The daemon has to stay below 64 MiB: 9 MiB are its
  // program and libraries, and a full batch of atoms and one whole-table answer take about 8 MiB each for a
  // moment. Beyond it the black box is cut to `bytesAfterCut`; see BlackBox for who pays.
  size_t maxBytes = 36 * kMiB + 512 * kKiB;
  // What a cut leaves. A cut looks at every process, so it must make room for some thousand states at once.
  size_t bytesAfterCut = 36 * kMiB;

  // Processes with states: those that are protected and some more. Every one has an entry in a whole-table
  // reply, which takes memory even without states. Beyond it a pid without a process is refused, and one with
  // a process takes the place of one without.
  size_t maxProcesses = kProtectedProcesses + 512;

  // Memory of one process's states, in bytes. Far more than a reply can carry; one process must not make the
  // black box copy tens of megabytes when its block grows. Beyond it the newer half is kept.
  size_t maxProcessBytes = 2 * kMiB;

  // Memory of the states of all global namespaces, in bytes. The feed knows one namespace of two keys, which
  // takes 27 KiB at most. Beyond it new values are refused.
  size_t maxGlobalBytes = 32 * kKiB;

  // The share of one process, in bytes of memory: 18 KiB by default. 8 KiB of texts of 15 characters and more
  // take no more than that, however they are spread over keys and values.
  size_t share() const { return bytesAfterCut / kProtectedProcesses; }
};

// Length of one key, value or namespace, in bytes. statsd carries at most 4 KiB an atom. A state with a
// longer text is refused.
inline constexpr size_t kMaxTextBytes = 4 * kKiB;

// The time between two log lines about losses, in seconds.
inline constexpr int64_t kLossLogPeriodSeconds = 60;

// Processes whose losses are counted one by one between two log lines. Those of further ones are summed up.
inline constexpr size_t kMaxCountedProcesses = 64;

// Bytes of the states in one reply. The carrier takes 1 MiB less 8 KiB for all transactions that are under
// way with a process, so a quarter is left to others. Beyond it the largest processes come without states,
// and a log line names them.
inline constexpr size_t kMaxReplyBytes = (kMiB - 8 * kKiB) / 4 * 3;

// Bytes of the system context's own values in a reply. Seven full histories take 100 KiB. What is left of the
// reply is enough for all global namespaces, even if JSON takes six characters for each of theirs. Beyond it
// the largest values are left out, and a log line names them.
inline constexpr size_t kMaxContextReplyBytes = kMaxReplyBytes - 400 * kKiB;

// What a bundle adds to the texts of a state (two lengths, two terminators, padding, a type) and to the
// states of a process (its entry, its id, two nested bundles), in bytes. A text takes two bytes in UTF-16 for
// each byte in UTF-8, or less.
inline constexpr size_t kReplyBytesPerState = 20;
inline constexpr size_t kReplyBytesPerProcess = 144;

constexpr size_t replyBytesOfState(size_t keyLength, size_t valueLength) {
  return kReplyBytesPerState + 2 * (keyLength + valueLength);
}

}  // namespace Torv::OS::Diagnostics
