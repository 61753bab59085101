// The test seam: installs fakes for some platform services for the life of a scope, then restores
// what was in force before. It edits the same table that the host's providers (Providers.h) and
// the Linux defaults fill, so what it leaves unchanged is what a host would run with. Install
// before starting threads that use the kit; uninstall after they have finished (wait for the URL
// session to go idle).
#pragma once

#include <functional>

#include "platform/Services.h"

namespace platform::testing {

class ScopedServices {
 public:
  // `change` edits a copy of the services in force; the copy is installed.
  explicit ScopedServices(const std::function<void(Services&)>& change)
      : previous_(&services()), mine_(services()) {
    change(mine_);
    internal::installServices(&mine_);
  }
  ~ScopedServices() { internal::installServices(previous_); }
  ScopedServices(const ScopedServices&) = delete;
  ScopedServices& operator=(const ScopedServices&) = delete;

 private:
  const Services* previous_;
  Services mine_;
};

}  // namespace platform::testing
