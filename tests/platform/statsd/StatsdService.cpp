// A service that keeps atoms and does nothing else, until it is killed.
#include <statsd/StatsdConfiguration.h>
#include <unistd.h>

int main() {
  libstatsd::StatsdConfiguration configuration;
  configuration.addAllowedLogSource("AID_APP");
  const bool published =
      configuration.addEventAtomId(110010) &&
      configuration.publishConfigurationBlocked(57476, 1000) == libstatsd::PublishStatus::Success;
  if (!published) return 1;
  for (;;) pause();
}
