#include <algorithm>

#include "platform/UrlSession.h"
#include "platform/internal/HttpText.h"

namespace platform {
namespace {

template <typename Fields>
auto findField(Fields& fields, std::string_view name) {
  return std::find_if(fields.begin(), fields.end(), [&](const auto& field) {
    return http::equalsIgnoringCase(field.first, name);
  });
}

}  // namespace

void HeaderFields::addValue(std::string_view value, std::string_view field) {
  auto existing = findField(fields_, field);
  if (existing == fields_.end()) {
    fields_.emplace_back(std::string(field), std::string(value));
    return;
  }
  existing->second += ',';
  existing->second += value;
}

void HeaderFields::setValue(std::string_view value, std::string_view field) {
  auto existing = findField(fields_, field);
  if (existing == fields_.end()) {
    fields_.emplace_back(std::string(field), std::string(value));
    return;
  }
  existing->second = std::string(value);
}

std::optional<std::string> HeaderFields::value(std::string_view field) const {
  auto existing = findField(fields_, field);
  if (existing == fields_.end()) return std::nullopt;
  return existing->second;
}

std::optional<HTTPURLResponse> asHTTPURLResponse(const std::optional<URLResponse>& response) {
  if (!response || !response->statusCode) return std::nullopt;
  return HTTPURLResponse{*response->statusCode, response->url, response->headerFields};
}

}  // namespace platform
