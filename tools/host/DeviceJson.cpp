#include "DeviceJson.h"

#include <charconv>
#include <string_view>
#include <utility>

#include "platform/internal/Json.h"

namespace zelnora_host {
namespace {

using DeviceCatalog::Device;

// The shortest text that reads back as the same double ("4", "6.1", "-1", "19.5").
std::string shortestNumberText(double value) {
  char buffer[32];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  return std::string(buffer, result.ptr);
}

std::string_view caseName(Device::CameraType camera) {
  switch (camera) {
    case Device::CameraType::normal: return "normal";
    case Device::CameraType::wide: return "wide";
    case Device::CameraType::telephoto: return "telephoto";
    case Device::CameraType::ultraWide: return "ultraWide";
  }
  return "normal";
}

std::string camerasJson(const std::vector<Device::CameraType>& cameras) {
  std::string json = "[";
  for (std::size_t index = 0; index < cameras.size(); ++index) {
    if (index > 0) json += ',';
    platform::appendJsonString(json, caseName(cameras[index]));
  }
  return json + "]";
}

std::string screenRatioJson(const Device::ScreenRatio& ratio) {
  return "[" + shortestNumberText(ratio.width) + "," + shortestNumberText(ratio.height) + "]";
}

using Predicate = bool (Device::*)() const;

// In the order the JSON lists them.
constexpr std::pair<std::string_view, Predicate> kPredicates[] = {
    {"isPod", &Device::isPod},
    {"isPhone", &Device::isPhone},
    {"isPad", &Device::isPad},
    {"isSimulator", &Device::isSimulator},
    {"isTouchIDCapable", &Device::isTouchIDCapable},
    {"isFaceIDCapable", &Device::isFaceIDCapable},
    {"hasBiometricSensor", &Device::hasBiometricSensor},
    {"hasSensorHousing", &Device::hasSensorHousing},
    {"hasRoundedDisplayCorners", &Device::hasRoundedDisplayCorners},
    {"has3dTouchSupport", &Device::has3dTouchSupport},
    {"supportsWirelessCharging", &Device::supportsWirelessCharging},
    {"hasLidarSensor", &Device::hasLidarSensor},
    {"hasCamera", &Device::hasCamera},
    {"hasNormalCamera", &Device::hasNormalCamera},
    {"hasWideCamera", &Device::hasWideCamera},
    {"hasTelephotoCamera", &Device::hasTelephotoCamera},
    {"hasUltraWideCamera", &Device::hasUltraWideCamera},
};

}  // namespace

std::string deviceJson(const Device& device) {
  const std::optional<int> ppi = device.ppi();
  platform::JsonObjectWriter writer;
  writer.string("description", device.description())
      .string("safeDescription", device.safeDescription())
      .string("cpu", device.cpu().description())
      .raw("diagonal", shortestNumberText(device.diagonal()))
      .raw("ppi", ppi ? std::to_string(*ppi) : "null")
      .raw("screenRatio", screenRatioJson(device.screenRatio()))
      .raw("cameras", camerasJson(device.cameras()))
      .raw("applePencilSupport", std::to_string(device.applePencilSupport().rawValue()));
  for (const auto& [name, predicate] : kPredicates) writer.boolean(name, (device.*predicate)());
  return std::move(writer).finish();
}

}  // namespace zelnora_host
