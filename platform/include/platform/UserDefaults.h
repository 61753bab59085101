/// \file
/// Named key-value suites shared by the host application and its extensions (the application
/// group).
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/PropertyValue.h"
#include "platform/export.h"

namespace platform {

class ZELNORA_PLATFORM_EXPORT UserDefaultsSuite {
 public:
  virtual ~UserDefaultsSuite() = default;
  UserDefaultsSuite() = default;
  UserDefaultsSuite(const UserDefaultsSuite&) = delete;
  UserDefaultsSuite& operator=(const UserDefaultsSuite&) = delete;

  /// The value under `key` with its stored type, absent when there is none or it cannot be read.
  virtual std::optional<PropertyValue> object(std::string_view key) = 0;
  /// Stores `value` under `key`, replacing any earlier value whole. Failures are silent.
  virtual void set(std::string_view key, const PropertyValue& value) = 0;
  /// Removes `key`. Failures are silent.
  virtual void remove(std::string_view key) = 0;
  /// Every entry, by key (the host tool's listing).
  virtual std::map<std::string, PropertyValue> dictionaryRepresentation() = 0;
};

class ZELNORA_PLATFORM_EXPORT UserDefaultsStore {
 public:
  virtual ~UserDefaultsStore() = default;
  UserDefaultsStore() = default;
  UserDefaultsStore(const UserDefaultsStore&) = delete;
  UserDefaultsStore& operator=(const UserDefaultsStore&) = delete;

  /// The suite of that name, or null when it cannot be opened. Any thread; the suite may be used
  /// from any thread and by several processes at once (last write of a key wins).
  virtual std::shared_ptr<UserDefaultsSuite> suite(std::string_view suiteName) = 0;
};

/// A store keeping one SQLite database per suite in `containerDirectory` (created 0700, files
/// 0600). The default store uses $XDG_DATA_HOME/zelnora/app-groups
/// (~/.local/share/zelnora/app-groups).
ZELNORA_PLATFORM_EXPORT std::unique_ptr<UserDefaultsStore> makeSqliteUserDefaultsStore(
    std::string containerDirectory);
/// The directory of the default store (the application-group container).
ZELNORA_PLATFORM_EXPORT std::string appGroupContainerDirectory();

}  // namespace platform
