// A bundle written to a parcel and read back, against copying its strings into a map; and the allocations of
// reading values of fixed size.

#include "parcel/ParcelHeader.h"

#include <atomic>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include <binder/PersistableBundle.h>

#include "support/Compare.h"
#include "support/Limits.h"

extern "C" void* __libc_malloc(size_t size);  // NOLINT(bugprone-reserved-identifier)

namespace {

std::atomic<size_t> gAllocations{0};

}  // namespace

// Replaces the function of the C library, which operator new and Parcel call.
extern "C" void* malloc(size_t size) {
  gAllocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_malloc(size);
}

namespace {

using android::Parcel;
using android::String16;
using android::os::PersistableBundle;

constexpr int kBundles = 10;
constexpr int kStringsEach = 100;

std::vector<std::string> strings(const char* stem) {
  std::vector<std::string> made;
  made.reserve(kStringsEach);
  for (int i = 0; i < kStringsEach; ++i) made.push_back(stem + std::to_string(i));
  return made;
}

PersistableBundle tree() {
  const auto keys = strings("application.state.key.");
  const auto values = strings("the value of a state ");
  PersistableBundle root;
  for (int i = 0; i < kBundles; ++i) {
    PersistableBundle inner;
    for (size_t j = 0; j < keys.size(); ++j)
      inner.putString(String16(keys[j].c_str()), String16(values[j].c_str()));
    root.putPersistableBundle(String16(std::to_string(i).c_str()), inner);
  }
  return root;
}

void thousandStrings(benchmark::State& state) {
  const PersistableBundle source = tree();
  std::vector<std::pair<std::u16string, std::u16string>> same;
  for (int i = 0; i < kBundles; ++i) {
    PersistableBundle inner;
    source.getPersistableBundle(String16(std::to_string(i).c_str()), &inner);
    for (const String16& key : inner.getStringKeys()) {
      String16 value;
      inner.getString(key, &value);
      same.emplace_back(std::u16string(key.string()) + char16_t(u'a' + i), value.string());
    }
  }
  bench::compare(
      state, 1.1,
      [&] {
        Parcel parcel;
        source.writeToParcel(&parcel);
        parcel.setDataPosition(0);
        PersistableBundle read;
        if (read.readFromParcel(&parcel) != android::OK || read.size() != kBundles) abort();
        benchmark::DoNotOptimize(read);
      },
      [&] {
        std::map<std::u16string, std::u16string> copy;
        for (const auto& [key, value] : same) copy.emplace(key, value);
        benchmark::DoNotOptimize(copy);
      });
}

void fixedSizeReads(benchmark::State& state) {
  Parcel parcel;
  constexpr int kRounds = 1000;
  for (int i = 0; i < kRounds; ++i) {
    parcel.writeInt32(i);
    parcel.writeInt64(i);
    parcel.writeDouble(i);
    parcel.writeBool(true);
  }
  const size_t before = gAllocations;
  while (state.KeepRunning()) {
    parcel.setDataPosition(0);
    int64_t wide = 0;
    double fraction = 0;
    for (int i = 0; i < kRounds; ++i) {
      benchmark::DoNotOptimize(parcel.readInt32());
      benchmark::DoNotOptimize(parcel.readInt64(&wide));
      benchmark::DoNotOptimize(parcel.readDouble(&fraction));
      benchmark::DoNotOptimize(parcel.readBool());
    }
  }
  bench::requireAtMost(state, "allocations", static_cast<double>(gAllocations - before), 0);
}

BENCHMARK(fixedSizeReads)->Name("4,000 reads of fixed size");

}  // namespace

int main(int argc, char** argv) {
  bench::pinToCore(0);
  bench::registerComparison("write and read a tree of 1,000 strings", 201, thousandStrings);
  return bench::runAll(argc, argv);
}
