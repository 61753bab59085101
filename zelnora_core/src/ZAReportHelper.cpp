#include "zelnora_core/ZAReportHelper.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <utility>

#include "DeviceCatalog/Device.h"
#include "DurableReports.h"
#include "HostText.h"
#include "ReportDetail.h"
#include "TextUtil.h"
#include "platform/Console.h"
#include "platform/Services.h"
#include "zelnora_core/ZACoreApiFactory.h"
#include "zelnora_core/ZAPreferencesUtil.h"
#include "zelnora_core/ZAReportRequest.h"
#include "zelnora_core/ZAdsApiFactory.h"

namespace zelnora_core {
namespace {

using InfoMap = std::map<std::string, std::string>;

void setIfPresent(InfoMap& map, const char* key, std::optional<std::string> value) {
  if (value) map.insert_or_assign(key, std::move(*value));
}

std::optional<std::string> hostShortVersion() {
  std::optional<platform::PropertyDictionary> info = platform::mainBundle().infoDictionary();
  if (!info || info->empty()) return std::nullopt;
  auto entry = info->find("CFBundleShortVersionString");
  if (entry == info->end() || entry->second.string() == nullptr) return std::nullopt;
  return *entry->second.string();
}

std::optional<std::string> kitInfoString(std::string_view key) {
  std::optional<platform::PropertyValue> value =
      platform::kitBundle().objectForInfoDictionaryKey(key);
  if (!value || value->string() == nullptr) return std::nullopt;
  return *value->string();
}

std::optional<std::string> sdkVersion() {
  std::optional<std::string> shortVersion = kitInfoString("CFBundleShortVersionString");
  if (!shortVersion) return std::nullopt;
  std::optional<std::string> build = kitInfoString("CFBundleVersion");
  if (!build) return std::nullopt;
  return *shortVersion + "(" + *build + ")";
}

// Only the first provider counts, even when a later one has a carrier name.
std::optional<std::string> firstCarrierName() {
  auto providers = platform::telephony().serviceSubscriberCellularProviders();
  if (!providers || providers->empty()) return std::nullopt;
  return providers->front().second.carrierName;
}

void setDeviceFacts(InfoMap& map) {
  map.insert_or_assign("hardware",
                       std::string(DeviceCatalog::Device::current().cpu().description()));
  map.insert_or_assign("manufacturer", "Apple");
  map.insert_or_assign("model", DeviceCatalog::Device::current().safeDescription());
  setIfPresent(map, "product", DeviceCatalog::Device::current().localizedModel());
  setIfPresent(map, "osVersion", DeviceCatalog::Device::current().systemVersion());
  setIfPresent(map, "os", DeviceCatalog::Device::current().systemName());
}

void setLocation(InfoMap& map) {
  std::unique_ptr<platform::LocationManager> manager =
      platform::locationServices().makeLocationManager();
  std::optional<platform::Coordinate> fix = manager ? manager->location() : std::nullopt;
  if (!fix) return;
  map.insert_or_assign("lat", detail::fixedSixDecimals(fix->latitude));
  map.insert_or_assign("long", detail::fixedSixDecimals(fix->longitude));
}

bool isHexDigit(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

}  // namespace

namespace detail {

std::optional<std::string> eventDateText(double secondsSince1970) {
  const double milliseconds = std::round(secondsSince1970 * 1000.0);  // halves away from zero
  constexpr double kTwoToThe63 = 9223372036854775808.0;
  if (!std::isfinite(milliseconds) || milliseconds >= kTwoToThe63 || milliseconds < -kTwoToThe63) {
    return std::nullopt;
  }
  return std::to_string(static_cast<std::int64_t>(milliseconds));
}

std::string fixedSixDecimals(double value) {
  std::array<char, 400> buffer{};  // enough for the widest double in fixed notation
  auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value,
                              std::chars_format::fixed, 6);
  return std::string(buffer.data(), result.ptr);
}

std::optional<std::string> canonicalUuid(std::string_view text) {
  if (text.size() != 36) return std::nullopt;
  std::string out(text);
  for (std::size_t i = 0; i < out.size(); ++i) {
    const bool hyphenPlace = i == 8 || i == 13 || i == 18 || i == 23;
    if (hyphenPlace != (out[i] == '-')) return std::nullopt;
    if (hyphenPlace) continue;
    if (!isHexDigit(out[i])) return std::nullopt;
    if (out[i] >= 'a') out[i] = static_cast<char>(out[i] - 'a' + 'A');
  }
  return out;
}

InfoMap deviceInfoMap(const std::optional<ZAUserDataCache>& user) {
  InfoMap map;
  if (auto vendorId = platform::currentDevice().identifierForVendor()) {
    setIfPresent(map, "deviceId", canonicalUuid(*vendorId));
  }
  setIfPresent(map, "appVersion", hostShortVersion());
  if (auto identifier = platform::mainBundle().bundleIdentifier()) {
    map.insert_or_assign("appId", detail::hostIdentifier(*identifier));
  }
  setIfPresent(map, "sdkVersion", sdkVersion());
  map.insert_or_assign("brand", "Apple");
  setDeviceFacts(map);
  setIfPresent(map, "eventDate", eventDateText(platform::clock().timeIntervalSince1970()));
  setIfPresent(map, "carrier", firstCarrierName());
  if (auto battery = DeviceCatalog::Device::current().batteryLevel()) {
    map.insert_or_assign("battery", std::to_string(*battery));
  }
  setLocation(map);
  if (user && user->advertisingId) map.insert_or_assign("adId", *user->advertisingId);
  return map;
}

}  // namespace detail

std::map<std::string, std::string> ZAReportHelper::getDeviceInfoMap() {
  return detail::deviceInfoMap(ZAPreferencesUtil::getUserData());
}

void ZAReportHelper::sendReport(const std::optional<std::string>& event,
                                const std::optional<std::string>& campaignUuid,
                                const std::optional<std::string>& userKeyType) {
  std::optional<ZAUserDataCache> user = ZAPreferencesUtil::getUserData();
  InfoMap eventMap = detail::deviceInfoMap(user);
  if (user) eventMap.insert_or_assign("userId", std::move(user->userId));
  setIfPresent(eventMap, "event", detail::hostText(event));
  setIfPresent(eventMap, "t", detail::hostText(userKeyType));
  setIfPresent(eventMap, "campaignUuid", detail::hostText(campaignUuid));

  if (detail::DurableReports::shared().isEnabled()) {
    // The event's JSON is what the outbox keeps and what batches are framed from.
    detail::DurableReports::shared().send(platform::toBytes(detail::eventJson(eventMap)));
    return;
  }
  ZAReportRequest report;
  report.events.push_back(std::move(eventMap));
  ZAdsApiFactory().sendAppTracking(ZACoreApiFactory::sendAppTrackerRequest(report),
                                   [](const std::optional<platform::HTTPURLResponse>& /*unused*/,
                                      const std::optional<platform::Error>& error) {
                                     if (error) platform::printLine(error->localizedDescription());
                                   });
}

}  // namespace zelnora_core
