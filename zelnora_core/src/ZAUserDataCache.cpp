#include "zelnora_core/ZAUserDataCache.h"

#include "RecordJson.h"
#include "platform/internal/Json.h"

namespace zelnora_core {

platform::Bytes ZAUserDataCache::toJson() const {
  platform::JsonObjectWriter writer;
  writer.string("userId", userId);
  if (advertisingId) writer.string("advertisingId", *advertisingId);
  return platform::toBytes(std::move(writer).finish());
}

std::optional<ZAUserDataCache> ZAUserDataCache::fromJson(const platform::Bytes& json) {
  auto object = platform::parseJson(json);
  if (!object || !object->is_object()) return std::nullopt;
  auto userId = detail::requiredString(*object, "userId");
  if (!userId) return std::nullopt;
  auto advertisingId = detail::optionalString(*object, "advertisingId");
  if (!advertisingId.ok) return std::nullopt;
  return ZAUserDataCache{*userId, advertisingId.value};
}

}  // namespace zelnora_core
