// Names of statsd's sockets in the runtime directory.
#pragma once

namespace libstatsd {

constexpr char kAtomSocket[] = "statsdw";
constexpr char kStatusSocket[] = "statsd-status";

}  // namespace libstatsd
