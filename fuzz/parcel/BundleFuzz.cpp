// Reads a bundle from any bytes. If that succeeds, the bundle is written, read back and written again, and
// both writings must have the same bytes.

#include "parcel/ParcelHeader.h"

#include <optional>

#include <binder/PersistableBundle.h>

#include "Fuzz.h"

// The bundle that `bytes` hold, as it is written. Returns nullopt if they hold none.
static std::optional<std::string> rewritten(const std::string& bytes) {
  android::Parcel parcel;
  parcel.setData(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  android::os::PersistableBundle bundle;
  if (bundle.readFromParcel(&parcel) != android::OK) return std::nullopt;
  android::Parcel written;
  check(bundle.writeToParcel(&written) == android::OK, "what is read can be written");
  return std::string(reinterpret_cast<const char*>(written.data()), written.dataSize());
}

FUZZ(input) {
  const auto first = rewritten(input);
  check(!first || rewritten(*first) == first, "the same bytes");
}
