#pragma once

#include <utility>

#include "stats/LibstatsdWrapper.h"

namespace Torv::OS::Diagnostics {

// The wrapper over the platform's statsd. Thread-safe, as StatsdCollection is.
class DefaultlibstatsdWrapper : public LibstatsdWrapper {
 public:
  explicit DefaultlibstatsdWrapper(libstatsd::StatsdCollection collection)
      : mCollection(std::move(collection)) {}

  std::variant<std::vector<ApplicationState>, libstatsd::Error> fetchReports() override;

 private:
  libstatsd::StatsdCollection mCollection;
};

}  // namespace Torv::OS::Diagnostics
