/// \file
/// Sends an app-tracking request and hands back only the response and the error.
#pragma once

#include <functional>
#include <optional>

#include "platform/Error.h"
#include "platform/UrlSession.h"
#include "zelnora_core/APIRequest.h"
#include "zelnora_core/export.h"

namespace zelnora_core {

using TrackingCompletion = std::function<void(std::optional<platform::HTTPURLResponse> response,
                                              std::optional<platform::Error> error)>;

class ZELNORA_CORE_EXPORT ZAdsApiFactory {
 public:
  void sendAppTracking(const APIRequest& request, TrackingCompletion completion);
};

}  // namespace zelnora_core
