/// \file
/// The body of a report: {"events":[{...}]}.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/Bytes.h"
#include "zelnora_core/export.h"

namespace zelnora_core {

struct ZELNORA_CORE_EXPORT ZAReportRequest {
  std::vector<std::map<std::string, std::string>> events;

  platform::Bytes toJson() const;
  static std::optional<ZAReportRequest> fromJson(const platform::Bytes& json);

  bool operator==(const ZAReportRequest&) const = default;
};

}  // namespace zelnora_core
