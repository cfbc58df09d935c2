#pragma once

#include <cstdio>
#include <cstdlib>

#include <gtest/gtest.h>

#include "fixture/Daemon.h"

using fixture::Daemon;

// A check with a service of its own, which takes the device's paths as they are: no root is put in front.
class DeviceTest : public testing::Test {
 protected:
  DeviceTest() {
    unsetenv("TORV_DEVICE_ROOT");
    daemon.setProperties(
        "ro.system.build.tags=dev-keys,quillet_diff_number:D1,quillet_version_number:7,pebblor_id:1\n"
        "ro.build.fingerprint=torv/device/emulated:12/1:userdebug/dev-keys\n"
        "persist.device_config.pellux_shared_os_services.oscontrol_enable_diagnostic_collector_service_corr="
        "true\n");
    daemon.start();
  }
  ~DeviceTest() override {
    if (HasFailure())
      std::printf("The daemon's log:\n%sIts clients':\n%s", daemon.log().c_str(), printed().c_str());
  }

  // Starts this program once more, in a role of main.cpp: a process must open the binder device for itself.
  std::unique_ptr<fixture::Process> play(uid_t uid, std::vector<std::string> role) const {
    role.insert(role.begin(), "/bin/device_checks");
    fixture::ProcessOptions options = daemon.client(uid);
    options.output = daemon.dir().path("children.log");
    return std::make_unique<fixture::Process>(role, options);
  }
  // What the children have printed so far.
  std::string printed() const { return test::readFile(daemon.dir().path("children.log")); }

  Daemon daemon;
};
