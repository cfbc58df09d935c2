#include "StatsEventDecoder.h"

#include <cstring>

#include "ProtoWriter.h"
#include "StatsEventFormat.h"

namespace libstatsd {
namespace {

// Reads from the front. A read past the end yields zeros and makes ok() false for good.
class Cursor {
 public:
  explicit Cursor(std::string_view bytes) : mRest(bytes) {}

  bool ok() const { return mOk; }
  bool atEnd() const { return mRest.empty(); }
  void fail() { mOk = false; }

  template <typename T>
  T take() {
    T value{};
    const std::string_view bytes = takeBytes(sizeof(T));
    if (bytes.size() == sizeof(T)) memcpy(&value, bytes.data(), sizeof(T));
    return value;
  }

  std::string_view takeString() {
    // A negative length is a huge one.
    return takeBytes(static_cast<uint32_t>(take<int32_t>()));
  }

 private:
  std::string_view takeBytes(size_t size) {
    if (!mOk || size > mRest.size()) {
      mOk = false;
      return {};
    }
    const std::string_view bytes = mRest.substr(0, size);
    mRest.remove_prefix(size);
    return bytes;
  }

  std::string_view mRest;
  bool mOk = true;
};

enum class Annotation : uint8_t {
  IsUid = 1,
  TruncateTimestamp = 2,
  PrimaryField = 3,
  ExclusiveState = 4,
  PrimaryFieldFirstUid = 5,
  TriggerStateReset = 7,
  StateNested = 8,
};

class EventDecoder {
 public:
  EventDecoder(std::string_view bytes, DecodedEvent* event)
      : mCursor(bytes), mEvent(*event), mFields(event->fields, maxFieldBytes(bytes.size())) {}

  DecodeResult decode() {
    const int fieldCount = decodeHead();
    for (int position = 1; position <= fieldCount && mCursor.ok() && !mWriterError; position++) {
      decodeField(position);
    }
    mFields.finish();
    if (!mCursor.ok() || !mCursor.atEnd()) return DecodeResult::Malformed;
    return mWriterError ? DecodeResult::WriterError : DecodeResult::Decoded;
  }

 private:
  // No element takes more than twice its bytes as a field: a bool takes 2 as an element and at most 4 as a
  // field. The constant is for the element that turns out to be cut, which is written as zero.
  static size_t maxFieldBytes(size_t eventBytes) { return 2 * eventBytes + 64; }

  // What the annotations of a field are checked against.
  enum class LastValue { None, Integer, Other };

  static ElementType typeOf(uint8_t head) { return static_cast<ElementType>(head & 0xf); }
  static int annotationsOf(uint8_t head) { return head >> 4; }

  uint8_t expect(ElementType type) {
    const auto head = mCursor.take<uint8_t>();
    if (typeOf(head) != type) mCursor.fail();
    return head;
  }

  // Returns the number of fields that follow.
  int decodeHead() {
    expect(ElementType::Object);
    const int elements = mCursor.take<uint8_t>();
    if (elements < kMinElements || elements > kMaxElements) mCursor.fail();
    expect(ElementType::Int64);
    mEvent.elapsedTimestampNs = mCursor.take<int64_t>();
    const uint8_t head = expect(ElementType::Int32);
    mEvent.atomId = mCursor.take<int32_t>();
    skipAnnotations(annotationsOf(head), false);
    return elements - kMinElements;
  }

  void decodeField(int position) {
    const auto head = mCursor.take<uint8_t>();
    const ElementType type = typeOf(head);
    switch (type) {
      case ElementType::KeyValuePairs:
        decodeKeyValuePairs(position);
        break;
      case ElementType::AttributionChain:
        decodeAttributionChain(position);
        break;
      case ElementType::Error:
        mCursor.take<int32_t>();
        mWriterError = true;
        return;
      default:
        decodeScalar(type, position);
    }
    skipAnnotations(annotationsOf(head), type == ElementType::AttributionChain);
  }

