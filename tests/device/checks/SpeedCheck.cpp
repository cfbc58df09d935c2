// What the service costs a client on the kernel's binder, beside a bare echo on the same carrier.

#include <binder/IServiceManager.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include "Machine.h"
#include "Roles.h"

namespace {

using android::Parcel;
using android::sp;
using android::String16;

double microsecondsOfCall(const sp<android::IBinder>& binder, uint32_t code, const Parcel& request) {
  Parcel reply;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(binder->transact(code, request, &reply), android::OK);
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
  return values[values.size() / 2];
}

// Calls alternate, and medians of single calls are compared: what else the emulating machine does falls on
// both and mostly on neither's median.
TEST(Speed, RoundTripStaysNearABareEcho) {
  std::vector<std::string> role = {"publish"};
  for (int i = 0; i < 20; ++i) {
    role.push_back("state_" + std::to_string(i));
    role.push_back("a value of some thirty letters");
  }
  Child application(kApplication, role);
  ASSERT_TRUE(application.ready());
  Parcel request, reply;
  request.writeInterfaceToken(IDiagnosticsCollectorService::descriptor);
  request.writeInt32(application.pid());
  request.writeString16(String16("name"));
  const sp<android::IBinder> service = collectorBinder();
  ASSERT_EQ(service->transact(1, request, &reply), android::OK);

  Child server(kSystem, {"echo", std::to_string(reply.dataSize())});
  ASSERT_TRUE(server.ready());
  const sp<android::IBinder> echo = android::defaultServiceManager()->checkService(String16(kEchoService));

  std::vector<double> ratios;
  for (int round = 0; round < 7; ++round) {
    std::vector<double> bare, served;
    for (int i = 0; i < 200; ++i) {
      bare.push_back(microsecondsOfCall(echo, kEchoTransaction, request));
      served.push_back(microsecondsOfCall(service, 1, request));
    }
    ratios.push_back(median(served) / median(bare));
    std::printf("  round %d: echo %.0f us, transaction 1 %.0f us\n", round, median(bare), median(served));
  }
  const double ratio = median(ratios);
  std::printf("  transaction 1 with a reply of %zu bytes: %.2f times a bare echo (limit 1.5)\n",
              reply.dataSize(), ratio);
  EXPECT_LE(ratio, 1.5);
}

}  // namespace
