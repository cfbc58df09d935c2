// The buffer of a parcel: growth, position, the interface token and the values of fixed width. Every write
// ends on a 4-byte boundary, so values of 8 bytes lie at any multiple of 4 and are copied, never pointed at.

#include "parcel/ParcelHeader.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include <binder/IBinder.h>

namespace android {
namespace {

constexpr size_t kAlignment = 4;
// Holds a request without long texts. A full buffer doubles.
constexpr size_t kFirstCapacity = 256;
// Lengths travel as int32.
constexpr size_t kMaxSize = INT32_MAX;

// The words before the descriptor of an interface token. A host has neither strict mode nor work sources, so
// the first two are what a thread without them writes on the device, and readers ignore them.
constexpr int32_t kNoStrictModePolicy = static_cast<int32_t>(0x80000000);
constexpr int32_t kUnsetWorkSource = -1;
constexpr int32_t kSystemHeader = 0x53595354;  // 'SYST': both ends belong to the system partition

constexpr size_t padded(size_t size) {
  return (size + kAlignment - 1) & ~(kAlignment - 1);
}

}  // namespace

Parcel::Parcel() {
  initState();
}

Parcel::~Parcel() {
  free(mData);
}

const uint8_t* Parcel::data() const {
  return mData;
}

size_t Parcel::dataSize() const {
  return mDataSize;
}

// How many bytes are left to read.
size_t Parcel::dataAvail() const {
  return mDataPos < mDataSize ? mDataSize - mDataPos : 0;
}

size_t Parcel::dataPosition() const {
  return mDataPos;
}

// New bytes are zero. The position stays within the data.
status_t Parcel::setDataSize(size_t size) {
  if (const status_t status = setDataCapacity(size); status != OK) return status;
  if (size > mDataSize) memset(mData + mDataSize, 0, size - mDataSize);
  mDataSize = size;
  mDataPos = std::min(mDataPos, size);
  return OK;
}

// A position beyond the end is allowed: reads fail there, and a write fills the gap with zeros.
void Parcel::setDataPosition(size_t pos) const {
  mDataPos = std::min(pos, kMaxSize);
}

status_t Parcel::setDataCapacity(size_t size) {
  if (size > kMaxSize) return BAD_VALUE;
  if (size <= mDataCapacity) return OK;
  void* const grown = realloc(mData, size);
  if (grown == nullptr) return mError = NO_MEMORY;
  mData = static_cast<uint8_t*>(grown);
  mDataCapacity = size;
  return OK;
}

// Copies `len` bytes and puts the position at the first.
status_t Parcel::setData(const uint8_t* buffer, size_t len) {
  if (const status_t status = setDataCapacity(len); status != OK) return status;
  if (len != 0) memcpy(mData, buffer, len);
  mDataSize = len;
  mDataPos = 0;
  return OK;
}

void Parcel::freeData() {
  free(mData);
  initState();
}

status_t Parcel::errorCheck() const {
  return mError;
}

status_t Parcel::writeInterfaceToken(const String16& interface) {
  writeInt32(kNoStrictModePolicy);
  writeInt32(kUnsetWorkSource);
  writeInt32(kSystemHeader);
  return writeString16(interface);
}

// Returns false if the header or the descriptor is not as expected. The token counts as read either way.
bool Parcel::enforceInterface(const String16& interface, IPCThreadState* /*threadState*/) const {
  readInt32();  // strict-mode policy
  readInt32();  // work source
  if (readInt32() != kSystemHeader) return false;
  size_t length = 0;
  const char16_t* descriptor = readString16Inplace(&length);
  // As on the device, a missing descriptor reads as an empty one.
  if (descriptor == nullptr) return interface.size() == 0;
  return length == interface.size() && memcmp(descriptor, interface.string(), length * sizeof(char16_t)) == 0;
}

bool Parcel::checkInterface(IBinder* binder) const {
  return enforceInterface(binder->getInterfaceDescriptor());
}

// growData() and finishWrite() surround every write, and a bundle makes thousands of them for each call, so
// both are inline here and only continueWrite() is not.
inline status_t Parcel::growData(size_t len) {
  const bool fits = mDataPos <= mDataSize && len < mDataCapacity - mDataPos;
  return fits ? OK : continueWrite(len);
}

inline status_t Parcel::finishWrite(size_t len) {
  mDataPos += len;
  mDataSize = std::max(mDataSize, mDataPos);
  return OK;
}

// Makes room for `len` bytes at the position, and fills a gap between the end and the position with zeros.
status_t Parcel::continueWrite(size_t len) {
  if (len > kMaxSize || mDataPos > kMaxSize - len) return mError = BAD_VALUE;
  const size_t roomy = std::min(std::max(mDataCapacity * 2, kFirstCapacity), kMaxSize);
  const size_t needed = mDataPos + len;
  if (needed > mDataCapacity || mDataCapacity == 0) {
    if (const status_t status = setDataCapacity(std::max(needed, roomy)); status != OK) return status;
  }
  if (mDataPos > mDataSize) memset(mData + mDataSize, 0, mDataPos - mDataSize);
  return OK;
}

status_t Parcel::write(const void* data, size_t len) {
  void* const target = writeInplace(len);
  if (target == nullptr) return mError;
  if (len != 0) memcpy(target, data, len);
  return OK;
}

// Adds `len` bytes, sets their padding to zero, and returns the address for the caller to fill. Returns
// nullptr if there is no room; the error is then in errorCheck().
void* Parcel::writeInplace(size_t len) {
  const size_t whole = len > kMaxSize ? len : padded(len);
  if (growData(whole) != OK) return nullptr;
  uint8_t* const target = mData + mDataPos;
  if (whole != len) memset(target + len, 0, whole - len);
  finishWrite(whole);
  return target;
}

template <class T>
status_t Parcel::writeAligned(T val) {
  static_assert(padded(sizeof(T)) == sizeof(T));
  if (const status_t status = growData(sizeof(T)); status != OK) return status;
  memcpy(mData + mDataPos, &val, sizeof(T));
  return finishWrite(sizeof(T));
}

template <class T>
status_t Parcel::readAligned(T* pArg) const {
  static_assert(padded(sizeof(T)) == sizeof(T));
  if (dataAvail() < sizeof(T)) return NOT_ENOUGH_DATA;
  memcpy(pArg, mData + mDataPos, sizeof(T));
  mDataPos += sizeof(T);
  return OK;
}

status_t Parcel::writeInt32(int32_t val) {
  return writeAligned(val);
}

status_t Parcel::writeInt64(int64_t val) {
  return writeAligned(val);
}

status_t Parcel::writeDouble(double val) {
  return writeAligned(val);
}

status_t Parcel::writeBool(bool val) {
  return writeInt32(val ? 1 : 0);
}

// Returns nullptr and leaves the position if fewer bytes than `len` with its padding are left.
const void* Parcel::readInplace(size_t len) const {
  if (len > kMaxSize || padded(len) > dataAvail()) return nullptr;
  // Reading no bytes succeeds in a parcel without a buffer too, so its result cannot be nullptr.
  static constexpr uint8_t kNoBytes[kAlignment] = {};
  const void* const source = mData != nullptr ? mData + mDataPos : kNoBytes;
  mDataPos += padded(len);
  return source;
}

// Returns zero if too few bytes are left.
int32_t Parcel::readInt32() const {
  int32_t value = 0;
  readInt32(&value);
  return value;
}

status_t Parcel::readInt32(int32_t* pArg) const {
  return readAligned(pArg);
}

status_t Parcel::readInt64(int64_t* pArg) const {
  return readAligned(pArg);
}

status_t Parcel::readDouble(double* pArg) const {
  return readAligned(pArg);
}

bool Parcel::readBool() const {
  return readInt32() != 0;
}

// Any word but 0 is true.
status_t Parcel::readBool(bool* pArg) const {
  int32_t word = 0;
  const status_t status = readInt32(&word);
  *pArg = word != 0;
  return status;
}

void Parcel::initState() {
  mError = OK;
  mData = nullptr;
  mDataSize = 0;
  mDataCapacity = 0;
  mDataPos = 0;
  // The other members describe objects in the parcel. There are none on a host.
}

}  // namespace android
