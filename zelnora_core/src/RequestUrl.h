// Internal: the pure steps that turn an endpoint's URL text and a request's placeholder values and
// query parameters into the absolute URL to call. APIRequest::url() feeds them the cached base.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Url.h"
#include "zelnora_core/APIRequest.h"

namespace zelnora_core::detail {

// Replaces every "{key}" by its value, entry by entry in map order, without percent-encoding.
std::string substitutePlaceholders(std::string text,
                                   const std::map<std::string, std::string>& placeholders);

// The textual form of a query value: text as it is, integers in decimal, "true"/"false", and a
// double in its shortest round-trip form ("2.0", "0.1", "1e+16", "1e-05", "nan", "inf").
std::string parameterText(const ParameterValue& value);

// The final URL from `urlText` (base + raw path): placeholders filled, then the query replaced by
// the parameters when they are present (also when empty), falling back to the URL without
// parameters when the text cannot be split or rebuilt. Absent when nothing parses.
std::optional<platform::Url> formRequestUrl(
    std::string urlText, const std::optional<std::map<std::string, std::string>>& placeholders,
    const std::optional<std::map<std::string, ParameterValue>>& parameters);

// Which of the two service hosts an endpoint belongs to.
enum class BaseKind { api, gateway };
BaseKind baseKindOf(APIEndpoint endpoint);

}  // namespace zelnora_core::detail
