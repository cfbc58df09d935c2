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

// Java also writes null values, with tag -1. Like the device's native reader, this one refuses them.
enum Type : int32_t {
  kString = 0,
  kInteger = 1,
  kLong = 6,
  kDouble = 8,
  kBoolean = 9,
  kStringArray = 14,
  kIntArray = 18,
  kLongArray = 19,
  kBooleanArray = 23,
  kBundle = 25,
  kDoubleArray = 28,
};

// The device's reader has no limits. This one has two, because other processes make up what it reads: bundles
// nest at most this deep (each level takes stack), and a count must fit into the bytes left. The shortest
// entry has an empty key, a type and one word of value.
constexpr int kMaxDepth = 32;
constexpr size_t kShortestEntry = 8 + 4 + 4;

// How many bundles this thread is reading, each inside the one before.
thread_local int tDepth = 0;

// Writes the entries of one type in the order of their keys. `write` writes a value.
template <typename Map, typename Write>
status_t writeEntries(Parcel* parcel, const Map& map, Type type, Write write) {
  for (const auto& [key, value] : map) {
    status_t status = parcel->writeString16(key);
    if (status == OK) status = parcel->writeInt32(type);
    if (status == OK) status = write(value);
    if (status != OK) return status;
  }
  return OK;
}

// The keys of a map are in order, so the end is always the right place for the next.
template <typename Map>
std::set<String16> keysOf(const Map& map) {
  std::set<String16> keys;
  for (const auto& entry : map) keys.emplace_hint(keys.end(), entry.first);
  return keys;
}

template <typename Map, typename Value>
bool find(const Map& map, const String16& key, Value* out) {
  const auto entry = map.find(key);
  if (entry == map.end()) return false;
  *out = entry->second;
  return true;
}

// Returns the value of `key` and adds an empty one if there is none. Writers send the keys of a type in
// order, so the hint at the end spares the search.
template <typename Map>
typename Map::mapped_type* slot(Map* map, const String16& key) {
  return &map->try_emplace(map->end(), key)->second;
}

// Most values are strings, so they are built in the map, while slot() would build an empty one and then
// replace it.
status_t readString(const Parcel* parcel, std::map<String16, String16>* map, const String16& key) {
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
  const auto write = [&](const auto& map, Type type, auto writeValue) {
    if (status == OK) status = writeEntries(parcel, map, type, writeValue);
  };
  write(mBoolMap, kBoolean, [&](bool value) { return parcel->writeBool(value); });
  write(mIntMap, kInteger, [&](int32_t value) { return parcel->writeInt32(value); });
  write(mLongMap, kLong, [&](int64_t value) { return parcel->writeInt64(value); });
  write(mDoubleMap, kDouble, [&](double value) { return parcel->writeDouble(value); });
  write(mStringMap, kString, [&](const String16& value) { return parcel->writeString16(value); });
  write(mBoolVectorMap, kBooleanArray, [&](const auto& value) { return parcel->writeBoolVector(value); });
  write(mIntVectorMap, kIntArray, [&](const auto& value) { return parcel->writeInt32Vector(value); });
  write(mLongVectorMap, kLongArray, [&](const auto& value) { return parcel->writeInt64Vector(value); });
  write(mDoubleVectorMap, kDoubleArray, [&](const auto& value) { return parcel->writeDoubleVector(value); });
  write(mStringVectorMap, kStringArray,
        [&](const auto& value) { return parcel->writeString16Vector(value); });
  write(mPersistableBundleMap, kBundle, [&](const auto& value) { return value.writeToParcel(parcel); });
  return status;
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
      case kString:
        return readString(parcel, &mStringMap, key);
      case kInteger:
        return parcel->readInt32(slot(&mIntMap, key));
      case kLong:
        return parcel->readInt64(slot(&mLongMap, key));
      case kDouble:
        return parcel->readDouble(slot(&mDoubleMap, key));
      case kBoolean:
        return parcel->readBool(slot(&mBoolMap, key));
      case kStringArray:
        return parcel->readString16Vector(slot(&mStringVectorMap, key));
      case kIntArray:
        return parcel->readInt32Vector(slot(&mIntVectorMap, key));
      case kLongArray:
        return parcel->readInt64Vector(slot(&mLongVectorMap, key));
      case kBooleanArray:
        return parcel->readBoolVector(slot(&mBoolVectorMap, key));
      case kBundle:
        return slot(&mPersistableBundleMap, key)->readFromParcel(parcel);
      case kDoubleArray:
        return parcel->readDoubleVector(slot(&mDoubleVectorMap, key));
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
  return mBoolMap.size() + mIntMap.size() + mLongMap.size() + mDoubleMap.size() + mStringMap.size() +
         mBoolVectorMap.size() + mIntVectorMap.size() + mLongVectorMap.size() + mDoubleVectorMap.size() +
         mStringVectorMap.size() + mPersistableBundleMap.size();
}

