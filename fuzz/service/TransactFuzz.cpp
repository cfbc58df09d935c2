// Sends the input to one of the two services, as the binder library calls it. The first byte's bits choose
// the service, whether the request begins with the interface's token, and whether the call is one-way. The
// second byte chooses the code. The rest is the request's body.
#include "Fuzz.h"
#include "service/DiagnosticsCollectorService.h"
#include "service/DiagnosticsNotificationService.h"

namespace {

using namespace Torv::OS::Diagnostics;  // NOLINT(google-build-using-namespace): the service's own sources do
using android::IBinder;
using android::Parcel;
using android::sp;
using android::binder::Status;

enum : uint8_t { kToken = 1, kOneWay = 2, kNotifier = 4 };

// Beside the codes of the interfaces and those next to them, the largest, and codes of every binder object.
constexpr uint32_t kInterfaceCodes = 5;
constexpr uint32_t kOtherCodes[] = {0xffffffff, IBinder::PING_TRANSACTION, IBinder::INTERFACE_TRANSACTION,
                                    IBinder::DUMP_TRANSACTION};

// A `Base` that drops its telemetry events and reports success.
template <typename Base>
class Silent : public Base {
 public:
  using Base::Base;
  bool reportEvent(Telemetry::EventName, Telemetry::EventType, Telemetry::EventFlow, std::optional<int>,
                   std::optional<int>, std::optional<std::string>, std::optional<std::string>) override {
    return true;
  }
};

// Returns a state of process 1 and a state of a namespace at the first fetch, and nothing later.
class OneBatch : public LibstatsdWrapper {
 public:
  std::variant<std::vector<ApplicationState>, libstatsd::Error> fetchReports() override {
    return std::exchange(mStates, {});
  }

 private:
  std::vector<ApplicationState> mStates{{false, "", 1, "screen", "home", 1},
                                        {true, "telemetry", 0, "service_session_id", "s", 2}};
};

class FixedContext : public SystemContextManager {
 public:
  FixedContext() : SystemContextManager(nullptr, nullptr) {}
  std::unordered_map<std::string, std::string> getSystemContext() override { return {{"build_tags", "dev"}}; }
};

// Aborts if the service passes on a code that is no event.
class StrictObserver : public Observer {
 public:
  void onEvent(int eventId, std::optional<std::unordered_map<std::string, std::string>> data) override {
    check((eventId == 0 || eventId == 1) && !data, "a known event");
  }
};

sp<android::BBinder> makeCollector() {
  auto states = std::make_unique<ApplicationStateManager>(
      std::make_unique<BlackBox>(), std::make_unique<StatsManager>(std::make_unique<OneBatch>()), 60);
  return new DiagnosticsCollectorService(std::make_shared<Silent<DiagnosticsCollectorServiceHandler>>(
      std::move(states), std::make_unique<FixedContext>()));
}

sp<android::BBinder> makeNotifier() {
  return new Silent<DiagnosticsNotificationService>(
      std::vector<std::shared_ptr<Observer>>{std::make_shared<StrictObserver>()});
}

}  // namespace

FUZZ(input) {
  static const sp<android::BBinder> collector = makeCollector();
  static const sp<android::BBinder> notifier = makeNotifier();
  if (input.size() < 2) return;
  android::BBinder& service = (input[0] & kNotifier) != 0 ? *notifier : *collector;
  const uint32_t choice = static_cast<uint8_t>(input[1]) % (kInterfaceCodes + std::size(kOtherCodes));
  const uint32_t code = choice < kInterfaceCodes ? choice : kOtherCodes[choice - kInterfaceCodes];
  Parcel request;
  if ((input[0] & kToken) != 0) request.writeInterfaceToken(service.getInterfaceDescriptor());
  request.write(input.data() + 2, input.size() - 2);
  request.setDataPosition(0);
  Parcel reply;
  const uint32_t flags = (input[0] & kOneWay) != 0 ? IBinder::FLAG_ONEWAY : 0;
  const android::status_t result = service.transact(code, request, &reply, flags);
  if (result != android::OK || code == 0 || code > 3 || reply.dataSize() == 0) return;
  // A client must be able to read the reply.
  Status status;
  check(status.readFromParcel(reply) == android::OK, "a status");
  android::os::PersistableBundle answer;
  check(status.isOk() ? reply.readParcelable(&answer) == android::OK
                      : status.exceptionCode() == Status::EX_NULL_POINTER,
        "a bundle, or the one exception");
  check(reply.dataAvail() == 0, "the end");
}
