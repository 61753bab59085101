// The inspector's view of the key registry and the outage, and the changes its page posts.
#include <algorithm>
#include <initializer_list>
#include <optional>

#include <nlohmann/json.hpp>

#include "LiveView.h"
#include "ReferenceService.h"

namespace zelnora_tools {
namespace {

using Json = nlohmann::ordered_json;

constexpr long long kMaxSeconds = 86'400;

ServiceAnswer refused(std::string_view message) {
  Json error;
  error["error"] = message;
  return ServiceAnswer{400, error.dump(), "application/json", {}};
}

// The member `name` as a whole number within [low, high]; `fallback` when absent.
std::optional<long long> wholeNumber(const Json& body, const char* name, long long low,
                                     long long high, long long fallback) {
  const auto found = body.find(name);
  if (found == body.end()) return fallback;
  if (!found->is_number_integer()) return std::nullopt;
  const auto value = found->get<long long>();
  if (value < low || value > high) return std::nullopt;
  return value;
}

std::string outOfRange(const char* name, long long low, long long high) {
  return "\"" + std::string(name) + "\" must be a whole number from " + std::to_string(low) +
         " to " + std::to_string(high);
}

// The first member of `body` outside `known`, so that a misspelt change is refused, not ignored.
std::optional<std::string> unknownMember(const Json& body,
                                         std::initializer_list<std::string_view> known) {
  for (const auto& [name, value] : body.items()) {
    if (std::find(known.begin(), known.end(), name) == known.end()) return name;
  }
  return std::nullopt;
}

// The key's answer body with its kill switch "k" set to `on`; absent when it is not an object.
std::optional<std::string> withKillSwitch(const std::string& body, bool on) {
  Json members = Json::parse(body, nullptr, false);
  if (!members.is_object()) return std::nullopt;
  members["k"] = on;
  return members.dump();
}

}  // namespace

std::string Inspector::stateJson() const {
  // Read before the state itself, so that a state never carries a newer number than its contents:
  // a POST's answer can reach the page after a newer state from the event stream.
  std::uint64_t version = 0;
  {
    platform::MutexLock lock(mutex_);
    version = stateVersion_;
  }
  Json keys = Json::object();
  for (const auto& [key, answer] : service_.keyAnswers()) {
    keys[key] = {{"status", answer.status}, {"body", answer.body}};
  }
  const Outage outage = service_.outage();
  Json state;
  state["version"] = version;
  state["keys"] = std::move(keys);
  state["outage"] = {{"failNext", outage.failNext},
                     {"downForSeconds", (outage.downFor.count() + 999) / 1000},
                     {"failStatus", outage.failStatus},
                     {"retryAfterSeconds",
                      outage.retryAfterSeconds ? Json(*outage.retryAfterSeconds) : Json(nullptr)}};
  return state.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

ServiceAnswer Inspector::changeRegistry(std::string_view text) {
  const Json body = Json::parse(text, nullptr, false);
  if (!body.is_object() || !body.contains("key") || !body["key"].is_string()) {
    return refused("the body must be a JSON object with a \"key\"");
  }
  if (auto unknown = unknownMember(body, {"key", "killSwitch", "status"})) {
    return refused("unknown member \"" + *unknown + "\"");
  }
  const auto key = body["key"].get<std::string>();
  const auto answers = service_.keyAnswers();
  const auto entry = answers.find(key);
  if (entry == answers.end()) return refused("no such key");
  KeyAnswer answer = entry->second;
  const auto status = wholeNumber(body, "status", 100, 599, answer.status);
  if (!status) return refused(outOfRange("status", 100, 599));
  answer.status = static_cast<int>(*status);
  if (body.contains("killSwitch")) {
    if (!body["killSwitch"].is_boolean()) return refused("\"killSwitch\" must be true or false");
    auto changed = withKillSwitch(answer.body, body["killSwitch"].get<bool>());
    if (!changed) return refused("the key's answer is not a JSON object");
    answer.body = std::move(*changed);
  }
  service_.setKeyAnswer(key, std::move(answer));
  stateChanged();
  return ServiceAnswer{200, stateJson(), "application/json", {}};
}

ServiceAnswer Inspector::changeOutage(std::string_view text) {
  const Json body = Json::parse(text, nullptr, false);
  if (!body.is_object()) return refused("the body must be a JSON object");
  if (auto unknown =
          unknownMember(body, {"failNext", "downForSeconds", "failStatus", "retryAfterSeconds"})) {
    return refused("unknown member \"" + *unknown + "\"");
  }
  const auto failNext = wholeNumber(body, "failNext", 0, 1'000'000'000, 0);
  const auto downFor = wholeNumber(body, "downForSeconds", 0, kMaxSeconds, 0);
  const auto failStatus = wholeNumber(body, "failStatus", 100, 599, 503);
  if (!failNext) return refused(outOfRange("failNext", 0, 1'000'000'000));
  if (!downFor) return refused(outOfRange("downForSeconds", 0, kMaxSeconds));
  if (!failStatus) return refused(outOfRange("failStatus", 100, 599));
  Outage outage{static_cast<std::size_t>(*failNext), std::chrono::seconds(*downFor),
                static_cast<int>(*failStatus), std::nullopt};
  if (body.contains("retryAfterSeconds") && !body["retryAfterSeconds"].is_null()) {
    const auto retryAfter = wholeNumber(body, "retryAfterSeconds", 0, kMaxSeconds, 0);
    if (!retryAfter) return refused(outOfRange("retryAfterSeconds", 0, kMaxSeconds));
    outage.retryAfterSeconds = *retryAfter;
  }
  service_.stageOutage(outage);
  stateChanged();
  return ServiceAnswer{200, stateJson(), "application/json", {}};
}

}  // namespace zelnora_tools
