// The checks that run inside the emulated machine, as its first root process after the service manager. With
// `record` as the argument it also prints the parcels that this libbinder packs; any other argument is a
// role.

#include <cstdio>
#include <cstring>

#include <gtest/gtest.h>

#include "Machine.h"
#include "Roles.h"
#include "recorded/Parcels.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  const bool record = argc > 1 && strcmp(argv[1], "record") == 0;
  if (argc > 1 && !record) return playRole({argv + 1, argv + argc});

  setvbuf(stdout, nullptr, _IOLBF, 0);
  if (record) {
    for (const auto& [name, hex] : packParcels()) std::printf("parcel %s %s\n", name.c_str(), hex.c_str());
  }
  const bool started = Machine::start();
  const int status = started ? RUN_ALL_TESTS() : 1;
  Machine::stop();
  if (status != 0) std::printf("The daemon's log:\n%s\n", test::readFile(kDaemonLog).c_str());
  const testing::UnitTest& checks = *testing::UnitTest::GetInstance();
  std::printf("%d passed, %d failed\n", checks.successful_test_count(),
              checks.failed_test_count() + (started ? 0 : 1));
  return status;
}
