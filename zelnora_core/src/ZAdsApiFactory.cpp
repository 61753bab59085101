#include "zelnora_core/ZAdsApiFactory.h"

#include <utility>

#include "zelnora_core/APIService.h"

namespace zelnora_core {

void ZAdsApiFactory::sendAppTracking(const APIRequest& request, TrackingCompletion completion) {
  APIService::shared().request(request, [completion = std::move(completion)](
                                            const std::optional<platform::Bytes>& /*unused*/,
                                            std::optional<platform::HTTPURLResponse> response,
                                            std::optional<platform::Error> error) {
    if (completion) completion(std::move(response), std::move(error));
  });
}

}  // namespace zelnora_core
