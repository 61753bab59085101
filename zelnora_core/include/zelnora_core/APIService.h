/// \file
/// Sends one APIRequest with the kit's header set, dumps the exchange, classifies the outcome.
///
/// \code
/// zelnora_core::APIService::shared().request(request, [](auto body, auto response, auto error) {
///   if (error) { /* transport, "Data" -1 or "StatusCode" <status> */ }
/// });
/// \endcode
#pragma once

#include <functional>
#include <optional>

#include "platform/Bytes.h"
#include "platform/Error.h"
#include "platform/UrlSession.h"
#include "zelnora_core/APIRequest.h"
#include "zelnora_core/export.h"

namespace zelnora_core {

using APICompletion = std::function<void(std::optional<platform::Bytes> body,
                                         std::optional<platform::HTTPURLResponse> response,
                                         std::optional<platform::Error> error)>;

class ZELNORA_CORE_EXPORT APIService {
 public:
  static APIService& shared();
  APIService(const APIService&) = delete;
  APIService& operator=(const APIService&) = delete;

  /// Any thread; returns at once. `completion` runs exactly once, on the network thread. A request
  /// whose URL cannot be formed (or has no host) prints "Invalid URL", sends nothing and completes
  /// with NSURLErrorDomain -1000, also on the network thread and never inside this call.
  void request(const APIRequest& request, APICompletion completion);

 private:
  APIService() = default;
};

}  // namespace zelnora_core
