// Internal: the pure halves of APIService — turning a request record into the platform request
// with the kit's header set, and classifying a finished exchange into the completion's arguments.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>

#include "platform/Error.h"
#include "platform/UrlSession.h"
#include "zelnora_core/APIRequest.h"
#include "zelnora_core/APIService.h"
#include "zelnora_core/ZAConfig.h"

namespace zelnora_core::detail {

// Error given to the completion when no URL (or no URL with a host) can be formed: the phone's
// "bad URL" transport error, domain "NSURLErrorDomain", code -1000, without a description.
platform::Error invalidUrlError();

// The request to send to `url`: 60 s time-out, the method's raw value, then added in order
// "Content-Type", "Accept", "Content-Length", "Host", "X-ZELNORA-CHANNEL-UUID" (when the config
// has a channel) and the custom headers (add semantics, so a custom "Accept" joins "*/*,value",
// a custom "Host" "host,value"). "Host" brackets an IPv6 literal. Fields that cannot be sent
// safely (see isSendableHeaderField) are left out. The record's own `headers` are never read.
// Absent when the URL has no host.
std::optional<platform::URLRequest> makeURLRequest(
    const APIRequest& request, const platform::Url& url, const std::optional<ZAConfig>& config,
    const std::optional<std::map<std::string, std::string>>& customHeaders);

// What the completion receives for a finished exchange: transport error as it is; no body ->
// "Data" -1; 2xx -> (body, response); otherwise "StatusCode" with the status (or -1 without an
// HTTP response).
struct Outcome {
  std::optional<platform::Bytes> body;
  std::optional<platform::HTTPURLResponse> response;
  std::optional<platform::Error> error;
};
Outcome classifyOutcome(std::optional<platform::Bytes> body,
                        std::optional<platform::HTTPURLResponse> response,
                        std::optional<platform::Error> error);

// One finished exchange: the outcome the public completion receives, and the HTTP answer as it
// came, kept even when the outcome is a failure (its "Retry-After" says when to try again).
struct Exchange {
  Outcome outcome;
  std::optional<platform::HTTPURLResponse> answer;
};
using ExchangeCompletion = std::function<void(Exchange exchange)>;

// The one exchange step of the kit: forms the request (see makeURLRequest), dumps it and its
// answer, classifies the outcome, announces it to the observer, then runs `done` once on the
// network thread. A request that cannot be formed prints "Invalid URL" and completes with
// invalidUrlError(), on the network thread too. Any thread; returns at once.
void exchange(const APIRequest& request, ExchangeCompletion done);

// Called on the network thread with every finished exchange before its own completion runs. Set
// it once, before the exchanges it should see; never null after that.
using ExchangeObserver = void (*)(const Exchange& exchange);
void setExchangeObserver(ExchangeObserver observer);

}  // namespace zelnora_core::detail
