/// \file
/// The kit's public entry point: start-up with the application key, state, user id, custom headers
/// and the location permission request.
///
/// \code
/// auto& kit = zelnora_core::ZAManager::sharedInstance();
/// kit.initialize("APP-KEY", false, [] { /* on the network thread, once started */ });
/// kit.setCustomHeaders({{"X-Tenant", "blue"}});
/// if (kit.isInitialized()) kit.setUserId("user-42");
/// \endcode
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "platform/Bytes.h"
#include "platform/UrlSession.h"
#include "zelnora_core/export.h"

namespace zelnora_core {

class ZELNORA_CORE_EXPORT ZAManager {
 public:
  /// The one instance (the same object as `data`). Any thread may touch it first.
  static ZAManager& sharedInstance();

  ZAManager(const ZAManager&) = delete;
  ZAManager& operator=(const ZAManager&) = delete;

  /// Starts the kit: loads the host-bundle configuration (ends the process when it is missing or
  /// incomplete), honours the stored kill switch, and fetches a fresh remote configuration in the
  /// background. `initCompleteCallback` runs once, on the network thread, after a successful fetch.
  void initialize(const std::string& appKey, std::optional<bool> debugMode = std::nullopt,
                  std::function<void()> initCompleteCallback = nullptr);

  bool isInitialized() const;
  bool isDebugMode() const;
  bool isDisabled() const;

  /// Needs an initialised kit; otherwise prints "Sdk was not initialized".
  void setUserId(const std::string& userId);
  /// Stores the headers sent with every API request, in any state.
  void setCustomHeaders(const std::map<std::string, std::string>& headers);
  /// Needs an initialised kit; asks for location authorisation at all times.
  void requestPermission();

  /// Opt-in durable reports (off by default; "DURABLE_REPORTS" in ZelnoraAdsConfig.plist sets it
  /// at `initialize`, the last call wins): a report whose exchange fails with a transport error, a
  /// 5xx or a 429 is kept in the application group's outbox and delivered later, at least once
  /// (see ZAReportOutbox.h). Any time, any thread.
  void setDurableReports(bool enabled);
  bool isDurableReports() const;

 private:
  ZAManager();
  ~ZAManager();
  void handleConfigurationResponse(const std::string& appKey, const std::function<void()>& callback,
                                   const std::optional<platform::HTTPURLResponse>& http,
                                   const std::optional<platform::Bytes>& body);

  std::atomic<bool> initialized_{false};
  std::atomic<bool> sdkDisabled_{false};
  std::atomic<bool> debugMode_{false};
  struct Location;  ///< what requestPermission keeps, behind its own lock
  const std::unique_ptr<Location> location_;
};

/// What the module-level constant `data` is: a handle that holds nothing and reaches
/// `ZAManager::sharedInstance()` on every use. It is constant-initialised, so a host's own static
/// initialiser may use `data` whichever initialiser of the program runs first.
class ZELNORA_CORE_EXPORT ZAManagerHandle {
 public:
  constexpr ZAManagerHandle() = default;

  void initialize(const std::string& appKey, std::optional<bool> debugMode = std::nullopt,
                  std::function<void()> initCompleteCallback = nullptr) const {
    get().initialize(appKey, debugMode, std::move(initCompleteCallback));
  }
  bool isInitialized() const { return get().isInitialized(); }
  bool isDebugMode() const { return get().isDebugMode(); }
  bool isDisabled() const { return get().isDisabled(); }
  void setUserId(const std::string& userId) const { get().setUserId(userId); }
  void setCustomHeaders(const std::map<std::string, std::string>& headers) const {
    get().setCustomHeaders(headers);
  }
  void requestPermission() const { get().requestPermission(); }

  // `data` stands for the instance wherever a reference or pointer to it is wanted.
  operator ZAManager&() const { return get(); }  // NOLINT(google-explicit-constructor)
  ZAManager* operator->() const { return &get(); }
  ZAManager* operator&() const { return &get(); }  // NOLINT(google-runtime-operator)

 private:
  static ZAManager& get() { return ZAManager::sharedInstance(); }
};

/// The module-level constant holding the one instance.
extern ZELNORA_CORE_EXPORT const ZAManagerHandle data;

}  // namespace zelnora_core
