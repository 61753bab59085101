/// \file
/// The platform services the kit uses, and the one place that hands out the current provider of
/// each.
#pragma once

#include <memory>

#include "platform/Bundle.h"
#include "platform/Console.h"
#include "platform/Device.h"
#include "platform/PropertyListReader.h"
#include "platform/ReportOutbox.h"
#include "platform/UrlSession.h"
#include "platform/UserDefaults.h"
#include "platform/export.h"

namespace platform {

/// CoreTelephony: cellular providers, in the platform's own order.
struct ZELNORA_PLATFORM_EXPORT Carrier {
  std::optional<std::string> carrierName;
};
class ZELNORA_PLATFORM_EXPORT Telephony {
 public:
  virtual ~Telephony() = default;
  Telephony() = default;
  Telephony(const Telephony&) = delete;
  Telephony& operator=(const Telephony&) = delete;
  /// Service identifier -> carrier; absent when the device has no provider map.
  virtual std::optional<std::vector<std::pair<std::string, Carrier>>>
  serviceSubscriberCellularProviders() = 0;
};

/// CoreLocation.
struct ZELNORA_PLATFORM_EXPORT Coordinate {
  double latitude = 0, longitude = 0;
};
class ZELNORA_PLATFORM_EXPORT LocationManager {
 public:
  virtual ~LocationManager() = default;
  LocationManager() = default;
  LocationManager(const LocationManager&) = delete;
  LocationManager& operator=(const LocationManager&) = delete;
  /// Asks the user for location access while in use and in the background; returns at once, the
  /// answer arrives later (or never, when the host declares no usage description).
  virtual void requestAlwaysAuthorization() = 0;
  /// The last known fix, absent when there is none.
  virtual std::optional<Coordinate> location() = 0;
};
class ZELNORA_PLATFORM_EXPORT LocationServices {
 public:
  virtual ~LocationServices() = default;
  LocationServices() = default;
  LocationServices(const LocationServices&) = delete;
  LocationServices& operator=(const LocationServices&) = delete;
  /// A new location manager (the phone's plain initialiser), or null on a device without location
  /// services: the kit then reports no position and asks for no permission.
  virtual std::unique_ptr<LocationManager> makeLocationManager() = 0;
};

/// AdSupport.
class ZELNORA_PLATFORM_EXPORT AdvertisingIdentifierManager {
 public:
  virtual ~AdvertisingIdentifierManager() = default;
  AdvertisingIdentifierManager() = default;
  AdvertisingIdentifierManager(const AdvertisingIdentifierManager&) = delete;
  AdvertisingIdentifierManager& operator=(const AdvertisingIdentifierManager&) = delete;
  /// Whether the user lets apps track them (the phone's tracking authorization).
  virtual bool isAdvertisingTrackingEnabled() = 0;
  /// Canonical UUID text (upper-case hex, 8-4-4-4-12).
  virtual std::string advertisingIdentifier() = 0;
};

class ZELNORA_PLATFORM_EXPORT Clock {
 public:
  virtual ~Clock() = default;
  Clock() = default;
  Clock(const Clock&) = delete;
  Clock& operator=(const Clock&) = delete;
  /// Seconds since 1970-01-01 00:00:00 UTC.
  virtual double timeIntervalSince1970() = 0;
};

/// One provider per service. The pointers are never null and the providers live for the process.
struct ZELNORA_PLATFORM_EXPORT Services {
  Console* console;
  MainBundle* mainBundle;
  KitBundle* kitBundle;
  PropertyListReader* propertyLists;
  UserDefaultsStore* userDefaults;
  URLSession* urlSession;
  CurrentDevice* device;
  MainScreen* screen;
  ProcessInfo* processInfo;
  SystemInfo* system;
  Telephony* telephony;
  LocationServices* location;
  AdvertisingIdentifierManager* advertising;
  Clock* clock;
  ReportOutboxStore* reportOutboxes;
};

/// The providers in force: the host's (platform/Providers.h) with the Linux providers for the
/// services it left out, or what a test installed. Any thread. The first call is the kit's first
/// use of its platform: it fixes the host's providers for the life of the process.
ZELNORA_PLATFORM_EXPORT const Services& services();
/// The Linux providers, all of them, created on first use.
ZELNORA_PLATFORM_EXPORT const Services& defaultServices();

/// Shorthands for one provider of `services()`: any thread, never null.
inline Console& console() { return *services().console; }
inline MainBundle& mainBundle() { return *services().mainBundle; }
inline KitBundle& kitBundle() { return *services().kitBundle; }
inline PropertyListReader& propertyLists() { return *services().propertyLists; }
inline UserDefaultsStore& userDefaults() { return *services().userDefaults; }
inline URLSession& urlSession() { return *services().urlSession; }
inline CurrentDevice& currentDevice() { return *services().device; }
inline MainScreen& mainScreen() { return *services().screen; }
inline ProcessInfo& processInfo() { return *services().processInfo; }
inline SystemInfo& systemInfo() { return *services().system; }
inline Telephony& telephony() { return *services().telephony; }
inline LocationServices& locationServices() { return *services().location; }
inline AdvertisingIdentifierManager& advertisingIdentifierManager() {
  return *services().advertising;
}
inline Clock& clock() { return *services().clock; }
inline ReportOutboxStore& reportOutboxes() { return *services().reportOutboxes; }

namespace internal {
/// Installs `services` (owned by the caller, alive until replaced) or, with null, the providers
/// fixed at the first use. Unlike `installProviders` it works at any time, but only when no kit
/// call is in flight; for the testing seam (platform/testing/ScopedServices.h), not for hosts.
ZELNORA_PLATFORM_EXPORT void installServices(const Services* services);
}  // namespace internal

}  // namespace platform
