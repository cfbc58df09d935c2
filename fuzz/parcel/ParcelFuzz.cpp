// Every read of a parcel over any bytes. The first byte of the input says how many of the next bytes each
// choose a read. The rest is the parcel.

#include "parcel/ParcelHeader.h"

#include <vector>

#include <binder/Status.h>
#include <utils/String8.h>

#include "Fuzz.h"

using android::Parcel;
using android::String16;
using android::String8;

template <typename T, android::status_t (Parcel::*read)(T*) const>
static void into(const Parcel& parcel) {
  T value{};
  (parcel.*read)(&value);
}

constexpr void (*kReads[])(const Parcel&) = {
    into<int32_t, &Parcel::readInt32>,
    into<int64_t, &Parcel::readInt64>,
    into<double, &Parcel::readDouble>,
    into<bool, &Parcel::readBool>,
    into<String8, &Parcel::readString8>,
    into<String16, &Parcel::readString16>,
    [](const Parcel& p) { String8(p.readString16()); },
    into<std::string, &Parcel::readUtf8FromUtf16>,
    into<std::vector<uint8_t>, &Parcel::readByteVector>,
    into<std::vector<int32_t>, &Parcel::readInt32Vector>,
    into<std::vector<int64_t>, &Parcel::readInt64Vector>,
    into<std::vector<double>, &Parcel::readDoubleVector>,
    into<std::vector<bool>, &Parcel::readBoolVector>,
    into<std::vector<String16>, &Parcel::readString16Vector>,
    into<std::vector<std::string>, &Parcel::readUtf8VectorFromUtf16Vector>,
    [](const Parcel& p) { android::binder::Status().readFromParcel(p); },
    [](const Parcel& p) { p.readExceptionCode(); },
    [](const Parcel& p) { p.enforceInterface(String16("a.B")); },
};

FUZZ(input) {
  if (input.empty()) return;
  const auto* const bytes = reinterpret_cast<const uint8_t*>(input.data());
  const size_t choices = std::min<size_t>(bytes[0], input.size() - 1);
  Parcel parcel;
  parcel.setData(bytes + 1 + choices, input.size() - 1 - choices);
  for (size_t i = 1; i <= choices; ++i) {
    kReads[bytes[i] % std::size(kReads)](parcel);
    check(parcel.dataPosition() <= parcel.dataSize(), "a position within the parcel");
  }
}
