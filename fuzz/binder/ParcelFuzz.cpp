// Every read of a parcel over any bytes. The first byte says how many of the rest choose the reads; what
// follows is the parcel.

#include <limits>
#include <memory>
#include <optional>

#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include <binder/Parcel.h>
#include <binder/Status.h>
#include <utils/String8.h>

namespace {

using android::Parcel;
using android::String16;
using android::String8;

template <typename T>
void readVector(const Parcel& parcel, android::status_t (Parcel::*read)(std::vector<T>*) const) {
  std::vector<T> values;
  (parcel.*read)(&values);
}

template <typename T>
void readNullableVector(const Parcel& parcel,
                        android::status_t (Parcel::*read)(std::unique_ptr<std::vector<T>>*) const) {
  std::unique_ptr<std::vector<T>> values;
  (parcel.*read)(&values);
}

const std::vector<std::function<void(const Parcel&)>>& reads() {
  static const auto& kReads = *new std::vector<std::function<void(const Parcel&)>>{
      [](const Parcel& p) { p.readInt32(); },
      [](const Parcel& p) { p.readInt64(); },
      [](const Parcel& p) { p.readDouble(); },
      [](const Parcel& p) { p.readBool(); },
      [](const Parcel& p) { p.readChar(); },
      [](const Parcel& p) { p.readByte(); },
      [](const Parcel& p) { p.readCString(); },
      [](const Parcel& p) { p.readString8(); },
      [](const Parcel& p) { p.readString16(); },
      [](const Parcel& p) { String8(p.readString16()); },
      [](const Parcel& p) {
        std::string text;
        p.readUtf8FromUtf16(&text);
      },
      [](const Parcel& p) {
        std::unique_ptr<std::string> text;
        p.readUtf8FromUtf16(&text);
      },
      [](const Parcel& p) {
        std::unique_ptr<String16> text;
        p.readString16(&text);
      },
      [](const Parcel& p) { readVector<uint8_t>(p, &Parcel::readByteVector); },
      [](const Parcel& p) { readVector<int32_t>(p, &Parcel::readInt32Vector); },
      [](const Parcel& p) { readVector<int64_t>(p, &Parcel::readInt64Vector); },
      [](const Parcel& p) { readVector<double>(p, &Parcel::readDoubleVector); },
      [](const Parcel& p) { readVector<bool>(p, &Parcel::readBoolVector); },
      [](const Parcel& p) { readVector<char16_t>(p, &Parcel::readCharVector); },
      [](const Parcel& p) { readVector<String16>(p, &Parcel::readString16Vector); },
      [](const Parcel& p) { readVector<std::string>(p, &Parcel::readUtf8VectorFromUtf16Vector); },
      [](const Parcel& p) { readNullableVector<int8_t>(p, &Parcel::readByteVector); },
      [](const Parcel& p) { readNullableVector<float>(p, &Parcel::readFloatVector); },
      [](const Parcel& p) { readNullableVector<std::unique_ptr<String16>>(p, &Parcel::readString16Vector); },
      [](const Parcel& p) {
        readNullableVector<std::unique_ptr<std::string>>(p, &Parcel::readUtf8VectorFromUtf16Vector);
      },
      [](const Parcel& p) {
        android::sp<android::IBinder> binder;
        p.readNullableStrongBinder(&binder);
      },
      [](const Parcel& p) { android::binder::Status().readFromParcel(p); },
      [](const Parcel& p) { p.readExceptionCode(); },
      [](const Parcel& p) { p.enforceInterface(String16("a.B")); },
  };
  return kReads;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const size_t choices = std::min<size_t>(data[0], size - 1);
  Parcel parcel;
  parcel.setData(data + 1 + choices, size - 1 - choices);
  for (size_t i = 1; i <= choices; ++i) {
    reads()[data[i] % reads().size()](parcel);
    if (parcel.dataPosition() > parcel.dataSize()) abort();
  }
  return 0;
}
