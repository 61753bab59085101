#include "DeviceCatalog/BatteryState.h"

#include "platform/Services.h"

namespace DeviceCatalog {

std::string BatteryState::description() const {
  switch (kind_) {
    case Kind::charging:
      return "Battery level: " + std::to_string(level_) + "%, device is plugged in.";
    case Kind::unplugged:
      return "Battery level: " + std::to_string(level_) + "%, device is unplugged.";
    case Kind::full: break;
  }
  return "Battery level: 100 % (Full), device is plugged in.";
}

bool BatteryState::lowPowerMode() const { return platform::processInfo().isLowPowerModeEnabled(); }

}  // namespace DeviceCatalog
