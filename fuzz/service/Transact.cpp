#include "Transact.h"

#include <cstdlib>
#include <iterator>

namespace fuzz {
namespace {

using android::IBinder;
using android::OK;
using android::Parcel;
using android::binder::Status;

enum : uint8_t { kToken = 1, kOneWay = 2 };

void require(bool condition) {
  if (!condition) abort();
}

// Codes of the interface and next to them, codes of every binder object, and the largest.
constexpr uint32_t kCodes[] = {0,
                               1,
                               2,
                               3,
                               4,
                               0xffffffff,
                               IBinder::PING_TRANSACTION,
                               IBinder::INTERFACE_TRANSACTION,
                               IBinder::DUMP_TRANSACTION};

}  // namespace

void transact(android::BBinder& service, const uint8_t* data, size_t size) {
  if (size < 2) return;
  const uint32_t code = kCodes[data[1] % std::size(kCodes)];
  Parcel request;
  if ((data[0] & kToken) != 0) request.writeInterfaceToken(service.getInterfaceDescriptor());
  request.write(data + 2, size - 2);
  request.setDataPosition(0);
  Parcel reply;
  const uint32_t flags = (data[0] & kOneWay) != 0 ? IBinder::FLAG_ONEWAY : 0;
  const android::status_t result = service.transact(code, request, &reply, flags);
  if (result != OK || code == 0 || code > 3 || reply.dataSize() == 0) return;
  Status status;
  require(status.readFromParcel(reply) == OK);
  if (!status.isOk()) {
    require(status.exceptionCode() == Status::EX_NULL_POINTER && reply.dataAvail() == 0);
    return;
  }
  android::os::PersistableBundle answer;
  require(reply.readParcelable(&answer) == OK && reply.dataAvail() == 0);
}

}  // namespace fuzz
