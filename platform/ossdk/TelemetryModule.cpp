// The module's telemetry: each event becomes a line of the runtime directory's telemetry log.
#include <array>
#include <chrono>
#include <memory>
#include <string>
#include <string_view>

#include <json/writer.h>
#include <ossdk/UnifiedTelemetry.h>

#include "EntryPoint.h"
#include "ossdkhost/TelemetryLog.h"
#include "runtime/RuntimeDirectory.h"

namespace v5 = OSSDK::UnifiedTelemetry::v5;

namespace {

// Never destroyed: threads may report until the process is gone.
platform::TelemetryLog& telemetryLog() {
  static auto& log = *std::make_unique<platform::TelemetryLog>().release();
  return log;
}

int64_t wallClockMs() {
  using namespace std::chrono;
  return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

constexpr std::array<bool, 256> kPlainCharacters = [] {
  std::array<bool, 256> plain{};
  for (size_t c = ' '; c <= '~'; ++c) plain[c] = c != '"' && c != '\\';
  return plain;
}();

bool needsNoEscape(std::string_view text) {
  bool plain = true;
  for (const char c : text) plain &= kPlainCharacters[static_cast<unsigned char>(c)];
  return plain;
}

void appendQuoted(std::string& line, std::string_view text) {
  if (needsNoEscape(text)) {
    line += '"';
    line += text;
    line += '"';
    return;
  }
  static const Json::StreamWriterBuilder builder = [] {
    Json::StreamWriterBuilder compact;
    compact["indentation"] = "";
    return compact;
  }();
  line += Json::writeString(builder, Json::Value(text.data(), text.data() + text.size()));
}

class TelemetryEvent final : public v5::ITelemetryEvent {
 public:
  explicit TelemetryEvent(OSSDK::String name) {
    mLine.reserve(512);
    mLine += "{\"time_ms\":";
    mLine += std::to_string(wallClockMs());
    setString("event", name);
  }

  void setString(OSSDK::String key, OSSDK::String value) override {
    appendKey(key);
    appendQuoted(mLine, value.view());
  }

  void setInteger(OSSDK::String key, int64_t value) override {
    appendKey(key);
    mLine += std::to_string(value);
  }

  void close() override {
    if (mClosed) return;
    mLine += "}\n";
    mClosed = true;
  }

  bool isClosed() const { return mClosed; }
  const std::string& line() const { return mLine; }

 private:
  void appendKey(OSSDK::String key) {
    mLine += ',';
    appendQuoted(mLine, key.view());
    mLine += ':';
  }

  std::string mLine;
  bool mClosed = false;
};

class TelemetryHandler final : public v5::ITelemetryHandler {
 public:
  v5::ITelemetryEvent* createTelemetryEvent(OSSDK::String name) override {
    if (name.size == 0) return nullptr;
    return std::make_unique<TelemetryEvent>(name).release();
  }

  int record(v5::ITelemetryEvent* event, bool flush) override {
    if (event == nullptr) return 0;
    const auto& closed = static_cast<const TelemetryEvent&>(*event);
    if (!closed.isClosed()) return 0;
    const bool written = telemetryLog().append(platform::runtimeDirectory(), closed.line(), flush);
    return written ? v5::kRecorded : 0;
  }
};

}  // namespace

OSSDK_ENTRY_POINT v5::ITelemetryHandler* createTelemetryHandler(int version) {
  if (version != v5::kVersion) return nullptr;
  return std::make_unique<TelemetryHandler>().release();
}

OSSDK_ENTRY_POINT void destroyTelemetryHandler(int version, v5::ITelemetryHandler* handler) {
  if (version != v5::kVersion) return;
  std::unique_ptr<TelemetryHandler>(static_cast<TelemetryHandler*>(handler)).reset();
}

OSSDK_ENTRY_POINT void destroyTelemetryEvent(int version, v5::ITelemetryEvent* event) {
  if (version != v5::kVersion) return;
  std::unique_ptr<TelemetryEvent>(static_cast<TelemetryEvent*>(event)).reset();
}
