/// \file
/// Engagement reports and the device information map they carry.
///
/// \code
/// zelnora_core::ZAReportHelper::sendReport("app_open", "campaign-7", "push");  // returns at once
/// auto facts = zelnora_core::ZAReportHelper::getDeviceInfoMap();  // facts["model"], ...
/// \endcode
#pragma once

#include <map>
#include <optional>
#include <string>

#include "zelnora_core/export.h"

namespace zelnora_core {

class ZELNORA_CORE_EXPORT ZAReportHelper {
 public:
  /// Up to seventeen device, application and kit facts, read afresh on every call.
  static std::map<std::string, std::string> getDeviceInfoMap();
  /// Posts one report; returns at once. A failed exchange prints its error's description.
  static void sendReport(const std::optional<std::string>& event = std::nullopt,
                         const std::optional<std::string>& campaignUuid = std::nullopt,
                         const std::optional<std::string>& userKeyType = std::nullopt);
};

}  // namespace zelnora_core
