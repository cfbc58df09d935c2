#include "ReportDecoder.h"

#include <algorithm>
#include <utility>

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

namespace libstatsd {
namespace {

using android::os::statsd::Atom;
using google::protobuf::internal::WireFormatLite;
using google::protobuf::io::CodedInputStream;

constexpr uint32_t tagOf(int field, WireFormatLite::WireType type) {
  return static_cast<uint32_t>(field) << 3 | static_cast<uint32_t>(type);
}
constexpr auto kVarint = WireFormatLite::WIRETYPE_VARINT;
constexpr auto kMessage = WireFormatLite::WIRETYPE_LENGTH_DELIMITED;

// Tags of stats_log.proto.
constexpr uint32_t kListReports = tagOf(2, kMessage);
constexpr uint32_t kReportMetrics = tagOf(1, kMessage);
constexpr uint32_t kMetricEvents = tagOf(4, kMessage);
constexpr uint32_t kEventsData = tagOf(1, kMessage);
constexpr uint32_t kDataTimestamp = tagOf(1, kVarint);
constexpr uint32_t kDataAtom = tagOf(2, kMessage);
constexpr uint32_t kDataAggregated = tagOf(4, kMessage);
constexpr uint32_t kAggregatedAtom = tagOf(1, kMessage);
constexpr uint32_t kAggregatedTimestamp = tagOf(2, kVarint);
constexpr uint32_t kAggregatedTimestampsPacked = tagOf(2, kMessage);

// Reads fields up to the current limit. `take(tag, &ok)` reads the field and returns true, or returns false
// for one that is to be skipped.
template <typename Take>
bool readFields(CodedInputStream& in, const Take& take) {
  while (const uint32_t tag = in.ReadTag()) {
    bool ok = true;
    if (!take(tag, &ok) && !WireFormatLite::SkipField(&in, tag)) return false;
    if (!ok) return false;
  }
  return in.ConsumedEntireMessage();
}

template <typename Read>
bool readMessage(CodedInputStream& in, const Read& read) {
  int size = 0;
  // The stream would take a length past the end as one up to the end.
  if (!in.ReadVarintSizeAsInt(&size) || size > in.BytesUntilLimit()) return false;
  const CodedInputStream::Limit before = in.PushLimit(size);
  const bool ok = read();
  in.PopLimit(before);
  return ok;
}

bool readTimestamp(CodedInputStream& in, int64_t* timestamp) {
  uint64_t value = 0;
  if (!in.ReadVarint64(&value)) return false;
  *timestamp = static_cast<int64_t>(value);
  return true;
}

class ReportReader {
 public:
  explicit ReportReader(CodedInputStream& in) : mIn(in) {}

  bool read(Report* report) {
    int metrics = 0;
    const bool ok = readFields(mIn, [&](uint32_t tag, bool* ok) {
      if (tag != kReportMetrics) return false;
      const size_t before = report->size();
      *ok = readMessage(mIn, [&] { return readMetric(report); });
      if (report->size() != before) metrics++;
      return true;
    });
    if (metrics > 1) mInOrder = false;
    if (!mInOrder) {
      std::stable_sort(report->begin(), report->end(), [](const AtomReport& a, const AtomReport& b) {
        return a.elapsedTimestampNs < b.elapsedTimestampNs;
      });
    }
    return ok;
  }

 private:
  bool readMetric(Report* report) {
    return readFields(mIn, [&](uint32_t tag, bool* ok) {
      if (tag != kMetricEvents) return false;
      *ok = readMessage(mIn, [&] { return readEvents(report); });
      return true;
    });
  }

  bool readEvents(Report* report) {
    return readFields(mIn, [&](uint32_t tag, bool* ok) {
      if (tag != kEventsData) return false;
      *ok = readMessage(mIn, [&] { return readData(report); });
      return true;
    });
  }

  bool readData(Report* report) {
    AtomReport single;
    bool aggregated = false;
    const bool ok = readFields(mIn, [&](uint32_t tag, bool* ok) {
      switch (tag) {
        case kDataTimestamp:
          *ok = readTimestamp(mIn, &single.elapsedTimestampNs);
          return true;
        case kDataAtom:
          *ok = readMessage(mIn, [&] { return single.atom.MergePartialFromCodedStream(&mIn); });
          return true;
        case kDataAggregated:
          aggregated = true;
          *ok = readMessage(mIn, [&] { return readAggregated(report); });
          return true;
        default:
          return false;
      }
    });
    if (!aggregated) report->push_back(std::move(single));
    return ok;
  }

  bool readAggregated(Report* report) {
    mInOrder = false;
    Atom atom;
    std::vector<int64_t> timestamps;
    const auto readOne = [&] { return readTimestamp(mIn, &timestamps.emplace_back()); };
    const bool ok = readFields(mIn, [&](uint32_t tag, bool* ok) {
      switch (tag) {
        case kAggregatedAtom:
          *ok = readMessage(mIn, [&] { return atom.MergePartialFromCodedStream(&mIn); });
          return true;
        case kAggregatedTimestamp:
          *ok = readOne();
          return true;
        case kAggregatedTimestampsPacked:
          *ok = readMessage(mIn, [&] {
            while (mIn.BytesUntilLimit() > 0) {
              if (!readOne()) return false;
            }
            return true;
          });
          return true;
        default:
          return false;
      }
    });
    for (const int64_t timestamp : timestamps) report->push_back({timestamp, atom});
    return ok;
  }

  CodedInputStream& mIn;
  bool mInOrder = true;
};

}  // namespace

std::optional<std::vector<Report>> decodeReportList(std::string_view bytes) {
  CodedInputStream in(reinterpret_cast<const uint8_t*>(bytes.data()), static_cast<int>(bytes.size()));
  in.PushLimit(static_cast<int>(bytes.size()));
  std::vector<Report> reports;
  const bool ok = readFields(in, [&](uint32_t tag, bool* ok) {
    if (tag != kListReports) return false;
    *ok = readMessage(in, [&] { return ReportReader(in).read(&reports.emplace_back()); });
    return true;
  });
  if (!ok) return std::nullopt;
  return reports;
}

}  // namespace libstatsd
