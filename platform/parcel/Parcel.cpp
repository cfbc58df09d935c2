// The buffer of a parcel: growth, position, and the values of fixed width. The layout inside is the binder
// wire format, where every write ends on a 4-byte boundary and 8-byte values lie at any multiple of 4.

#include "parcel/ParcelHeader.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include <binder/IPCThreadState.h>

namespace android {
namespace {

constexpr size_t kAlignment = 4;
constexpr size_t kFirstCapacity = 256;
constexpr size_t kMaxSize = INT32_MAX;

// 'SYST', the header of parcels between parts of the system partition.
constexpr int32_t kTokenHeader = 0x53595354;
constexpr int32_t kStrictModeGather = static_cast<int32_t>(0x80000000);

constexpr size_t padded(size_t size) {
  return (size + kAlignment - 1) & ~(kAlignment - 1);
}

}  // namespace

Parcel::Parcel() {
  initState();
}

Parcel::~Parcel() {
  freeDataNoInit();
}

const uint8_t* Parcel::data() const {
  return mData;
}

size_t Parcel::dataSize() const {
  return mDataSize;
}

size_t Parcel::dataAvail() const {
  return mDataPos < mDataSize ? mDataSize - mDataPos : 0;
}

size_t Parcel::dataPosition() const {
  return mDataPos;
}

size_t Parcel::dataCapacity() const {
  return mDataCapacity;
}

status_t Parcel::setDataSize(size_t size) {
  if (size > kMaxSize) return BAD_VALUE;
  if (const status_t status = setDataCapacity(size); status != OK) return status;
  if (size > mDataSize) memset(mData + mDataSize, 0, size - mDataSize);
  mDataSize = size;
  mDataPos = std::min(mDataPos, size);
  return OK;
}

void Parcel::setDataPosition(size_t pos) const {
  mDataPos = std::min(pos, kMaxSize);
}

status_t Parcel::setDataCapacity(size_t size) {
  if (size > kMaxSize) return BAD_VALUE;
  return size > mDataCapacity ? continueWrite(size) : OK;
}

status_t Parcel::setData(const uint8_t* buffer, size_t len) {
  if (len > kMaxSize) return BAD_VALUE;
  mDataSize = 0;
  mDataPos = 0;
  if (const status_t status = setDataCapacity(len); status != OK) return status;
  if (len != 0) memcpy(mData, buffer, len);
  mDataSize = len;
  return OK;
}

// Neither binder objects nor file descriptors travel through a socket, so there is never a table of them.
bool Parcel::hasFileDescriptors() const {
  return false;
}

size_t Parcel::objectsCount() const {
  return 0;
}

void Parcel::freeData() {
  freeDataNoInit();
  initState();
}

status_t Parcel::errorCheck() const {
  return mError;
}

void Parcel::setError(status_t err) {
  mError = err;
}

status_t Parcel::writeInterfaceToken(const String16& interface) {
  const IPCThreadState* thread = IPCThreadState::self();
  writeInt32(thread->getStrictModePolicy() | kStrictModeGather);
  writeInt32(thread->shouldPropagateWorkSource() ? static_cast<int32_t>(thread->getCallingWorkSourceUid())
                                                 : IPCThreadState::kUnsetWorkSource);
  writeInt32(kTokenHeader);
  return writeString16(interface);
}

bool Parcel::enforceInterface(const String16& interface, IPCThreadState* threadState) const {
  const int32_t strictPolicy = readInt32();
  IPCThreadState* thread = threadState != nullptr ? threadState : IPCThreadState::self();
  const bool oneway = (thread->getLastTransactionBinderFlags() & IBinder::FLAG_ONEWAY) != 0;
  thread->setStrictModePolicy(oneway ? 0 : strictPolicy);
  thread->setCallingWorkSourceUidWithoutPropagation(static_cast<uid_t>(readInt32()));
  if (readInt32() != kTokenHeader) return false;
  size_t length = 0;
  const char16_t* descriptor = readString16Inplace(&length);
  // A descriptor that is missing reads as an empty one.
  if (descriptor == nullptr) return interface.size() == 0;
  return length == interface.size() && memcmp(descriptor, interface.string(), length * sizeof(char16_t)) == 0;
}

bool Parcel::checkInterface(IBinder* binder) const {
  return enforceInterface(binder->getInterfaceDescriptor());
}

status_t Parcel::write(const void* data, size_t len) {
  void* const target = writeInplace(len);
  if (target == nullptr) return mError;
  if (len != 0) memcpy(target, data, len);
  return OK;
}

void* Parcel::writeInplace(size_t len) {
  if (len > kMaxSize) {
    mError = BAD_VALUE;
    return nullptr;
  }
  const size_t whole = padded(len);
  if (growData(whole) != OK) return nullptr;
  uint8_t* const target = mData + mDataPos;
  if (whole != len) memset(target + len, 0, whole - len);
  finishWrite(whole);
  return target;
}

status_t Parcel::writeUnpadded(const void* data, size_t len) {
  if (const status_t status = growData(len); status != OK) return status;
  if (len != 0) memcpy(mData + mDataPos, data, len);
  return finishWrite(len);
}

template <class T>
status_t Parcel::writeAligned(T val) {
  static_assert(padded(sizeof(T)) == sizeof(T));
  if (mDataPos > mDataCapacity || mDataCapacity - mDataPos < sizeof(T) || mDataPos > mDataSize) {
    if (const status_t status = growData(sizeof(T)); status != OK) return status;
  }
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

template <class T>
T Parcel::readAligned() const {
  T value{};
  return readAligned(&value) == OK ? value : T{};
}

status_t Parcel::writeInt32(int32_t val) {
  return writeAligned(val);
}

status_t Parcel::writeUint32(uint32_t val) {
  return writeAligned(val);
}

status_t Parcel::writeInt64(int64_t val) {
  return writeAligned(val);
}

status_t Parcel::writeUint64(uint64_t val) {
  return writeAligned(val);
}

status_t Parcel::writeFloat(float val) {
  return writeAligned(val);
}

status_t Parcel::writeDouble(double val) {
  return writeAligned(val);
}

status_t Parcel::writeBool(bool val) {
  return writeInt32(val ? 1 : 0);
}

status_t Parcel::writeChar(char16_t val) {
  return writeInt32(val);
}

status_t Parcel::writeByte(int8_t val) {
  return writeInt32(val);
}

status_t Parcel::writeNoException() {
  return writeInt32(0);
}

status_t Parcel::read(void* outData, size_t len) const {
  const void* source = readInplace(len);
  if (source == nullptr) return NOT_ENOUGH_DATA;
  if (len != 0) memcpy(outData, source, len);
  return OK;
}

const void* Parcel::readInplace(size_t len) const {
  if (len > kMaxSize || padded(len) > dataAvail()) return nullptr;
  static constexpr uint8_t kNothing[kAlignment] = {};
  const void* const source = mData != nullptr ? mData + mDataPos : kNothing;
  mDataPos += padded(len);
  return source;
}

int32_t Parcel::readInt32() const {
  return readAligned<int32_t>();
}

status_t Parcel::readInt32(int32_t* pArg) const {
  return readAligned(pArg);
}

uint32_t Parcel::readUint32() const {
  return readAligned<uint32_t>();
}

status_t Parcel::readUint32(uint32_t* pArg) const {
  return readAligned(pArg);
}

int64_t Parcel::readInt64() const {
  return readAligned<int64_t>();
}

status_t Parcel::readInt64(int64_t* pArg) const {
  return readAligned(pArg);
}

uint64_t Parcel::readUint64() const {
  return readAligned<uint64_t>();
}

status_t Parcel::readUint64(uint64_t* pArg) const {
  return readAligned(pArg);
}

float Parcel::readFloat() const {
  return readAligned<float>();
}

status_t Parcel::readFloat(float* pArg) const {
  return readAligned(pArg);
}

double Parcel::readDouble() const {
  return readAligned<double>();
}

status_t Parcel::readDouble(double* pArg) const {
  return readAligned(pArg);
}

bool Parcel::readBool() const {
  return readInt32() != 0;
}

status_t Parcel::readBool(bool* pArg) const {
  int32_t word = 0;
  const status_t status = readInt32(&word);
  *pArg = word != 0;
  return status;
}

char16_t Parcel::readChar() const {
  return static_cast<char16_t>(readInt32());
}

status_t Parcel::readChar(char16_t* pArg) const {
  int32_t word = 0;
  const status_t status = readInt32(&word);
  *pArg = static_cast<char16_t>(word);
  return status;
}

int8_t Parcel::readByte() const {
  return static_cast<int8_t>(readInt32());
}

status_t Parcel::readByte(int8_t* pArg) const {
  int32_t word = 0;
  const status_t status = readInt32(&word);
  *pArg = static_cast<int8_t>(word);
  return status;
}

status_t Parcel::finishWrite(size_t len) {
  mDataPos += len;
  mDataSize = std::max(mDataSize, mDataPos);
  return OK;
}

// Makes room for `len` bytes at the position. A position beyond the end leaves zeros between.
status_t Parcel::growData(size_t len) {
  if (len > kMaxSize || mDataPos > kMaxSize - len) return mError = BAD_VALUE;
  const size_t needed = mDataPos + len;
  if (needed > mDataCapacity || mData == nullptr) {
    const size_t doubled = std::max(mDataCapacity * 2, kFirstCapacity);
    if (const status_t status = continueWrite(std::max(needed, doubled)); status != OK) return status;
  }
  if (mDataPos > mDataSize) memset(mData + mDataSize, 0, mDataPos - mDataSize);
  return OK;
}

status_t Parcel::continueWrite(size_t desired) {
  void* const grown = realloc(mData, desired);
  if (grown == nullptr) return mError = NO_MEMORY;
  mData = static_cast<uint8_t*>(grown);
  mDataCapacity = desired;
  return OK;
}

void Parcel::freeDataNoInit() {
  free(mData);
}

void Parcel::initState() {
  mError = OK;
  mData = nullptr;
  mDataSize = 0;
  mDataCapacity = 0;
  mDataPos = 0;
  mObjects = nullptr;
  mObjectsSize = 0;
  mObjectsCapacity = 0;
  mNextObjectHint = 0;
  mObjectsSorted = false;
  mRequestHeaderPresent = false;
  mWorkSourceRequestHeaderPosition = 0;
  mFdsKnown = true;
  mHasFds = false;
  mAllowFds = true;
  mOwner = nullptr;
  mOwnerCookie = nullptr;
  mOpenAshmemSize = 0;
}

}  // namespace android
