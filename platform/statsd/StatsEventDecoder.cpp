#include <algorithm>
#include <array>
#include <cstring>

#include "StatsEventFormat.h"

namespace libstatsd {
namespace {

enum WireType : uint32_t { kVarint = 0, kLengthDelimited = 2, kFixed32 = 5 };  // of protobuf's fields

// No element takes more than twice its bytes as a field: a bool takes 2 as an element and at most 4 as a
// field. The constant is for the element that turns out to be cut, which is written as zero.
constexpr size_t kMaxFieldBytes = 2 * kMaxEventBytes + 64;

// Reads from the front. A read past the end yields zeros and makes the event malformed for good. Fields are
// written into a buffer on the stack, because a string that grows with each costs a tenth of an atom.
class EventDecoder {
 public:
  EventDecoder(std::string_view event, DecodedDatagram& decoded) : mRest(event), mDecoded(decoded) {}

  DatagramKind decode() {
    const int fieldCount = decodeHead();
    for (int field = 1; field <= fieldCount && mOk && !mGivenUp; field++) decodeField(field);
    mDecoded.fields.assign(mFields.data(), mEnd);
    if (!mOk || !mRest.empty()) return DatagramKind::Malformed;
    return mGivenUp ? DatagramKind::GivenUp : DatagramKind::Event;
  }

 private:
  // What the annotations of a field are checked against.
  enum class LastValue { None, Integer, Other };

  static ElementType typeOf(uint8_t head) { return static_cast<ElementType>(head & 0xf); }

  std::string_view takeBytes(size_t size) {
    mOk = mOk && size <= mRest.size();
    if (!mOk) return {};
    const std::string_view bytes = mRest.substr(0, size);
    mRest.remove_prefix(size);
    return bytes;
  }

  template <typename T>
  T take() {
    T value{};
    const std::string_view bytes = takeBytes(sizeof(T));
    if (mOk) memcpy(&value, bytes.data(), sizeof(T));
    return value;
  }

  // A negative length is a huge one.
  std::string_view takeString() { return takeBytes(take<uint32_t>()); }

  uint8_t expect(ElementType type) {
    const auto head = take<uint8_t>();
    if (typeOf(head) != type) mOk = false;
    return head;
  }

  void putVarint(uint64_t value) {
    for (; value >= 0x80; value >>= 7) *mEnd++ = static_cast<char>(value | 0x80);
    *mEnd++ = static_cast<char>(value);
  }

  void putTag(int field, WireType type) { putVarint(static_cast<uint32_t>(field) << 3 | type); }

  void putInteger(int field, uint64_t value) {
    putTag(field, kVarint);
    putVarint(value);
  }

  void putBytes(int field, std::string_view bytes) {
    putTag(field, kLengthDelimited);
    putVarint(bytes.size());
    mEnd = std::ranges::copy(bytes, mEnd).out;
  }

  // Returns the number of fields that follow.
  int decodeHead() {
    expect(ElementType::Object);
    const int elements = take<uint8_t>();
    if (elements < kMinElements || elements > kMaxElements) mOk = false;
    expect(ElementType::Int64);
    mDecoded.elapsedTimestampNs = take<int64_t>();
    const uint8_t head = expect(ElementType::Int32);
    mDecoded.atomId = take<int32_t>();
    skipAnnotations(head);
    return elements - kMinElements;
  }

  void decodeField(int field) {
    const auto head = take<uint8_t>();
    switch (typeOf(head)) {
      case ElementType::KeyValuePairs:
      case ElementType::AttributionChain:
        decodeEntries(field, typeOf(head));
        break;
      case ElementType::Error:
        take<int32_t>();
        mGivenUp = true;
        return;
      default:
        decodeValue(typeOf(head), field);
    }
    skipAnnotations(head);
  }

