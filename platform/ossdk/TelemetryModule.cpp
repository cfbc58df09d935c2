// The module's telemetry: each event becomes a line of the runtime directory's telemetry log.
#include <array>
#include <charconv>
#include <chrono>
#include <memory>
#include <string>
#include <string_view>

#include <json/writer.h>
#include <ossdk/UnifiedTelemetry.h>

#include "ossdkhost/TelemetryLog.h"
#include "runtime/RuntimeDirectory.h"

namespace v5 = OSSDK::UnifiedTelemetry::v5;

namespace {

int64_t wallClockMs() {
  using namespace std::chrono;
  return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

constexpr auto kPlainCharacters = [] {
  std::array<bool, 256> plain{};
  for (size_t c = ' '; c <= '~'; ++c) plain[c] = c != '"' && c != '\\';
  return plain;
}();

// Every event asks this of some 200 characters, so the loop has no branches.
bool needsNoEscape(std::string_view text) {
  bool isPlain = true;
  for (const char c : text) isPlain &= kPlainCharacters[static_cast<unsigned char>(c)];
  return isPlain;
}

// Writes its line while it is filled: one allocation holds all fields.
class TelemetryEvent final : public v5::ITelemetryEvent {
 public:
  explicit TelemetryEvent(OSSDK::String name) {
    mLine.reserve(512);
    mLine += "{\"time_ms\":";
    appendNumber(wallClockMs());
    setString("event", name);
  }

  void setString(OSSDK::String key, OSSDK::String value) override {
    appendKey(key);
    appendText(value.view());
  }

  void setInteger(OSSDK::String key, int64_t value) override {
    appendKey(key);
    appendNumber(value);
  }

  void close() override {
    if (!isClosed()) mLine += "}\n";
  }

  // Fields hold no newline, because it is escaped.
  bool isClosed() const { return mLine.back() == '\n'; }
  const std::string& line() const { return mLine; }

 private:
  void appendKey(OSSDK::String key) {
    mLine += ',';
    appendText(key.view());
    mLine += ':';
  }

  // The library knows how to escape, but takes longer than the rest of an event, and few texts need it.
  void appendText(std::string_view text) {
    if (needsNoEscape(text)) {
      mLine += '"';
      mLine += text;
      mLine += '"';
    } else {
      mLine +=
          Json::writeString(Json::StreamWriterBuilder(), Json::Value(text.data(), text.data() + text.size()));
    }
  }

  void appendNumber(int64_t value) {
    char digits[20];
    mLine.append(digits, std::to_chars(std::begin(digits), std::end(digits), value).ptr);
  }

  std::string mLine;
};

// Has no state, so all callers share one.
class TelemetryHandler final : public v5::ITelemetryHandler {
 public:
  v5::ITelemetryEvent* createTelemetryEvent(OSSDK::String name) override {
    if (name.size == 0) return nullptr;
    return std::make_unique<TelemetryEvent>(name).release();
  }

  int record(v5::ITelemetryEvent* event, bool flush) override {
    // Never destroyed: threads may report until the process is gone.
    static auto& log = *new platform::TelemetryLog();
    const auto* closed = static_cast<const TelemetryEvent*>(event);
    if (closed == nullptr || !closed->isClosed()) return 0;
    return log.append(platform::runtimeDirectory(), closed->line(), flush) ? v5::kRecorded : 0;
  }
};

}  // namespace

OSSDK_ENTRY_POINT v5::ITelemetryHandler* createTelemetryHandler(int version) {
  static TelemetryHandler handler;
  return version == v5::kVersion ? &handler : nullptr;
}

OSSDK_ENTRY_POINT void destroyTelemetryHandler(int /*version*/, v5::ITelemetryHandler* /*handler*/) {}

OSSDK_ENTRY_POINT void destroyTelemetryEvent(int version, v5::ITelemetryEvent* event) {
  if (version != v5::kVersion) return;
  std::unique_ptr<TelemetryEvent>(static_cast<TelemetryEvent*>(event)).reset();
}
