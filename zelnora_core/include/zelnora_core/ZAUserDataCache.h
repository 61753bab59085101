/// \file
/// The stored user record: the host's user id and the advertising identifier at the time it was
/// set.
#pragma once

#include <optional>
#include <string>

#include "platform/Bytes.h"
#include "zelnora_core/export.h"

namespace zelnora_core {

struct ZELNORA_CORE_EXPORT ZAUserDataCache {
  std::string userId;                        ///< "userId", required
  std::optional<std::string> advertisingId;  ///< "advertisingId", canonical UUID text

  platform::Bytes toJson() const;
  static std::optional<ZAUserDataCache> fromJson(const platform::Bytes& json);

  bool operator==(const ZAUserDataCache&) const = default;
};

}  // namespace zelnora_core
