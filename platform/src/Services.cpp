#include "platform/Services.h"

#include <atomic>

#include "LinuxProviders.h"
#include "platform/Providers.h"
#include "platform/internal/ThreadAnnotations.h"

namespace platform {
namespace {

// Both are constant-initialised, so hosts may install providers from static initialisers.
constinit Mutex resolveMutex;
std::atomic<const Services*> current{nullptr};  // null until the first use

// Never freed: the background thread may use providers during exit.
Providers* hostProviders ZELNORA_GUARDED_BY(resolveMutex) = nullptr;
const Services* resolved ZELNORA_GUARDED_BY(resolveMutex) = nullptr;  // fixed at the first use

template <typename Provider>
Provider* orDefault(const std::shared_ptr<Provider>& hosts, Provider& (*linuxDefault)()) {
  return hosts ? hosts.get() : &linuxDefault();
}

// Creates only the Linux providers the host left out.
const Services* withDefaultsFor(const Providers& p) {
  namespace lp = linux_provider;
  return new Services{
      orDefault(p.console, lp::standardOutput),
      orDefault(p.mainBundle, lp::mainBundle),
      orDefault(p.kitBundle, lp::kitBundle),
      orDefault(p.propertyLists, lp::propertyListReader),
      orDefault(p.userDefaults, lp::userDefaultsStore),
      orDefault(p.urlSession, lp::urlSession),
      orDefault(p.device, lp::currentDevice),
      orDefault(p.screen, lp::mainScreen),
      orDefault(p.processInfo, lp::processInfo),
      orDefault(p.system, lp::systemInfo),
      orDefault(p.telephony, lp::telephony),
      orDefault(p.location, lp::locationServices),
      orDefault(p.advertising, lp::advertising),
      orDefault(p.clock, lp::systemClock),
      orDefault(p.reportOutboxes, lp::reportOutboxStore),
  };
}

// Requires resolveMutex.
const Services& resolveLocked() ZELNORA_REQUIRES(resolveMutex) {
  if (resolved == nullptr) {
    resolved = hostProviders != nullptr ? withDefaultsFor(*hostProviders) : &defaultServices();
  }
  return *resolved;
}

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
  if (const Services* installed = current.load(std::memory_order_acquire)) return *installed;
  MutexLock lock(resolveMutex);
  const Services& base = resolveLocked();
  const Services* none = nullptr;
  current.compare_exchange_strong(none, &base, std::memory_order_acq_rel);
  return *current.load(std::memory_order_acquire);
}

bool installProviders(Providers providers) noexcept {
  MutexLock lock(resolveMutex);
  if (resolved != nullptr) return false;
  try {
    if (hostProviders == nullptr) hostProviders = new Providers;
  } catch (...) {
    return false;
  }
  *hostProviders = std::move(providers);
  return true;
}

namespace internal {
void installServices(const Services* services) {
  MutexLock lock(resolveMutex);
  const Services& base = resolveLocked();
  current.store(services != nullptr ? services : &base, std::memory_order_release);
}
}  // namespace internal

}  // namespace platform
