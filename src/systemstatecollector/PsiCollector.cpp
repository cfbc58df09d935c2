#include "PsiCollector.h"

#include <cstdio>
#include <optional>
#include <string>

#include <fmt/format.h>

#include "TextScanner.h"

namespace Torv::OS::Diagnostics {

constexpr SourceInfo kPsiCpu{1, "/proc/pressure/cpu", "psi_cpu_history",
                             "Returns the PSI information by sampling cpu file in /proc/pressure",
                             "PSI cpu Stream is bad"};
constexpr SourceInfo kPsiMemory{2, "/proc/pressure/memory", "psi_memory_history",
                                "Returns the PSI information by sampling memory file in /proc/pressure",
                                "PSI memory Stream is bad"};
constexpr SourceInfo kPsiIo{3, "/proc/pressure/io", "psi_io_history",
                            "Returns the PSI information by sampling io file in /proc/pressure",
                            "PSI io Stream is bad"};

namespace {

// The names of one line's metrics.
template <typename Name>
struct MetricNames {
  Name avg10;
  Name avg60;
  Name avg300;
  Name total;
};

// Nearly every line is of one of these two types. The JSON library does not copy their names.
using ConstantNames = MetricNames<Json::StaticString>;
const ConstantNames kSome{Json::StaticString("some_avg10"), Json::StaticString("some_avg60"),
                          Json::StaticString("some_avg300"), Json::StaticString("some_total")};
const ConstantNames kFull{Json::StaticString("full_avg10"), Json::StaticString("full_avg60"),
                          Json::StaticString("full_avg300"), Json::StaticString("full_total")};

MetricNames<std::string> namesFor(std::string_view type) {
  const auto name = [type](const char* metric) { return fmt::format("{}_{}", type, metric); };
  return {name("avg10"), name("avg60"), name("avg300"), name("total")};
}

template <typename Name>
void writeMetrics(const PsiCollector::PsiLine& line, const MetricNames<Name>& names, Json::Value& out) {
  out[names.avg10] = line.avg10;
  out[names.avg60] = line.avg60;
  out[names.avg300] = line.avg300;
  out[names.total] = Json::Value::UInt64{line.total};
}

bool take(std::string_view& text, std::string_view expected) {
  if (text.substr(0, expected.size()) != expected) return false;
  text.remove_prefix(expected.size());
  return true;
}

// Takes the digits that `text` begins with, appends them to `number` and returns how many there were.
size_t takeDigits(std::string_view& text, uint64_t& number) {
  size_t count = 0;
  for (; count < text.size() && isDigit(text[count]); ++count) {
    number = number * 10 + static_cast<uint64_t>(text[count] - '0');
  }
  text.remove_prefix(count);
  return count;
}

// Takes a number of the kernel's form, "12.34". With at most seven digits, both operands of the division are
// exact, so its result is the nearest float, which is sscanf's result too.
bool takeAverage(std::string_view& text, float& average) {
  constexpr float kPowersOfTen[] = {1, 1e1F, 1e2F, 1e3F, 1e4F, 1e5F, 1e6F};
  constexpr size_t kExactDigits = 7;
  uint64_t number = 0;
  const size_t whole = takeDigits(text, number);
  if (whole == 0 || !take(text, ".")) return false;
  const size_t fraction = takeDigits(text, number);
  if (fraction == 0 || whole + fraction > kExactDigits) return false;
  average = static_cast<float>(number) / kPowersOfTen[fraction];
  return true;
}

// Parses a line of the form that every kernel writes. Returns nullopt for any other.
std::optional<PsiCollector::PsiLine> parseUsualLine(std::string_view line) {
  PsiCollector::PsiLine result;
  if (line.substr(0, 4) != "some" && line.substr(0, 4) != "full") return std::nullopt;
  line.copy(result.type.data(), 4);
  line.remove_prefix(4);
  const bool usual = take(line, " avg10=") && takeAverage(line, result.avg10) &&    //
                     take(line, " avg60=") && takeAverage(line, result.avg60) &&    //
                     take(line, " avg300=") && takeAverage(line, result.avg300) &&  //
                     take(line, " total=");
  if (!usual) return std::nullopt;
  (void)nextNumber(line, result.total);
  return result;
}

}  // namespace

// The usual line has a parser of its own, because with sscanf alone parsing would be a third of a dump's
// cost.
PsiCollector::PsiLine PsiCollector::parseLine(std::string_view line) {
  if (const auto usual = parseUsualLine(line)) return *usual;
  PsiLine result;
  unsigned long total = 0;
  // The number of fields read does not matter: the others keep their values.
  // NOLINTNEXTLINE(cert-err34-c)
  (void)std::sscanf(std::string(line).c_str(), "%4s avg10=%f avg60=%f avg300=%f total=%lu",
                    result.type.data(), &result.avg10, &result.avg60, &result.avg300, &total);
  result.total = total;
  return result;
}

void PsiCollector::extractMetrics(const RawMetric& sample, Json::Value& out) {
  std::string_view text = sample.text;
  std::string_view line;
  while (nextLine(text, line)) {
    if (line.empty()) continue;
    const PsiLine psi = parseLine(line);
    const std::string_view type = psi.type.data();
    if (type == "some") {
      writeMetrics(psi, kSome, out);
    } else if (type == "full") {
      writeMetrics(psi, kFull, out);
    } else {
      writeMetrics(psi, namesFor(type), out);
    }
  }
}

}  // namespace Torv::OS::Diagnostics
