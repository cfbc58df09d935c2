// A whole datagram, from the socket to the atom that a client of the collection gets. What decodes must
// arrive with the bytes that the decoder made of it.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include <osutils/Telemetry.h>

#include "EventProcessor.h"
#include "ReportDecoder.h"
#include "ReportEncoder.h"
#include "StatsEventFormat.h"

using namespace libstatsd;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view datagram(reinterpret_cast<const char*>(data), size);
  constexpr ConfigKey kKey{1000, 1};
  EventProcessor processor(1000);
  processor.configure(kKey, {{110010}, {"AID_SYSTEM"}});
  processor.receive(datagram, 1000);
  const auto reports =
      decodeReportList(encodeReportList(kKey, processor.take(kKey).value_or(AtomStore()), {}));
  if (!reports) abort();

  DecodedEvent event;
  constexpr size_t kEventAt = kLogHeaderBytes + kTagBytes;
  const bool isNote = processor.counters().dropNotes != 0;
  const bool decoded = !isNote && size >= kEventAt &&
                       decodeStatsEvent(datagram.substr(kEventAt), &event) == DecodeResult::Decoded;
  if (!decoded || event.atomId != 110010) {
    if (!reports->front().empty()) abort();
    return 0;
  }
  const AtomReport& report = reports->front().front();
  if (report.elapsedTimestampNs != event.elapsedTimestampNs) abort();
  if (Torv::OS::Telemetry::parseAtom(report.atom).payload != event.fields) abort();
  return 0;
}
