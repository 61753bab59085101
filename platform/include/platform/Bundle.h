/// \file
/// The host application's main bundle and the kit's own bundle information.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/PropertyValue.h"
#include "platform/export.h"

namespace platform {

class ZELNORA_PLATFORM_EXPORT MainBundle {
 public:
  virtual ~MainBundle() = default;
  MainBundle() = default;
  MainBundle(const MainBundle&) = delete;
  MainBundle& operator=(const MainBundle&) = delete;

  /// Path of the resource `name`.`type` inside the bundle, or absent when there is no such file.
  virtual std::optional<std::string> pathForResource(std::string_view name,
                                                     std::string_view type) = 0;
  /// The bundle's information dictionary (Info.plist), absent when the bundle has none or it is
  /// unreadable.
  virtual std::optional<PropertyDictionary> infoDictionary() = 0;
  /// "CFBundleIdentifier" of the information dictionary when it is text; absent otherwise.
  virtual std::optional<std::string> bundleIdentifier() = 0;
};

/// The bundle holding the kit's own code: its information entries come from build-time constants.
class ZELNORA_PLATFORM_EXPORT KitBundle {
 public:
  virtual ~KitBundle() = default;
  KitBundle() = default;
  KitBundle(const KitBundle&) = delete;
  KitBundle& operator=(const KitBundle&) = delete;

  /// The value of an information entry ("CFBundleShortVersionString", "CFBundleVersion", ...), or
  /// absent when the bundle has no such entry.
  virtual std::optional<PropertyValue> objectForInfoDictionaryKey(std::string_view key) = 0;
};

/// The Linux main bundle reads from this directory; empty means the running executable's directory.
/// Meant for the host stand-in tool, before the kit is first used.
ZELNORA_PLATFORM_EXPORT void setMainBundleDirectory(std::string directory);

}  // namespace platform
