#include "platform/testing/ScopedServices.h"

namespace platform::testing {

ScopedServices::ScopedServices(const std::function<void(Services&)>& change)
    : previous_(&services()), mine_(services()) {
  change(mine_);
  internal::installServices(&mine_);
}

ScopedServices::~ScopedServices() { internal::installServices(previous_); }

}  // namespace platform::testing
