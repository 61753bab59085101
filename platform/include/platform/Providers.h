/// \file
/// How a host brings its own platform: it hands the kit providers for any subset of the platform
/// services before the kit first uses them; the Linux providers stand in for the rest.
///
///   auto console = std::make_shared<MyJournalConsole>();
///   platform::Providers providers;
///   providers.console = console;
///   providers.location = std::make_shared<MyGpsLocation>();
///   if (!platform::installProviders(std::move(providers))) { /* too late: kit already running */ }
///   zelnora_core::ZAManager::sharedInstance().initialize(key, false, {});
///
/// When. `installProviders` may be called from any thread, also from a static initialiser, any
/// number of times until the kit first uses its platform. That first use is the first call of
/// `platform::services()` or of an accessor built on it (`console()`, `printLine`, ...), which
/// every operation of the kit makes (`initialize`, `sendReport`, `Device.current`, the stores,
/// the factories). Taking `ZAManager::sharedInstance()`, reading the version constants and
/// `setMainBundleDirectory` do not count as use. From the first use on, the providers are fixed
/// for the life of the process: a later `installProviders` changes nothing and returns false.
///
/// Ownership. The kit shares ownership of every provider it accepts and keeps it alive until the
/// process ends; it never destroys an accepted provider, not even at exit, because the URL
/// session's thread may still call the console while static objects are being destroyed. A
/// provider replaced by a later call before the first use is released at once (nothing has used
/// it). A refused set is released when `installProviders` returns.
///
/// Threads. A provider is called on the threads that call the kit and, for the console, the user
/// defaults and the URL session's completions, on the URL session's background thread; calls may
/// be concurrent, so every provider must be safe to call from several threads at once.
///   - console: any thread; one `write` per piece (a whole line or a whole dump). `writeFatal`
///     runs just before the process aborts.
///   - mainBundle, kitBundle, propertyLists: the host's threads calling `initialize` and building
///     reports.
///   - userDefaults (and the suites it opens): the host's threads and the URL session's thread
///     (the start-up handler saves the remote configuration there).
///   - urlSession: `dataTask` on the host's threads and on the URL session's own thread; each
///     completion must run exactly once, never inside `dataTask` (see UrlSession.h).
///   - device, screen, processInfo, system, telephony, location, advertising, clock: the host's
///     threads calling the kit (building reports, `setUserId`, `requestPermission`,
///     `Device.current`). A provider that needs a particular thread (a phone's main thread) must
///     hop there itself and answer synchronously.
///   - reportOutboxes (only with durable reports on): the URL session's thread, which keeps failed
///     reports, and the kit's delivery thread.
/// No provider may throw; a provider that does is a host bug the kit does not catch.
#pragma once

#include <memory>

#include "platform/Services.h"
#include "platform/export.h"

namespace platform {

/// The providers a host brings. A member left null keeps the Linux provider of that service.
struct ZELNORA_PLATFORM_EXPORT Providers {
  std::shared_ptr<Console> console;
  std::shared_ptr<MainBundle> mainBundle;
  std::shared_ptr<KitBundle> kitBundle;
  std::shared_ptr<PropertyListReader> propertyLists;
  std::shared_ptr<UserDefaultsStore> userDefaults;
  std::shared_ptr<URLSession> urlSession;
  std::shared_ptr<CurrentDevice> device;
  std::shared_ptr<MainScreen> screen;
  std::shared_ptr<ProcessInfo> processInfo;
  std::shared_ptr<SystemInfo> system;
  std::shared_ptr<Telephony> telephony;
  std::shared_ptr<LocationServices> location;
  std::shared_ptr<AdvertisingIdentifierManager> advertising;
  std::shared_ptr<Clock> clock;
  std::shared_ptr<ReportOutboxStore> reportOutboxes;
};

/// Installs `providers` in place of any earlier installation, when the kit has not yet used its
/// platform: true. After the first use: false, and nothing changes. Any thread; never throws.
[[nodiscard]] ZELNORA_PLATFORM_EXPORT bool installProviders(Providers providers) noexcept;

}  // namespace platform
