#include <sys/mman.h>
#include <unistd.h>

#include <optional>

#include "ChargeFiles.h"
#include "Check.h"

namespace {

constexpr char kSpace[] = " \t\n\v\f\r";
constexpr char kDigits[] = "0123456789";

// What "%ld" reads, from the rules for it rather than by it: empty where the reading needs what is beyond the
// end of the text.
std::optional<long> plainNumber(const std::string& text) {
  size_t start = text.find_first_not_of(kSpace);
  if (start == std::string::npos) return std::nullopt;
  const size_t digits = text[start] == '+' || text[start] == '-' ? start + 1 : start;
  const size_t end = text.find_first_not_of(kDigits, digits);
  if (end == std::string::npos) return std::nullopt;
  if (end == digits) return 0;
  return std::strtol(text.substr(start, end - start).c_str(), nullptr, 10);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // One file for all inputs, as the kernel's is one for all readings.
  static const int descriptor = memfd_create("charge", MFD_CLOEXEC);
  static std::FILE* const file = fdopen(descriptor, "re");
  if (ftruncate(descriptor, 0) != 0 || pwrite(descriptor, data, size, 0) != static_cast<ssize_t>(size)) {
    std::perror("memfd");
    std::abort();
  }
  const std::string text(reinterpret_cast<const char*>(data), size);
  check(Torv::OS::Diagnostics::readNumberFromStart(file) == plainNumber(text), "number");
  return 0;
}