  void decodeValue(ElementType type, int field) {
    mLast = type == ElementType::Int32 || type == ElementType::Bool ? LastValue::Integer : LastValue::Other;
    switch (type) {
      case ElementType::Int32:
        return putInteger(field, take<uint32_t>());
      case ElementType::Bool:
        return putInteger(field, take<uint8_t>());
      case ElementType::Int64:
        return putInteger(field, take<uint64_t>());
      case ElementType::Float:
        putTag(field, kFixed32);
        mEnd = std::ranges::copy(takeBytes(sizeof(float)), mEnd).out;
        return;
      case ElementType::String:
      case ElementType::ByteArray:
        return putBytes(field, takeString());
      default:
        mOk = false;
    }
  }

  // Each entry becomes a message of its own. A pair has 1 key, and the value under a number that says its
  // type; a node of a chain has 1 uid, 2 tag.
  void decodeEntries(int field, ElementType list) {
    constexpr std::array<int, 5> kFieldOfType = {2, 3, 4, 0, 5};  // Int32, Int64, String, none, Float
    const bool isChain = list == ElementType::AttributionChain;
    for (int left = take<uint8_t>(); left > 0 && mOk; left--) {
      char* const begin = mEnd;
      putInteger(1, take<uint32_t>());
      const auto type = isChain ? static_cast<uint8_t>(ElementType::String) : take<uint8_t>();
      mOk = mOk && type < kFieldOfType.size() && kFieldOfType[type] != 0;
      if (mOk) decodeValue(static_cast<ElementType>(type), isChain ? 2 : kFieldOfType[type]);
      const std::string entry(begin, mEnd);
      mEnd = begin;
      putBytes(field, entry);
    }
  }

  // Skips the annotations of the element that `head` begins, after its value.
  void skipAnnotations(uint8_t head) {
    for (int left = head >> 4; left > 0 && mOk; left--) {
      const auto annotation = take<uint8_t>();
      const auto type = static_cast<ElementType>(take<uint8_t>());
      takeBytes(type == ElementType::Int32 ? sizeof(int32_t) : sizeof(uint8_t));
      mOk = mOk && mayStand(annotation, type, typeOf(head));
    }
  }

  bool mayStand(uint8_t annotation, ElementType type, ElementType annotated) const {
    constexpr uint8_t kTriggerStateReset = 7;
    if (type != (annotation == kTriggerStateReset ? ElementType::Int32 : ElementType::Bool)) return false;
    switch (annotation) {
      case 1:  // is_uid
        return mLast == LastValue::Integer;
      case 2:  // truncate_timestamp, which is about the atom
        return mLast == LastValue::None;
      case 5:  // primary_field_first_uid
        return mLast != LastValue::None && annotated == ElementType::AttributionChain;
      case 3:  // primary_field
      case 4:  // exclusive_state
      case kTriggerStateReset:
      case 8:  // state_nested
        return mLast != LastValue::None;
      default:
        return false;
    }
  }

  std::string_view mRest;
  DecodedDatagram& mDecoded;
  std::array<char, kMaxFieldBytes> mFields;
  char* mEnd = mFields.data();  // of what is written
  bool mOk = true;
  bool mGivenUp = false;
  LastValue mLast = LastValue::None;
};

}  // namespace

DatagramKind decodeDatagram(std::string_view datagram, DecodedDatagram& decoded) {
  constexpr size_t kEventAt = kLogHeaderBytes + sizeof(kStatsEventTag);
  constexpr size_t kDropNoteBytes = kEventAt + sizeof(kDropNoteType) + sizeof(int64_t);
  static_assert(sizeof(kStatsEventTag) == sizeof(int32_t), "a drop note's errno takes the place of the tag");
  if (datagram.size() < kEventAt || datagram.size() > kMaxDatagramBytes) return DatagramKind::Malformed;
  const std::string_view event = datagram.substr(kEventAt);
  if (datagram.size() == kDropNoteBytes && event[0] == kDropNoteType) {
    // The low half of the number; the high half is an atom id.
    memcpy(&decoded.lost, event.data() + sizeof(kDropNoteType), sizeof(decoded.lost));
    return DatagramKind::DropNote;
  }
  return EventDecoder(event, decoded).decode();
}

}  // namespace libstatsd
