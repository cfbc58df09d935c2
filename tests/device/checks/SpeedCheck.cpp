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

constexpr double kTarget = 1.5;

// What the check holds the service to. The target leaves less than a bundle of that many strings costs in the
// platform's own library, so each size has a limit a quarter above what was measured when it was set; the
// machine's clock counts instructions, and the figures repeat to a tenth.
struct Load {
  int states;
  double limit;
};
constexpr Load kLoads[] = {{0, 2.3}, {3, 3.6}, {20, 7.8}};

double microsecondsOfCall(const sp<android::IBinder>& binder, uint32_t code, const Parcel& request) {
  Parcel reply;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(binder->transact(code, request, &reply), android::OK);
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count();
}

double quantile(std::vector<double> values, double share) {
  const auto at = values.begin() + static_cast<ptrdiff_t>(share * static_cast<double>(values.size()));
  std::nth_element(values.begin(), at, values.end());
  return *at;
}

// How many times an echo of the same reply size transaction 1 takes for a process of so many states. The two
// alternate call by call, and their lower quartiles are compared: the daemon's own periodic work falls on few
// of the quicker calls.
double ratioToEcho(int states) {
  std::vector<std::string> role = {"publish"};
  for (int i = 0; i < states; ++i) {
    role.push_back("state_" + std::to_string(i));
    role.push_back("a value of some thirty letters");
  }
  Child application(kApplication, role);
  EXPECT_TRUE(application.ready());
  Parcel request, reply;
  request.writeInterfaceToken(IDiagnosticsCollectorService::descriptor);
  request.writeInt32(application.pid());
  request.writeString16(String16("name"));
  const sp<android::IBinder> service = Daemon::binder(IDiagnosticsCollectorService::kServiceName);
  EXPECT_EQ(service->transact(1, request, &reply), android::OK);

  Child server(kSystem, {"echo", std::to_string(reply.dataSize())});
  EXPECT_TRUE(server.ready());
  const sp<android::IBinder> echo = android::defaultServiceManager()->checkService(String16(kEchoService));

  std::vector<double> ratios, bareTimes, servedTimes;
  for (int round = 0; round < 7; ++round) {
    std::vector<double> bare, served;
    for (int i = 0; i < 100; ++i) {
      bare.push_back(microsecondsOfCall(echo, kEchoTransaction, request));
      served.push_back(microsecondsOfCall(service, 1, request));
    }
    bareTimes.push_back(quantile(bare, 0.25));
    servedTimes.push_back(quantile(served, 0.25));
    ratios.push_back(servedTimes.back() / bareTimes.back());
  }
  const double ratio = quantile(ratios, 0.5);
  std::printf("  %2d states, %4zu bytes: echo %.0f us, transaction 1 %.0f us, ratio %.2f (target %.1f)\n",
              states, reply.dataSize(), quantile(bareTimes, 0.5), quantile(servedTimes, 0.5), ratio, kTarget);
  return ratio;
}

TEST(Speed, RoundTripStaysNearABareEcho) {
  for (const Load& load : kLoads) EXPECT_LE(ratioToEcho(load.states), load.limit) << load.states << " states";
}

}  // namespace
