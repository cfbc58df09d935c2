#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "service/Observer.h"

namespace Torv::OS::Diagnostics {

// A base for whoever tells observers of events. It shares them, keeps their order, and lets go of them when
// it is destroyed. The list never changes, so it is read without a lock.
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
