// Its client.
#include <limits>
#include <memory>
#include <optional>

#include <cstdio>

#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <utils/String8.h>

int main() {
  const auto greeter =
      android::defaultServiceManager()->waitForService(android::String16("third.party/greeter"));
  android::Parcel data, reply;
  data.writeString16(android::String16("you"));
  const auto status = greeter->transact(android::IBinder::FIRST_CALL_TRANSACTION, data, &reply);
  printf("%d %s", status, android::String8(reply.readString16()).string());
}
