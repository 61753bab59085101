/// \file
/// Reading property-list files (XML or binary) into typed values.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/PropertyValue.h"
#include "platform/export.h"

namespace platform {

class ZELNORA_PLATFORM_EXPORT PropertyListReader {
 public:
  virtual ~PropertyListReader() = default;
  PropertyListReader() = default;
  PropertyListReader(const PropertyListReader&) = delete;
  PropertyListReader& operator=(const PropertyListReader&) = delete;

  /// Reads the file at `path` (XML or binary format). Absent when the file is missing, unreadable,
  /// too large, too deeply nested or not a property list. Any thread.
  virtual std::optional<PropertyValue> readFile(const std::string& path) = 0;
};

/// Parses property-list bytes (binary by magic, XML otherwise) with the same limits as readFile.
ZELNORA_PLATFORM_EXPORT std::optional<PropertyValue> parsePropertyList(std::string_view bytes);

}  // namespace platform
