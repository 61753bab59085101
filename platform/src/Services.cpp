#include "platform/Services.h"

#include <atomic>

#include "LinuxProviders.h"

namespace platform {
namespace {
std::atomic<const Services*> installed{nullptr};
}  // namespace

const Services& defaultServices() {
  namespace lp = linux_provider;
  static const Services defaults{
      &lp::standardOutput(),     &lp::mainBundle(),        &lp::kitBundle(),
      &lp::propertyListReader(), &lp::userDefaultsStore(), &lp::urlSession(),
      &lp::currentDevice(),      &lp::mainScreen(),        &lp::processInfo(),
      &lp::systemInfo(),         &lp::telephony(),         &lp::locationServices(),
      &lp::advertising(),        &lp::systemClock(),       &lp::reportOutboxStore(),
  };
  return defaults;
}

const Services& services() {
  const Services* current = installed.load(std::memory_order_acquire);
  return current != nullptr ? *current : defaultServices();
}

namespace internal {
void installServices(const Services* services) {
  installed.store(services, std::memory_order_release);
}
}  // namespace internal

}  // namespace platform
