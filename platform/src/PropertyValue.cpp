#include "platform/PropertyValue.h"

namespace platform {

std::optional<std::map<std::string, std::string>> asStringDictionary(const PropertyValue& value) {
  const PropertyDictionary* dictionary = value.dictionary();
  if (dictionary == nullptr) return std::nullopt;
  std::map<std::string, std::string> result;
  for (const auto& [key, entry] : *dictionary) {
    const std::string* text = entry.string();
    if (text == nullptr) return std::nullopt;
    result.emplace(key, *text);
  }
  return result;
}

PropertyValue makeStringDictionary(const std::map<std::string, std::string>& map) {
  PropertyDictionary dictionary;
  for (const auto& [key, text] : map) dictionary.emplace(key, PropertyValue(text));
  return PropertyValue(std::move(dictionary));
}

}  // namespace platform
