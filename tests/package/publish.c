/* Publishes one state of this process, says its pid and ends: publish KEY VALUE */
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <statsd/diagnostics_publisher.h>

int main(int argc, char** argv) {
  int result;
  if (argc != 3) return 2;
  result = diagnostics_publish_state(0, argv[1], argv[2]);
  if (result != 0) {
    fprintf(stderr, "cannot publish: %s\n", strerror(-result));
    return 1;
  }
  printf("%ld\n", (long)getpid());
  return 0;
}
