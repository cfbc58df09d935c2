#include "DefaultlibstatsdWrapper.h"

#include "AtomDecoder.h"

namespace Torv::OS::Diagnostics {

std::variant<std::vector<ApplicationState>, libstatsd::Error> DefaultlibstatsdWrapper::fetchReports() {
  auto fetched = mCollection.fetchReportsBlocked();
  if (auto* error = std::get_if<libstatsd::Error>(&fetched)) return std::move(*error);
  return decodeReports(std::move(*std::get_if<std::vector<libstatsd::Report>>(&fetched)));
}

}  // namespace Torv::OS::Diagnostics
