// Fuzz target: the JSON records the kit reads back from the service and from the shared suite.
// Whatever decodes must survive encode -> decode unchanged, and its encoding must be a fixed point.
#include <cstddef>
#include <cstdint>

#include "platform/Bytes.h"
#include "zelnora_core/ZAConfig.h"
#include "zelnora_core/ZAPIConfig.h"
#include "zelnora_core/ZAReportRequest.h"
#include "zelnora_core/ZAUserDataCache.h"

namespace {

// The phone's encoder escapes every control byte and writes no blanks between tokens, so a raw
// byte below 0x20 in the output means an unescaped string or a pretty-printed document.
bool holdsRawControlByte(const platform::Bytes& json) {
  for (std::uint8_t byte : json) {
    if (byte < 0x20) return true;
  }
  return false;
}

template <typename Record>
void checkRoundTrip(const platform::Bytes& input) {
  const std::optional<Record> decoded = Record::fromJson(input);
  if (!decoded) return;
  const platform::Bytes encoded = decoded->toJson();
  if (holdsRawControlByte(encoded) || !platform::isValidUtf8(platform::toString(encoded))) {
    __builtin_trap();
  }
  const std::optional<Record> again = Record::fromJson(encoded);
  if (!again || !(*again == *decoded)) __builtin_trap();
  if (again->toJson() != encoded) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const platform::Bytes input(data, data + size);
  checkRoundTrip<zelnora_core::ZAConfig>(input);
  checkRoundTrip<zelnora_core::ZAPIConfig>(input);
  checkRoundTrip<zelnora_core::ZAUserDataCache>(input);
  checkRoundTrip<zelnora_core::ZAReportRequest>(input);
  return 0;
}
