/// \file
/// The host-bundle configuration: the service addresses the host ships in "ZelnoraAdsConfig.plist".
#pragma once

#include <optional>
#include <string>

#include "platform/Bytes.h"
#include "zelnora_core/export.h"

namespace zelnora_core {

struct ZELNORA_CORE_EXPORT ZAPIConfig {
  std::string initConfigUrl;  ///< "INIT_CONFIG": configuration URL template, "{key}" = app key
  std::string apiBaseUrl;     ///< "API_BASE_URL"
  std::string vqxBaseUrl;     ///< "VQX_BASE_URL": push gateway

  /// JSON object with the keys "initConfigUrl", "apiBaseUrl", "vqxBaseUrl" (all required strings).
  platform::Bytes toJson() const;
  static std::optional<ZAPIConfig> fromJson(const platform::Bytes& json);

  bool operator==(const ZAPIConfig&) const = default;
};

}  // namespace zelnora_core
