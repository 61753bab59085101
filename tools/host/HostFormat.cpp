#include "HostFormat.h"

#include <cstdio>
#include <variant>

#include "platform/internal/Json.h"

namespace zelnora_host {
namespace {

std::string boolText(bool value) { return value ? "true" : "false"; }

std::string numberText(double value) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%.17g", value);
  return buffer;
}

struct JsonOfValue {
  std::string operator()(const std::string& text) const { return quoted(text); }
  std::string operator()(const platform::Bytes& bytes) const {
    return quoted(platform::toString(bytes));
  }
  std::string operator()(const platform::PropertyDictionary& dictionary) const {
    platform::JsonObjectWriter writer;
    for (const auto& [key, member] : dictionary) writer.raw(key, propertyValueJson(member));
    return std::move(writer).finish();
  }
  std::string operator()(const platform::PropertyArray& array) const {
    std::string out = "[";
    for (std::size_t i = 0; i < array.size(); ++i) {
      if (i > 0) out.push_back(',');
      out += propertyValueJson(array[i]);
    }
    return out + "]";
  }
  std::string operator()(std::int64_t number) const { return std::to_string(number); }
  std::string operator()(double number) const { return numberText(number); }
  std::string operator()(bool flag) const { return boolText(flag); }
  std::string operator()(const platform::PropertyDate& date) const {
    return numberText(date.secondsSinceReferenceDate);
  }

  static std::string quoted(std::string_view text) {
    std::string out;
    platform::appendJsonString(out, text);
    return out;
  }
};

}  // namespace

std::string stateLine(bool initialized, bool debugMode, bool disabled) {
  return "host: state initialized=" + boolText(initialized) + " debug=" + boolText(debugMode) +
         " disabled=" + boolText(disabled);
}

std::string prefLine(const std::string& key, const platform::PropertyValue& value) {
  std::string line = "host: pref " + key + " ";
  if (const auto* data = value.data()) return line + "data " + platform::toString(*data);
  if (const auto* text = value.string()) return line + "string " + *text;
  if (value.dictionary()) return line + "dictionary " + propertyValueJson(value);
  return line + "other " + propertyValueJson(value);
}

std::string propertyValueJson(const platform::PropertyValue& value) {
  return std::visit(JsonOfValue{}, value.value);
}

std::string stringMapJson(const std::map<std::string, std::string>& map) {
  platform::JsonObjectWriter writer;
  for (const auto& [key, value] : map) writer.string(key, value);
  return std::move(writer).finish();
}

std::string responseLine(int statusCode, const std::optional<platform::Bytes>& body) {
  return "host: response status=" + std::to_string(statusCode) +
         " body=" + (body ? platform::toString(*body) : std::string());
}

std::string errorLine(const platform::Error& error) {
  return "host: error domain=" + error.domain + " code=" + std::to_string(error.code) + " " +
         error.localizedDescription();
}

}  // namespace zelnora_host
