// Device::identifier, Device::current and Device::mapToDevice.
#include <memory>

#include "DeviceAccess.h"
#include "DeviceCatalog/Device.h"
#include "ModelLookup.h"
#include "platform/Services.h"
#include "platform/internal/ThreadAnnotations.h"

namespace DeviceCatalog {
namespace {

constexpr std::string_view kSimulatorModelVariable = "SIMULATOR_MODEL_IDENTIFIER";
constexpr std::string_view kSimulatorFallbackIdentifier = "iOS";

bool isSimulatorIdentifier(std::string_view identifier) {
  return identifier == "i386" || identifier == "x86_64" || identifier == "arm64";
}

// Every byte of the uname machine field that is not zero, in field order. The field holds ASCII;
// a byte above 0x7F is taken as the Latin-1 character of that code (two UTF-8 bytes), so the
// identifier is always valid UTF-8.
std::string readMachineIdentifier() {
  const std::array<char, 256> field = platform::systemInfo().unameMachine();
  std::string identifier;
  for (char c : field) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte == 0) continue;
    if (byte < 0x80) {
      identifier += static_cast<char>(byte);
    } else {
      identifier += static_cast<char>(0xC0 | (byte >> 6));
      identifier += static_cast<char>(0x80 | (byte & 0x3F));
    }
  }
  return identifier;
}

// The stored identifier text. Readers take a reference to the text they read, so a replaced
// text lives until its last reader is done with it and is then freed: assigning in a loop keeps
// one text, not every text ever assigned. (A plain mutex: libstdc++ 12's atomic shared_ptr is
// not understood by ThreadSanitizer.)
class StoredText {
 public:
  std::shared_ptr<const std::string> load() const {
    platform::MutexLock lock(mutex_);
    return text_;
  }
  void store(std::shared_ptr<const std::string> text) {
    platform::MutexLock lock(mutex_);
    text_.swap(text);  // the old text is freed after the lock is released
  }

 private:
  mutable platform::Mutex mutex_;
  std::shared_ptr<const std::string> text_ ZELNORA_GUARDED_BY(mutex_);
};

// Never destroyed: network-thread completions may still read it while the process exits.
StoredText& latestIdentifier() {
  static auto* const latest = new StoredText();
  return *latest;
}

void storeIdentifier(std::string identifier) {
  latestIdentifier().store(std::make_shared<const std::string>(std::move(identifier)));
}

// The stored identifier, computed on the first access; concurrent first readers wait for the one
// computation (function-local static initialisation).
std::shared_ptr<const std::string> storedIdentifier() {
  static const bool computed = [] {
    storeIdentifier(readMachineIdentifier());
    return true;
  }();
  (void)computed;
  return latestIdentifier().load();
}

// What a simulator imitates, looked up one level deep: a variable that names a simulator
// identifier again is not followed (it would lead back here without end) and stays unknown.
Device simulatedDeviceNamed(const std::string& name) {
  if (auto model = detail::modelForIdentifier(name)) return *model;
  return Device::unknown(name);
}

// The variable is read on every call (it may change), but the device it names is kept per thread
// for the last value seen: Device::current() on a simulator runs for every predicate.
Device simulatedDevice() {
  struct Remembered {
    std::string name;
    std::optional<Device> device;
  };
  thread_local Remembered remembered;
  const std::string name = platform::processInfo()
                               .environment(kSimulatorModelVariable)
                               .value_or(std::string(kSimulatorFallbackIdentifier));
  if (!remembered.device || remembered.name != name) {
    remembered.device = simulatedDeviceNamed(name);
    remembered.name = name;
  }
  return *remembered.device;
}

}  // namespace

std::string Device::identifier() { return *storedIdentifier(); }

void Device::setIdentifier(std::string identifier) {
  storedIdentifier();  // the first access computes the machine identifier, even a write
  storeIdentifier(std::move(identifier));
}

Device Device::current() { return mapToDevice(*storedIdentifier()); }

Device Device::mapToDevice(std::string_view identifier) {
  if (auto model = detail::modelForIdentifier(identifier)) return *model;
  if (isSimulatorIdentifier(identifier)) return simulator(simulatedDevice());
  return unknown(identifier);
}

namespace detail {
bool isCurrentDevice(const Device& device) { return device == Device::current(); }
}  // namespace detail

}  // namespace DeviceCatalog
