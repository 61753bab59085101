#include "zelnora_core/ZAConfig.h"

#include "RecordJson.h"
#include "platform/internal/Json.h"

namespace zelnora_core {

platform::Bytes ZAConfig::toJson() const {
  platform::JsonObjectWriter writer;
  writer.string("nt", vqxNotificationType).string("nai", vqxAppId);
  if (kill) writer.boolean("k", *kill);
  if (zelnoraAdsAppId) writer.string("zelnoraAdsAppId", *zelnoraAdsAppId);
  return platform::toBytes(std::move(writer).finish());
}

std::optional<ZAConfig> ZAConfig::fromJson(const platform::Bytes& json) {
  auto object = platform::parseJson(json);
  if (!object || !object->is_object()) return std::nullopt;
  auto nt = detail::requiredString(*object, "nt");
  auto nai = detail::requiredString(*object, "nai");
  if (!nt || !nai) return std::nullopt;

  ZAConfig config{*nt, *nai, std::nullopt, std::nullopt};
  if (auto k = object->find("k"); k != object->end() && !k->is_null()) {
    // Only a JSON Boolean counts; 1 or "true" make the whole record fail.
    if (!k->is_boolean()) return std::nullopt;
    config.kill = k->get<bool>();
  }
  auto channel = detail::optionalString(*object, "zelnoraAdsAppId");
  if (!channel.ok) return std::nullopt;
  config.zelnoraAdsAppId = channel.value;
  return config;
}

}  // namespace zelnora_core
