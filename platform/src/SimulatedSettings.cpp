// What a phone's settings and radios would give, which a Linux box does not have: read from the
// ZELNORA_SIM_* environment variables on every call, so a host can change them while running.
#include <cctype>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "CNumbers.h"
#include "LinuxProviders.h"
#include "VendorIdentifier.h"

namespace platform {
namespace {

// The service identifier the phone gives its first (or only) cellular line.
constexpr const char* kFirstServiceIdentifier = "0000000100000001";

std::optional<std::string> environmentValue(const char* name) {
  const char* value = std::getenv(name);
  if (value == nullptr) return std::nullopt;
  return std::string(value);
}

// "lat,long" in degrees, each a finite number in range.
std::optional<Coordinate> parseLocation(std::string_view text) {
  const std::size_t comma = text.find(',');
  if (comma == std::string::npos) return std::nullopt;
  const std::optional<double> latitude = detail::parseCDecimal(text.substr(0, comma));
  const std::optional<double> longitude = detail::parseCDecimal(text.substr(comma + 1));
  if (!latitude || !longitude || std::fabs(*latitude) > 90 || std::fabs(*longitude) > 180) {
    return std::nullopt;
  }
  return Coordinate{*latitude, *longitude};
}

class SimulatedTelephony final : public Telephony {
 public:
  std::optional<std::vector<std::pair<std::string, Carrier>>> serviceSubscriberCellularProviders()
      override {
    std::optional<std::string> carrier = environmentValue("ZELNORA_SIM_CARRIER");
    if (!carrier) return std::nullopt;
    return std::vector<std::pair<std::string, Carrier>>{
        {kFirstServiceIdentifier, Carrier{carrier}}};
  }
};

class SimulatedLocationManager final : public LocationManager {
 public:
  void requestAlwaysAuthorization() override {}  // nothing to ask on Linux
  std::optional<Coordinate> location() override {
    const std::optional<std::string> text = environmentValue("ZELNORA_SIM_LOCATION");
    return text ? parseLocation(*text) : std::nullopt;
  }
};

class SimulatedLocationServices final : public LocationServices {
 public:
  std::unique_ptr<LocationManager> makeLocationManager() override {
    return std::make_unique<SimulatedLocationManager>();
  }
};

class SimulatedAdvertising final : public AdvertisingIdentifierManager {
 public:
  bool isAdvertisingTrackingEnabled() override { return !identifier().empty(); }
  std::string advertisingIdentifier() override {
    const std::string text = identifier();
    if (text.empty()) return "00000000-0000-0000-0000-000000000000";  // what a disabled phone gives
    return detail::canonicalUuid(text).value_or(upperCase(text));
  }

 private:
  static std::string identifier() {
    return environmentValue("ZELNORA_SIM_ADVERTISING_ID").value_or("");
  }
  static std::string upperCase(std::string text) {
    for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
  }
};

class SystemClock final : public Clock {
 public:
  double timeIntervalSince1970() override {
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration<double>(sinceEpoch).count();
  }
};

}  // namespace

namespace linux_provider {
Telephony& telephony() {
  static SimulatedTelephony telephony;
  return telephony;
}
LocationServices& locationServices() {
  static SimulatedLocationServices services;
  return services;
}
AdvertisingIdentifierManager& advertising() {
  static SimulatedAdvertising advertising;
  return advertising;
}
Clock& systemClock() {
  static SystemClock clock;
  return clock;
}
}  // namespace linux_provider

}  // namespace platform
