/// \file
/// Turns a report into the request record for the app-tracking endpoint.
#pragma once

#include "zelnora_core/APIRequest.h"
#include "zelnora_core/ZAReportRequest.h"
#include "zelnora_core/export.h"

namespace zelnora_core {

class ZELNORA_CORE_EXPORT ZACoreApiFactory {
 public:
  static APIRequest sendAppTrackerRequest(const ZAReportRequest& contextInfo);
};

}  // namespace zelnora_core
