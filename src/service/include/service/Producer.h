#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "service/Observer.h"

namespace Torv::OS::Diagnostics {

// Base of a class that tells observers about events. It shares ownership of the observers, keeps their order,
// and releases them when it is destroyed. The list never changes, so reading it needs no lock.
class Producer {
 public:
  explicit Producer(std::vector<std::shared_ptr<Observer>> observers) : mObservers(std::move(observers)) {}
  virtual ~Producer() = default;

 protected:
  const std::vector<std::shared_ptr<Observer>>& observers() const { return mObservers; }

 private:
  const std::vector<std::shared_ptr<Observer>> mObservers;
};

}  // namespace Torv::OS::Diagnostics
