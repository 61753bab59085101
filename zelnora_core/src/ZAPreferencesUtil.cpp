#include "zelnora_core/ZAPreferencesUtil.h"

#include "HostText.h"
#include "PreferencesKeys.h"
#include "TextUtil.h"
#include "platform/Services.h"
#include "platform/internal/ThreadAnnotations.h"

namespace zelnora_core {
namespace detail {

std::string suiteNameFor(const std::optional<std::string>& bundleIdentifier) {
  return "group." +
         (bundleIdentifier ? hostIdentifier(*bundleIdentifier)
                           : std::string(kFallbackOrganizationIdentifier)) +
         ".za";
}

}  // namespace detail

namespace {

// Every operation asks the store for the suite anew; the store keeps the connection.
std::shared_ptr<platform::UserDefaultsSuite> openSuite() {
  return platform::userDefaults().suite(ZAPreferencesUtil::appGroupSuiteName());
}

std::optional<platform::Bytes> readBytes(const char* key) {
  auto suite = openSuite();
  if (!suite) return std::nullopt;
  auto value = suite->object(key);
  if (!value || value->data() == nullptr) return std::nullopt;
  return *value->data();
}

// The last bytes of one record type and what they decoded to: every report reads the same stored
// records, and decoding them again cost more than comparing a few hundred bytes.
template <typename Record>
class RememberedDecoding {
 public:
  std::optional<Record> decode(const platform::Bytes& bytes) {
    {
      platform::MutexLock lock(mutex_);
      if (bytes_ && *bytes_ == bytes) return record_;
    }
    std::optional<Record> record = Record::fromJson(bytes);
    platform::MutexLock lock(mutex_);
    bytes_ = bytes;
    record_ = record;
    return record;
  }

 private:
  platform::Mutex mutex_;
  std::optional<platform::Bytes> bytes_ ZELNORA_GUARDED_BY(mutex_);
  std::optional<Record> record_ ZELNORA_GUARDED_BY(mutex_);
};

template <typename Record>
std::optional<Record> readRecord(const char* key) {
  auto bytes = readBytes(key);
  if (!bytes) return std::nullopt;
  static RememberedDecoding<Record>* const remembered = new RememberedDecoding<Record>();
  return remembered->decode(*bytes);
}

void store(const char* key, const platform::PropertyValue& value) {
  if (auto suite = openSuite()) suite->set(key, value);
}

void removeKey(const char* key) {
  if (auto suite = openSuite()) suite->remove(key);
}

}  // namespace

const std::string& ZAPreferencesUtil::appGroupSuiteName() {
  static const std::string name = detail::suiteNameFor(platform::mainBundle().bundleIdentifier());
  return name;
}

void ZAPreferencesUtil::saveConfig(const ZAConfig& config) {
  store(detail::kConfigKey, config.toJson());
}

std::optional<ZAConfig> ZAPreferencesUtil::getSdkConfig() {
  return readRecord<ZAConfig>(detail::kConfigKey);
}

void ZAPreferencesUtil::deleteConfig() { removeKey(detail::kConfigKey); }

void ZAPreferencesUtil::saveApiConfig(const ZAPIConfig& apiConfig) {
  store(detail::kApiConfigKey, apiConfig.toJson());
}

std::optional<ZAPIConfig> ZAPreferencesUtil::getApiConfig() {
  return readRecord<ZAPIConfig>(detail::kApiConfigKey);
}

void ZAPreferencesUtil::saveUserData(const std::string& userId) {
  ZAUserDataCache record{detail::hostText(userId), std::nullopt};
  auto& advertising = platform::advertisingIdentifierManager();
  if (advertising.isAdvertisingTrackingEnabled()) {
    record.advertisingId = advertising.advertisingIdentifier();
  } else {
    platform::printLine("Error getting adId");
  }
  store(detail::kUserDataKey, record.toJson());
}

std::optional<ZAUserDataCache> ZAPreferencesUtil::getUserData() {
  return readRecord<ZAUserDataCache>(detail::kUserDataKey);
}

std::optional<std::string> ZAPreferencesUtil::getAdId() {
  auto suite = openSuite();
  if (!suite) return std::nullopt;
  auto value = suite->object(detail::kAdIdKey);
  if (!value || value->string() == nullptr) return std::nullopt;
  return *value->string();
}

void ZAPreferencesUtil::saveCustomHeaders(const std::map<std::string, std::string>& headers) {
  store(detail::kCustomHeadersKey,
        platform::makeStringDictionary(detail::sendableHeaders(headers)));
}

std::optional<std::map<std::string, std::string>> ZAPreferencesUtil::getCustomHeaders() {
  auto suite = openSuite();
  if (!suite) return std::nullopt;
  auto value = suite->object(detail::kCustomHeadersKey);
  if (!value) return std::nullopt;
  return platform::asStringDictionary(*value);
}

void ZAPreferencesUtil::removeCustomHeaders() { removeKey(detail::kCustomHeadersKey); }

}  // namespace zelnora_core
