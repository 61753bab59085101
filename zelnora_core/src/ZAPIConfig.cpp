#include "zelnora_core/ZAPIConfig.h"

#include "RecordJson.h"
#include "platform/internal/Json.h"

namespace zelnora_core {

platform::Bytes ZAPIConfig::toJson() const {
  platform::JsonObjectWriter writer;
  writer.string("initConfigUrl", initConfigUrl)
      .string("apiBaseUrl", apiBaseUrl)
      .string("vqxBaseUrl", vqxBaseUrl);
  return platform::toBytes(std::move(writer).finish());
}

std::optional<ZAPIConfig> ZAPIConfig::fromJson(const platform::Bytes& json) {
  auto object = platform::parseJson(json);
  if (!object || !object->is_object()) return std::nullopt;
  auto init = detail::requiredString(*object, "initConfigUrl");
  auto api = detail::requiredString(*object, "apiBaseUrl");
  auto vqx = detail::requiredString(*object, "vqxBaseUrl");
  if (!init || !api || !vqx) return std::nullopt;
  return ZAPIConfig{*init, *api, *vqx};
}

}  // namespace zelnora_core
