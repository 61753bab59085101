#include "zelnora_core/ZACoreApiFactory.h"

namespace zelnora_core {

APIRequest ZACoreApiFactory::sendAppTrackerRequest(const ZAReportRequest& contextInfo) {
  return APIRequest(APIEndpoint::sendAppTracking, HTTPMethod::post, std::nullopt, std::nullopt,
                    std::nullopt, contextInfo.toJson());
}

}  // namespace zelnora_core
