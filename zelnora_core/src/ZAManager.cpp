#include "zelnora_core/ZAManager.h"

#include "DurableReports.h"
#include "HostBundleConfig.h"
#include "TextUtil.h"
#include "platform/Services.h"
#include "platform/internal/ThreadAnnotations.h"
#include "zelnora_core/ZAPreferencesUtil.h"

namespace zelnora_core {
namespace {

std::optional<platform::Url> configurationUrl(const ZAPIConfig& apiConfig,
                                              const std::string& appKey) {
  return platform::Url::parse(detail::replacingAll(apiConfig.initConfigUrl, "{key}", appKey));
}

platform::URLRequest configurationRequest(platform::Url url) {
  platform::URLRequest request(std::move(url), platform::CachePolicy::useProtocolCachePolicy,
                               std::chrono::seconds(60));
  request.httpMethod = "GET";
  request.addValue("application/json", "Accept");
  return request;
}

// The service's kill switch holds the backlog: a switched-off kit does not pour it on the service.
void setDurableReportsSwitch(bool enabled) {
  detail::DurableReports::shared().setEnabled(
      enabled, [] { return ZAManager::sharedInstance().isDisabled(); });
}

}  // namespace

// Never destroyed: completions on the network thread may still reach it while the process exits.
ZAManager& ZAManager::sharedInstance() {
  static ZAManager* const instance = new ZAManager();
  return *instance;
}

constinit const ZAManagerHandle data{};

// The location manager of the last permission request, kept so that its request stands.
struct ZAManager::Location {
  platform::Mutex mutex;
  std::unique_ptr<platform::LocationManager> manager ZELNORA_GUARDED_BY(mutex);
};

ZAManager::ZAManager() : location_(std::make_unique<Location>()) {}
ZAManager::~ZAManager() = default;

bool ZAManager::isInitialized() const { return initialized_.load(); }
bool ZAManager::isDebugMode() const { return debugMode_.load(); }
bool ZAManager::isDisabled() const { return sdkDisabled_.load(); }

void ZAManager::initialize(const std::string& appKey, std::optional<bool> debugMode,
                           std::function<void()> initCompleteCallback) {
  if (initialized_) {
    platform::printLine("Sdk already initialized");
    return;
  }
  debugMode_ = debugMode.value_or(false);
  std::optional<bool> durableReports;
  const ZAPIConfig apiConfig = detail::loadFromBundle(&durableReports);
  if (durableReports) setDurableReportsSwitch(*durableReports);
  auto url = configurationUrl(apiConfig, appKey);
  if (debugMode_) ZAPreferencesUtil::deleteConfig();

  if (auto stored = ZAPreferencesUtil::getSdkConfig()) {
    sdkDisabled_ = stored->kill.value_or(false);
    if (!sdkDisabled_) initialized_ = true;
  }
  if (!url || sdkDisabled_) {
    platform::printLine("Zelnora Ads sdk disabled");
    return;
  }
  // A stored configuration names the channel the backlog is delivered under. Without one (a first
  // start, or debug mode) the backlog waits until the configuration's exchange has ended, so that
  // a configuration it brings names the channel of every batch.
  const bool backlogWaitsForAnswer = !initialized_;
  if (!backlogWaitsForAnswer) detail::DurableReports::shared().flush();

  platform::urlSession().dataTask(
      configurationRequest(*url),
      [this, appKey, backlogWaitsForAnswer, callback = std::move(initCompleteCallback)](
          const std::optional<platform::Bytes>& body,
          const std::optional<platform::URLResponse>& response,
          const std::optional<platform::Error>& /*transport error: never examined*/) {
        handleConfigurationResponse(appKey, callback, platform::asHTTPURLResponse(response), body);
        if (backlogWaitsForAnswer) detail::DurableReports::shared().flush();
      });
}

void ZAManager::handleConfigurationResponse(const std::string& appKey,
                                            const std::function<void()>& callback,
                                            const std::optional<platform::HTTPURLResponse>& http,
                                            const std::optional<platform::Bytes>& body) {
  // A transport failure or a non-HTTP answer ends here without a word.
  if (!http) return;
  if (http->statusCode < 200 || http->statusCode > 299) {
    if (http->statusCode == 401) {
      platform::printLine("Application key invalid");
    } else {
      ZAPreferencesUtil::deleteConfig();
      platform::printLine("Error getting configuration");
    }
    return;
  }
  if (!body) return;
  auto config = ZAConfig::fromJson(*body);
  if (!config) {
    platform::printLine("Error getting configuration");
    return;
  }
  config->zelnoraAdsAppId = appKey;
  ZAPreferencesUtil::saveConfig(*config);
  initialized_ = true;
  platform::printLine("SDK initialized successfully");
  if (callback) callback();
  detail::DurableReports::shared().noteSuccessfulExchange();
}

void ZAManager::setUserId(const std::string& userId) {
  if (!initialized_) {
    platform::printLine("Sdk was not initialized");
    return;
  }
  ZAPreferencesUtil::saveUserData(userId);
}

void ZAManager::setCustomHeaders(const std::map<std::string, std::string>& headers) {
  ZAPreferencesUtil::saveCustomHeaders(headers);
}

void ZAManager::setDurableReports(bool enabled) {
  setDurableReportsSwitch(enabled);
  // Opting in on a running kit delivers what earlier runs (or the extension) left behind.
  if (initialized_ && !sdkDisabled_) detail::DurableReports::shared().flush();
}

bool ZAManager::isDurableReports() const { return detail::DurableReports::shared().isEnabled(); }

void ZAManager::requestPermission() {
  if (!initialized_) {
    platform::printLine("Sdk was not initialized");
    return;
  }
  auto manager = platform::locationServices().makeLocationManager();
  platform::MutexLock lock(location_->mutex);
  location_->manager = std::move(manager);
  if (location_->manager) location_->manager->requestAlwaysAuthorization();  // null: no location
}

}  // namespace zelnora_core
