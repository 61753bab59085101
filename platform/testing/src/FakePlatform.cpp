#include "platform/testing/FakePlatform.h"

#include <algorithm>
#include <cstring>

namespace platform::testing {
namespace {

template <typename Map, typename Key>
std::optional<typename Map::mapped_type> find(const Map& map, const Key& key) {
  auto it = map.find(key);
  return it == map.end() ? std::nullopt : std::optional(it->second);
}

class InMemorySuite final : public UserDefaultsSuite {
 public:
  std::optional<PropertyValue> object(std::string_view key) override {
    MutexLock lock(mutex_);
    return find(values_, key);
  }
  void set(std::string_view key, const PropertyValue& value) override {
    MutexLock lock(mutex_);
    values_.insert_or_assign(std::string(key), value);
  }
  void remove(std::string_view key) override {
    MutexLock lock(mutex_);
    if (auto it = values_.find(key); it != values_.end()) values_.erase(it);
  }
  std::map<std::string, PropertyValue> dictionaryRepresentation() override {
    MutexLock lock(mutex_);
    return {values_.begin(), values_.end()};
  }

 private:
  Mutex mutex_;
  std::map<std::string, PropertyValue, std::less<>> values_ ZELNORA_GUARDED_BY(mutex_);
};

class FakeLocationManager final : public LocationManager {
 public:
  explicit FakeLocationManager(FakeLocationServices& owner) : owner_(owner) {}
  void requestAlwaysAuthorization() override {}
  std::optional<Coordinate> location() override { return owner_.fix; }

 private:
  FakeLocationServices& owner_;
};

}  // namespace

std::optional<std::string> FakeMainBundle::pathForResource(std::string_view name,
                                                           std::string_view type) {
  return find(resources, std::string(name) + "." + std::string(type));
}

std::optional<std::string> FakeMainBundle::bundleIdentifier() {
  auto value = info ? find(*info, "CFBundleIdentifier") : std::nullopt;
  if (!value || value->string() == nullptr) return std::nullopt;
  return *value->string();
}

std::optional<PropertyValue> FakeKitBundle::objectForInfoDictionaryKey(std::string_view key) {
  return find(entries, std::string(key));
}

std::shared_ptr<UserDefaultsSuite> InMemoryUserDefaults::suite(std::string_view suiteName) {
  MutexLock lock(mutex_);
  auto it = suites_.find(suiteName);
  if (it == suites_.end()) {
    it = suites_.emplace(std::string(suiteName), std::make_shared<InMemorySuite>()).first;
  }
  return it->second;
}

std::optional<std::string> FakeProcessInfo::environment(std::string_view name) {
  return find(env, name);
}

void FakeSystemInfo::setMachine(std::string_view text) {
  machine.fill(0);
  std::memcpy(machine.data(), text.data(), std::min(text.size(), machine.size()));
}

std::optional<std::map<VolumeCapacityKey, VolumeValue>> FakeSystemInfo::volumeCapacities(
    const std::string&, const std::vector<VolumeCapacityKey>& keys) {
  queries.push_back(keys);
  if (!volumes) return std::nullopt;
  std::map<VolumeCapacityKey, VolumeValue> answer;
  for (auto key : keys) {
    auto it = volumes->find(key);
    if (it != volumes->end()) answer.insert(*it);
  }
  return answer;
}

std::unique_ptr<LocationManager> FakeLocationServices::makeLocationManager() {
  return offersManagers ? std::make_unique<FakeLocationManager>(*this) : nullptr;
}

}  // namespace platform::testing
