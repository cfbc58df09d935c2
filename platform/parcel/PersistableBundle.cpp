// The bytes of a bundle: int32 length; unless that is 0 then int32 magic, int32 count and the entries. The
// length counts the bytes from the count to the end. An entry is String16 key, int32 type, value. A nested
// bundle is a value with this whole layout again. Entries are written by type, and by key within a type.

#include "parcel/ParcelHeader.h"

#include <tuple>
#include <utility>

#include <android-base/scopeguard.h>
#include <binder/PersistableBundle.h>

namespace android::os {
namespace {

constexpr int32_t kMagicOfJava = 0x4C444E42;    // 'BNDL'
constexpr int32_t kMagicOfNative = 0x4C444E44;  // 'DNDL'

// The types of values, in the order in which a bundle writes them: the name of the type in the functions of
// PersistableBundle, its parameter there, its map, its number in the parcel, and its name in the functions of
// Parcel. Java also writes null values, as type -1. Like the device's native reader, this one refuses them.
#define PARCEL_TYPES(X)                                                           \
  X(Boolean, bool, mBoolMap, 9, Bool)                                             \
  X(Int, int32_t, mIntMap, 1, Int32)                                              \
  X(Long, int64_t, mLongMap, 6, Int64)                                            \
  X(Double, double, mDoubleMap, 8, Double)                                        \
  X(String, const String16&, mStringMap, 0, String16)                             \
  X(BooleanVector, const std::vector<bool>&, mBoolVectorMap, 23, BoolVector)      \
  X(IntVector, const std::vector<int32_t>&, mIntVectorMap, 18, Int32Vector)       \
  X(LongVector, const std::vector<int64_t>&, mLongVectorMap, 19, Int64Vector)     \
  X(DoubleVector, const std::vector<double>&, mDoubleVectorMap, 28, DoubleVector) \
  X(StringVector, const std::vector<String16>&, mStringVectorMap, 14, String16Vector)
// The same with the last type, which no function of Parcel reads or writes.
#define BUNDLE_TYPES(X) \
  PARCEL_TYPES(X)       \
  X(PersistableBundle, const PersistableBundle&, mPersistableBundleMap, kBundle, )
constexpr int32_t kBundle = 25;

// The device's reader has no limits. This one has two, because other processes make up what it reads: bundles
// nest at most this deep (each level takes stack), and a count must fit into the bytes left. The shortest
// entry has an empty key, a type and one word of value.
constexpr int kMaxDepth = 32;
constexpr size_t kShortestEntry = 8 + 4 + 4;

// How many bundles this thread is reading, each inside the one before.
thread_local int tDepth = 0;

// Writes the entries of one type in the order of their keys. `write` writes a value.
template <typename Map, typename Write>
status_t writeEntries(Parcel* parcel, const Map& map, int32_t type, Write write) {
  for (const auto& [key, value] : map) {
    status_t status = parcel->writeString16(key);
    if (status == OK) status = parcel->writeInt32(type);
    if (status == OK) status = write(value);
    if (status != OK) return status;
  }
  return OK;
}

// Returns the value of `key` and adds an empty one if there is none. Writers send the keys of a type in
// order, so the hint at the end spares the search.
template <typename Map>
typename Map::mapped_type* slot(Map* map, const String16& key) {
  return &map->try_emplace(map->end(), key)->second;
}

template <typename Map>
status_t readValue(const Parcel* parcel, Map* map, const String16& key,
                   status_t (Parcel::*read)(typename Map::mapped_type*) const) {
  return (parcel->*read)(slot(map, key));
}

// Most values are strings, so they are built in the map, while slot() would build an empty one and then
// replace it.
status_t readValue(const Parcel* parcel, std::map<String16, String16>* map, const String16& key,
                   status_t (Parcel::* /*read*/)(String16*) const) {
  size_t length = 0;
  const char16_t* const text = parcel->readString16Inplace(&length);
  if (text == nullptr) return UNEXPECTED_NULL;
  const size_t before = map->size();
  const auto entry = map->emplace_hint(map->end(), std::piecewise_construct, std::forward_as_tuple(key),
                                       std::forward_as_tuple(text, length));
  return map->size() != before ? OK : entry->second.setTo(text, length);
}

// A key has one value, of one type, so a value of another type is erased first. Putting the keys of one type
// in order costs one comparison each.
template <typename Map, typename Value>
void put(PersistableBundle* bundle, Map* map, const String16& key, const Value& value) {
  if (bundle->size() != map->size()) bundle->erase(key);
  map->insert_or_assign(map->end(), key, value);
}

template <typename Map, typename Value>
bool find(const Map& map, const String16& key, Value* out) {
  const auto entry = map.find(key);
  if (entry == map.end()) return false;
  *out = entry->second;
  return true;
}

// The keys of a map are in order, so the end is always the right place for the next.
template <typename Map>
std::set<String16> keysOf(const Map& map) {
  std::set<String16> keys;
  for (const auto& entry : map) keys.emplace_hint(keys.end(), entry.first);
  return keys;
}

}  // namespace

// The length is known at the end only, so it is written as 0 and then overwritten.
status_t PersistableBundle::writeToParcel(Parcel* parcel) const {
  if (empty()) return parcel->writeInt32(0);
  const size_t lengthAt = parcel->dataPosition();
  status_t status = parcel->writeInt32(0);
  if (status == OK) status = parcel->writeInt32(kMagicOfNative);
  const size_t start = parcel->dataPosition();
  if (status == OK) status = writeToParcelInner(parcel);
  if (status != OK) return status;
  const size_t end = parcel->dataPosition();
  if (end - start > static_cast<size_t>(INT32_MAX)) return BAD_VALUE;
  parcel->setDataPosition(lengthAt);
  status = parcel->writeInt32(static_cast<int32_t>(end - start));
  parcel->setDataPosition(end);
  return status;
}

// As on the device, reading adds to the entries that the bundle has: a key of the same type gets the new
// value, and a nested bundle of the same key is merged. On an error the entries before it stay.
status_t PersistableBundle::readFromParcel(const Parcel* parcel) {
  // At the end of a parcel this reads 0: an empty bundle, as on the device.
  const int32_t length = parcel->readInt32();
  if (length < 0) return UNEXPECTED_NULL;
  return length == 0 ? OK : readFromParcelInner(parcel, static_cast<size_t>(length));
}

status_t PersistableBundle::writeToParcelInner(Parcel* parcel) const {
  if (size() > static_cast<size_t>(INT32_MAX)) return BAD_VALUE;
  status_t status = parcel->writeInt32(static_cast<int32_t>(size()));
#define WRITE(Name, Parameter, map, type, Kind)                             \
  if (status == OK) {                                                       \
    const auto write = [&](Parameter v) { return parcel->write##Kind(v); }; \
    status = writeEntries(parcel, map, type, write);                        \
  }
  PARCEL_TYPES(WRITE)
#undef WRITE
  if (status != OK) return status;
  return writeEntries(parcel, mPersistableBundleMap, kBundle,
                      [&](const PersistableBundle& bundle) { return bundle.writeToParcel(parcel); });
}

// Like the device's reader, this ignores the length and ends after the last entry.
status_t PersistableBundle::readFromParcelInner(const Parcel* parcel, size_t /*size*/) {
  if (tDepth == kMaxDepth) return BAD_VALUE;
  ++tDepth;
  const auto leave = base::make_scope_guard([] { --tDepth; });
  int32_t magic = 0;
  if (const status_t status = parcel->readInt32(&magic); status != OK) return status;
  if (magic != kMagicOfJava && magic != kMagicOfNative) return BAD_VALUE;
  int32_t count = 0;
  if (const status_t status = parcel->readInt32(&count); status != OK) return status;
  if (count > 0 && static_cast<size_t>(count) > parcel->dataAvail() / kShortestEntry) return BAD_VALUE;

  const auto readEntry = [&](const String16& key, int32_t type) -> status_t {
    switch (type) {
#define READ(Name, Parameter, map, type, Kind) \
  case type:                                   \
    return readValue(parcel, &(map), key, &Parcel::read##Kind);
      PARCEL_TYPES(READ)
#undef READ
      case kBundle:
        return slot(&mPersistableBundleMap, key)->readFromParcel(parcel);
      default:
        return BAD_TYPE;
    }
  };
  for (; count > 0; --count) {
    size_t length = 0;
    const char16_t* const name = parcel->readString16Inplace(&length);
    if (name == nullptr) return UNEXPECTED_NULL;
    int32_t type = 0;
    status_t status = parcel->readInt32(&type);
    if (status == OK) status = readEntry(String16(name, length), type);
    if (status != OK) return status;
  }
  return OK;
}

bool PersistableBundle::empty() const {
  return size() == 0;
}

// Counts the entries of this bundle, not those of bundles inside it.
size_t PersistableBundle::size() const {
  size_t all = 0;
#define SIZE(Name, Parameter, map, type, Kind) all += (map).size();
  BUNDLE_TYPES(SIZE)
#undef SIZE
  return all;
}

// Returns how many values had the key: more than one only in a bundle that was read.
size_t PersistableBundle::erase(const String16& key) {
  size_t erased = 0;
#define ERASE(Name, Parameter, map, type, Kind) erased += (map).erase(key);
  BUNDLE_TYPES(ERASE)
#undef ERASE
  return erased;
}

// For each type: put replaces the value that the key has, of whichever type. get returns false and leaves
// `out` if the key has no value of that very type. The keys come in the order of their UTF-16 units.
#define ACCESS(Name, Parameter, map, type, Kind)                                                  \
  void PersistableBundle::put##Name(const String16& key, Parameter value) {                       \
    put(this, &(map), key, value);                                                                \
  }                                                                                               \
  bool PersistableBundle::get##Name(const String16& key, decltype(map)::mapped_type* out) const { \
    return find(map, key, out);                                                                   \
  }                                                                                               \
  std::set<String16> PersistableBundle::get##Name##Keys() const {                                 \
    return keysOf(map);                                                                           \
  }
BUNDLE_TYPES(ACCESS)
#undef ACCESS

}  // namespace android::os
