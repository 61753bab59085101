// Small recording fakes for the platform services, with settable readings. Each is safe to read
// from any thread; set readings before the code under test runs.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Services.h"
#include "platform/internal/ThreadAnnotations.h"

namespace platform::testing {

class FakeMainBundle final : public MainBundle {
 public:
  std::map<std::string, std::string> resources;  // "name.type" -> path
  std::optional<PropertyDictionary> info;

  std::optional<std::string> pathForResource(std::string_view name, std::string_view type) override;
  std::optional<PropertyDictionary> infoDictionary() override { return info; }
  std::optional<std::string> bundleIdentifier() override;
};

class FakeKitBundle final : public KitBundle {
 public:
  std::map<std::string, PropertyValue> entries;
  std::optional<PropertyValue> objectForInfoDictionaryKey(std::string_view key) override;
};

// An in-memory suite store: each name opens one suite, shared by every caller.
class InMemoryUserDefaults final : public UserDefaultsStore {
 public:
  std::shared_ptr<UserDefaultsSuite> suite(std::string_view suiteName) override;

 private:
  Mutex mutex_;
  std::map<std::string, std::shared_ptr<UserDefaultsSuite>, std::less<>> suites_
      ZELNORA_GUARDED_BY(mutex_);
};

// An in-memory outbox store: each group name opens one outbox, shared by every caller.
class InMemoryReportOutboxes final : public ReportOutboxStore {
 public:
  std::shared_ptr<ReportOutbox> outbox(std::string_view groupName) override;

 private:
  Mutex mutex_;
  std::map<std::string, std::shared_ptr<ReportOutbox>, std::less<>> outboxes_
      ZELNORA_GUARDED_BY(mutex_);
};

class FakeCurrentDevice final : public CurrentDevice {
 public:
  std::string nameValue = "Test device", systemNameValue = "iOS", systemVersionValue = "17.1",
              modelValue = "iPhone", localizedModelValue = "iPhone";
  std::optional<std::string> vendorId;
  std::atomic<bool> monitoring{false};
  float level = 0.5f;
  DeviceBatteryState state = DeviceBatteryState::unplugged;
  DeviceOrientation orientationCode = DeviceOrientation::portrait;
  InterfaceIdiom idiom = InterfaceIdiom::phone;
  bool guidedAccess = false;

  std::string name() override { return nameValue; }
  std::string systemName() override { return systemNameValue; }
  std::string systemVersion() override { return systemVersionValue; }
  std::string model() override { return modelValue; }
  std::string localizedModel() override { return localizedModelValue; }
  std::optional<std::string> identifierForVendor() override { return vendorId; }
  bool isBatteryMonitoringEnabled() override { return monitoring; }
  void setBatteryMonitoringEnabled(bool enabled) override { monitoring = enabled; }
  float batteryLevel() override { return monitoring ? level : -1.0f; }
  DeviceBatteryState batteryState() override {
    return monitoring ? state : DeviceBatteryState::unknown;
  }
  DeviceOrientation orientation() override { return orientationCode; }
  InterfaceIdiom userInterfaceIdiom() override { return idiom; }
  bool isGuidedAccessEnabled() override { return guidedAccess; }
};

class FakeMainScreen final : public MainScreen {
 public:
  double brightnessValue = 0.5, scaleValue = 1, nativeScaleValue = 1;
  double brightness() override { return brightnessValue; }
  double scale() override { return scaleValue; }
  double nativeScale() override { return nativeScaleValue; }
};

class FakeProcessInfo final : public ProcessInfo {
 public:
  std::map<std::string, std::string, std::less<>> env;
  bool lowPower = false;
  int thermal = 0;
  std::string home = "/home/test";
  OperatingSystemVersion version{17, 1, 0};

  std::optional<std::string> environment(std::string_view name) override;
  bool isLowPowerModeEnabled() override { return lowPower; }
  int thermalState() override { return thermal; }
  std::string homeDirectory() override { return home; }
  OperatingSystemVersion operatingSystemVersion() override { return version; }
};

class FakeSystemInfo final : public SystemInfo {
 public:
  std::array<char, 256> machine{};
  std::optional<std::map<VolumeCapacityKey, VolumeValue>> volumes;
  std::vector<std::vector<VolumeCapacityKey>> queries;  // every key set asked for

  void setMachine(std::string_view text);
  std::array<char, 256> unameMachine() override { return machine; }
  std::optional<std::map<VolumeCapacityKey, VolumeValue>> volumeCapacities(
      const std::string& path, const std::vector<VolumeCapacityKey>& keys) override;
};

class FakeTelephony final : public Telephony {
 public:
  std::optional<std::vector<std::pair<std::string, Carrier>>> providers;
  std::optional<std::vector<std::pair<std::string, Carrier>>> serviceSubscriberCellularProviders()
      override {
    return providers;
  }
};

// Every manager it makes shares `fix`; with `offersManagers` false it makes none (null).
class FakeLocationServices final : public LocationServices {
 public:
  std::optional<Coordinate> fix;
  bool offersManagers = true;
  std::unique_ptr<LocationManager> makeLocationManager() override;
};

class FakeClock final : public Clock {
 public:
  std::atomic<double> now{1700000000.0};
  double timeIntervalSince1970() override { return now; }
};

}  // namespace platform::testing
