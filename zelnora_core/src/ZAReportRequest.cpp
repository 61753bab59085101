#include "zelnora_core/ZAReportRequest.h"

#include <string>
#include <utility>

#include "ReportDetail.h"
#include "platform/internal/Json.h"

namespace zelnora_core {
namespace {

std::optional<std::map<std::string, std::string>> decodeEvent(const nlohmann::json& json) {
  if (!json.is_object()) return std::nullopt;
  std::map<std::string, std::string> event;
  for (const auto& [key, value] : json.items()) {
    if (!value.is_string()) return std::nullopt;
    event.emplace(key, value.get<std::string>());
  }
  return event;
}

}  // namespace

namespace detail {
std::string eventJson(const std::map<std::string, std::string>& event) {
  platform::JsonObjectWriter writer;
  for (const auto& [key, value] : event) writer.string(key, value);
  return std::move(writer).finish();
}
}  // namespace detail

platform::Bytes ZAReportRequest::toJson() const {
  std::string events = "[";
  for (const auto& event : this->events) {
    if (events.size() > 1) events.push_back(',');
    events.append(detail::eventJson(event));
  }
  events.push_back(']');
  platform::JsonObjectWriter writer;
  writer.raw("events", events);
  return platform::toBytes(std::move(writer).finish());
}

// Strict: one object with an "events" array of objects whose values are all strings; other
// members are ignored.
std::optional<ZAReportRequest> ZAReportRequest::fromJson(const platform::Bytes& json) {
  std::optional<nlohmann::json> parsed = platform::parseJson(json);
  if (!parsed || !parsed->is_object()) return std::nullopt;
  auto member = parsed->find("events");
  if (member == parsed->end() || !member->is_array()) return std::nullopt;
  ZAReportRequest request;
  request.events.reserve(member->size());
  for (const auto& element : *member) {
    std::optional<std::map<std::string, std::string>> event = decodeEvent(element);
    if (!event) return std::nullopt;
    request.events.push_back(std::move(*event));
  }
  return request;
}

}  // namespace zelnora_core
