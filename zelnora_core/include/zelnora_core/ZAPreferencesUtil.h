/// \file
/// The application-group preferences suite shared by the host application and its notification
/// service extension. The only code that touches the suite. Every operation may be called from any
/// thread; none throws: a failed read is absent, a failed write does nothing.
///
/// \code
/// using zelnora_core::ZAPreferencesUtil;
/// if (auto config = ZAPreferencesUtil::getSdkConfig(); config && config->kill.value_or(false)) {
///   ZAPreferencesUtil::deleteConfig();  // lifts a stored kill switch before the next start-up
/// }
/// \endcode
#pragma once

#include <map>
#include <optional>
#include <string>

#include "zelnora_core/ZAConfig.h"
#include "zelnora_core/ZAPIConfig.h"
#include "zelnora_core/ZAUserDataCache.h"
#include "zelnora_core/export.h"

namespace zelnora_core {

class ZELNORA_CORE_EXPORT ZAPreferencesUtil {
 public:
  ZAPreferencesUtil() = delete;

  /// "group." + main bundle identifier without ".ZelnoraAdsNotificationService" + ".za", computed
  /// once per process.
  static const std::string& appGroupSuiteName();

  static void saveConfig(const ZAConfig& config);
  static std::optional<ZAConfig> getSdkConfig();
  static void deleteConfig();

  static void saveApiConfig(const ZAPIConfig& apiConfig);
  static std::optional<ZAPIConfig> getApiConfig();

  /// Stores the user id with the advertising identifier (prints "Error getting adId" when tracking
  /// is off, and stores the record without it).
  static void saveUserData(const std::string& userId);
  static std::optional<ZAUserDataCache> getUserData();

  static std::optional<std::string> getAdId();

  static void saveCustomHeaders(const std::map<std::string, std::string>& headers);
  static std::optional<std::map<std::string, std::string>> getCustomHeaders();
  static void removeCustomHeaders();
};

}  // namespace zelnora_core
