#include "Device.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace bench {
namespace {

constexpr int kProcessors = 8;
constexpr int kInterrupts = 640;  // numbers in the intr line of an arm64 device

std::string pressureText(int second) {
  const std::string n = std::to_string(second);
  return "some avg10=1.23 avg60=0.87 avg300=0.20 total=" + n + "6227413\n" +
         "full avg10=0.12 avg60=0.03 avg300=0.01 total=" + n + "2113778\n";
}

std::string statText(int second) {
  const std::string counters = " " + std::to_string(30184711 + second * 40) + " 1170 2378402 " +
                               std::to_string(208602530 + second * 60) + " 24731 0 380023 7001 0 0\n";
  std::string text = "cpu " + counters;
  for (int i = 0; i < kProcessors; ++i) text += "cpu" + std::to_string(i) + counters;
  text += "intr 164330" + std::to_string(second);
  for (int i = 0; i < kInterrupts; ++i) text += i % 8 == 0 ? " 48356" : " 0";
  text += "\nctxt 36410" + std::to_string(second) + "\nbtime 1795262008\nprocesses 12663\nprocs_running 1\n";
  return text + "procs_blocked 0\nsoftirq 127226 0 16355 4 2170 48354 0 4 31127 0 29212\n";
}

std::string memInfoText(int second) {
  std::string text;
  const auto line = [&](const std::string& name, int valueKb) {
    char buffer[64];
    snprintf(buffer, sizeof(buffer), "%-16s%8d kB\n", (name + ":").c_str(), valueKb);
    text += buffer;
  };
  line("MemTotal", 7864320);
  line("MemFree", 512000 + second);
  line("MemAvailable", 3145728 + second);
  line("Buffers", 59996);
  line("Cached", 1624416);
  for (int i = 0; i < 48; ++i) line("OtherMetric" + std::to_string(i), 1000 * i);
  return text;
}

}  // namespace

Device::Device() {
  std::string pattern = (std::filesystem::temp_directory_path() / "diag-bench-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) {
    perror("mkdtemp");
    exit(1);
  }
  mPath = pattern;
  advanceTo(0);
}

Device::~Device() {
  std::error_code ignored;
  std::filesystem::remove_all(mPath, ignored);
}

void Device::advanceTo(int second) const {
  for (const char* const resource : {"cpu", "memory", "io"}) {
    write(std::string("proc/pressure/") + resource, pressureText(second));
  }
  write("proc/stat", statText(second));
  write("proc/meminfo", memInfoText(second));
  write("sys/class/kgsl/kgsl-3d0/gpubusy_accum",
        std::to_string(second) + "1000 " + std::to_string(second) + "4000\n");
  write("sys/class/power_supply/battery/charge_counter", "3000000\n");
  write("sys/class/power_supply/battery/charge_full", "4000000\n");
}

void Device::write(const std::string& name, const std::string& text) const {
  const std::filesystem::path file = mPath + "/" + name;
  std::filesystem::create_directories(file.parent_path());
  std::ofstream(file) << text;
}

}  // namespace bench
