// The text of the lines zelnora-host prints itself (each begins with "host: "). Pure functions.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "platform/Bytes.h"
#include "platform/Error.h"
#include "platform/PropertyValue.h"

namespace zelnora_host {

// "host: state initialized=<b> debug=<b> disabled=<b>"
std::string stateLine(bool initialized, bool debugMode, bool disabled);

// "host: pref KEY TYPE VALUE": data as its bytes, string as it stands, a dictionary as compact
// JSON; any other value is of TYPE "other" and shown as JSON.
std::string prefLine(const std::string& key, const platform::PropertyValue& value);

// Compact JSON of a property value, written the way the kit writes JSON ("/" as "\/").
// Data is written as a string of its bytes, a date as its seconds since 2001-01-01.
std::string propertyValueJson(const platform::PropertyValue& value);

// Compact JSON object of a map of text, in the map's order.
std::string stringMapJson(const std::map<std::string, std::string>& map);

// "host: response status=<code> body=<text>" (an absent body prints as empty text).
std::string responseLine(int statusCode, const std::optional<platform::Bytes>& body);

// "host: error domain=<d> code=<c> <localized description>"
std::string errorLine(const platform::Error& error);

}  // namespace zelnora_host