// Returns how many values had the key: more than one only in a bundle that was read.
size_t PersistableBundle::erase(const String16& key) {
  return mBoolMap.erase(key) + mIntMap.erase(key) + mLongMap.erase(key) + mDoubleMap.erase(key) +
         mStringMap.erase(key) + mBoolVectorMap.erase(key) + mIntVectorMap.erase(key) +
         mLongVectorMap.erase(key) + mDoubleVectorMap.erase(key) + mStringVectorMap.erase(key) +
         mPersistableBundleMap.erase(key);
}

// Each put replaces the value that the key has, of whichever type.
void PersistableBundle::putBoolean(const String16& key, bool value) {
  put(this, &mBoolMap, key, value);
}

void PersistableBundle::putInt(const String16& key, int32_t value) {
  put(this, &mIntMap, key, value);
}

void PersistableBundle::putLong(const String16& key, int64_t value) {
  put(this, &mLongMap, key, value);
}

void PersistableBundle::putDouble(const String16& key, double value) {
  put(this, &mDoubleMap, key, value);
}

void PersistableBundle::putString(const String16& key, const String16& value) {
  put(this, &mStringMap, key, value);
}

void PersistableBundle::putBooleanVector(const String16& key, const std::vector<bool>& value) {
  put(this, &mBoolVectorMap, key, value);
}

void PersistableBundle::putIntVector(const String16& key, const std::vector<int32_t>& value) {
  put(this, &mIntVectorMap, key, value);
}

void PersistableBundle::putLongVector(const String16& key, const std::vector<int64_t>& value) {
  put(this, &mLongVectorMap, key, value);
}

void PersistableBundle::putDoubleVector(const String16& key, const std::vector<double>& value) {
  put(this, &mDoubleVectorMap, key, value);
}

void PersistableBundle::putStringVector(const String16& key, const std::vector<String16>& value) {
  put(this, &mStringVectorMap, key, value);
}

void PersistableBundle::putPersistableBundle(const String16& key, const PersistableBundle& value) {
  erase(key);
  // The class declares a copy constructor and so has no move: building it in place copies once, assigning
  // twice.
  mPersistableBundleMap.try_emplace(mPersistableBundleMap.end(), key, value);
}

// Each get returns false and leaves `out` if the key has no value of that very type.
bool PersistableBundle::getBoolean(const String16& key, bool* out) const {
  return find(mBoolMap, key, out);
}

bool PersistableBundle::getInt(const String16& key, int32_t* out) const {
  return find(mIntMap, key, out);
}

bool PersistableBundle::getLong(const String16& key, int64_t* out) const {
  return find(mLongMap, key, out);
}

bool PersistableBundle::getDouble(const String16& key, double* out) const {
  return find(mDoubleMap, key, out);
}

bool PersistableBundle::getString(const String16& key, String16* out) const {
  return find(mStringMap, key, out);
}

bool PersistableBundle::getBooleanVector(const String16& key, std::vector<bool>* out) const {
  return find(mBoolVectorMap, key, out);
}

bool PersistableBundle::getIntVector(const String16& key, std::vector<int32_t>* out) const {
  return find(mIntVectorMap, key, out);
}

bool PersistableBundle::getLongVector(const String16& key, std::vector<int64_t>* out) const {
  return find(mLongVectorMap, key, out);
}

bool PersistableBundle::getDoubleVector(const String16& key, std::vector<double>* out) const {
  return find(mDoubleVectorMap, key, out);
}

bool PersistableBundle::getStringVector(const String16& key, std::vector<String16>* out) const {
  return find(mStringVectorMap, key, out);
}

bool PersistableBundle::getPersistableBundle(const String16& key, PersistableBundle* out) const {
  return find(mPersistableBundleMap, key, out);
}

// The keys that have a value of the type, in the order of their UTF-16 units.
std::set<String16> PersistableBundle::getBooleanKeys() const {
  return keysOf(mBoolMap);
}

std::set<String16> PersistableBundle::getIntKeys() const {
  return keysOf(mIntMap);
}

std::set<String16> PersistableBundle::getLongKeys() const {
  return keysOf(mLongMap);
}

std::set<String16> PersistableBundle::getDoubleKeys() const {
  return keysOf(mDoubleMap);
}

std::set<String16> PersistableBundle::getStringKeys() const {
  return keysOf(mStringMap);
}

std::set<String16> PersistableBundle::getBooleanVectorKeys() const {
  return keysOf(mBoolVectorMap);
}

std::set<String16> PersistableBundle::getIntVectorKeys() const {
  return keysOf(mIntVectorMap);
}

std::set<String16> PersistableBundle::getLongVectorKeys() const {
  return keysOf(mLongVectorMap);
}

std::set<String16> PersistableBundle::getDoubleVectorKeys() const {
  return keysOf(mDoubleVectorMap);
}

std::set<String16> PersistableBundle::getStringVectorKeys() const {
  return keysOf(mStringVectorMap);
}

std::set<String16> PersistableBundle::getPersistableBundleKeys() const {
  return keysOf(mPersistableBundleMap);
}

}  // namespace android::os