  void decodeScalar(ElementType type, int field) {
    mLast = LastValue::Other;
    switch (type) {
      case ElementType::Int32:
        mFields.putInt32(field, mCursor.take<int32_t>());
        mLast = LastValue::Integer;
        break;
      case ElementType::Bool:
        mFields.putInt32(field, mCursor.take<uint8_t>());
        mLast = LastValue::Integer;
        break;
      case ElementType::Int64:
        mFields.putInt64(field, mCursor.take<int64_t>());
        break;
      case ElementType::Float:
        mFields.putFloat(field, mCursor.take<float>());
        break;
      case ElementType::String:
      case ElementType::ByteArray:
        mFields.putBytes(field, mCursor.takeString());
        break;
      default:
        mCursor.fail();
    }
  }

  // Each pair becomes a message of its own: 1 key, and the value under a number that says its type.
  void decodeKeyValuePairs(int position) {
    const int pairs = mCursor.take<uint8_t>();
    for (int i = 0; i < pairs && mCursor.ok(); i++) {
      char* const pair = mFields.beginMessage();
      mFields.putInt32(1, mCursor.take<int32_t>());
      const auto type = static_cast<ElementType>(mCursor.take<uint8_t>());
      const int valueField = fieldOfPairValue(type);
      if (valueField == 0) return mCursor.fail();
      decodeScalar(type, valueField);
      mFields.endMessage(position, pair);
    }
  }

  static int fieldOfPairValue(ElementType type) {
    switch (type) {
      case ElementType::Int32:
        return 2;
      case ElementType::Int64:
        return 3;
      case ElementType::String:
        return 4;
      case ElementType::Float:
        return 5;
      default:
        return 0;
    }
  }

  // Each node becomes a message of its own: 1 uid, 2 tag.
  void decodeAttributionChain(int position) {
    const int nodes = mCursor.take<uint8_t>();
    for (int i = 0; i < nodes && mCursor.ok(); i++) {
      char* const node = mFields.beginMessage();
      mFields.putInt32(1, mCursor.take<int32_t>());
      mFields.putBytes(2, mCursor.takeString());
      mFields.endMessage(position, node);
      mLast = LastValue::Other;
    }
  }

  void skipAnnotations(int count, bool ofChain) {
    for (int i = 0; i < count && mCursor.ok(); i++) {
      const auto annotation = static_cast<Annotation>(mCursor.take<uint8_t>());
      const auto type = static_cast<ElementType>(mCursor.take<uint8_t>());
      if (type == ElementType::Int32) {
        mCursor.take<int32_t>();
      } else {
        mCursor.take<uint8_t>();
      }
      if (!mayStand(annotation, type, ofChain)) mCursor.fail();
    }
  }

  bool mayStand(Annotation annotation, ElementType type, bool ofChain) const {
    const bool isBool = type == ElementType::Bool;
    switch (annotation) {
      case Annotation::TruncateTimestamp:
        return isBool && mLast == LastValue::None;
      case Annotation::IsUid:
        return isBool && mLast == LastValue::Integer;
      case Annotation::PrimaryFieldFirstUid:
        return isBool && mLast != LastValue::None && ofChain;
      case Annotation::PrimaryField:
      case Annotation::ExclusiveState:
      case Annotation::StateNested:
        return isBool && mLast != LastValue::None;
      case Annotation::TriggerStateReset:
        return type == ElementType::Int32 && mLast != LastValue::None;
      default:
        return false;
    }
  }

  Cursor mCursor;
  DecodedEvent& mEvent;
  ProtoWriter mFields;
  LastValue mLast = LastValue::None;
  bool mWriterError = false;
};

}  // namespace

DecodeResult decodeStatsEvent(std::string_view bytes, DecodedEvent* event) {
  return EventDecoder(bytes, event).decode();
}

}  // namespace libstatsd
