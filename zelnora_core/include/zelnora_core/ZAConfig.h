/// \file
/// The remote configuration the service hands out per application key, with its kill switch.
#pragma once

#include <optional>
#include <string>

#include "platform/Bytes.h"
#include "zelnora_core/export.h"

namespace zelnora_core {

struct ZELNORA_CORE_EXPORT ZAConfig {
  std::string vqxNotificationType;             ///< JSON "nt", required
  std::string vqxAppId;                        ///< JSON "nai", required
  std::optional<bool> kill;                    ///< JSON "k": true switches the kit off
  std::optional<std::string> zelnoraAdsAppId;  ///< JSON "zelnoraAdsAppId": the channel

  /// Compact JSON; "k" and "zelnoraAdsAppId" are left out when absent, never written as null.
  platform::Bytes toJson() const;
  /// Strict: one object; "nt"/"nai" strings; "k" a Boolean, null or missing; "zelnoraAdsAppId" a
  /// string, null or missing; other members ignored. Absent on any failure.
  static std::optional<ZAConfig> fromJson(const platform::Bytes& json);

  bool operator==(const ZAConfig&) const = default;
};

}  // namespace zelnora_core
