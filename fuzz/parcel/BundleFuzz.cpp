// Reads a bundle from any bytes. If that succeeds, the bundle is written, read back and written again, and
// both writings must have the same bytes.

#include "parcel/ParcelHeader.h"

#include <cstdlib>
#include <cstring>

#include <binder/PersistableBundle.h>

using android::Parcel;
using android::os::PersistableBundle;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Parcel parcel;
  parcel.setData(data, size);
  PersistableBundle bundle;
  if (bundle.readFromParcel(&parcel) != android::OK) return 0;
  Parcel first;
  if (bundle.writeToParcel(&first) != android::OK) abort();
  first.setDataPosition(0);
  PersistableBundle copy;
  if (copy.readFromParcel(&first) != android::OK || first.dataAvail() != 0) abort();
  Parcel second;
  if (copy.writeToParcel(&second) != android::OK) abort();
  if (first.dataSize() != second.dataSize()) abort();
  if (memcmp(first.data(), second.data(), first.dataSize()) != 0) abort();
  return 0;
}
