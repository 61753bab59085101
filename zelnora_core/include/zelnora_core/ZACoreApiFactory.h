// Turns a report into the request record for the app-tracking endpoint.
#pragma once

#include "zelnora_core/APIRequest.h"
#include "zelnora_core/ZAReportRequest.h"

namespace zelnora_core {

class ZACoreApiFactory {
 public:
  static APIRequest sendAppTrackerRequest(const ZAReportRequest& contextInfo);
};

}  // namespace zelnora_core
