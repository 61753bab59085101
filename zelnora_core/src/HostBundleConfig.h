// Loading the service addresses from the host's "ZelnoraAdsConfig.plist".
#pragma once

#include <optional>

#include "zelnora_core/ZAPIConfig.h"

namespace zelnora_core::detail {

// Reads "ZelnoraAdsConfig.plist" from the host's main bundle (never the kit's), stores a copy in
// the shared suite and returns it. Ends the process with a fatal error when the file is missing or
// unreadable as a dictionary, or when INIT_CONFIG, API_BASE_URL or VQX_BASE_URL (checked in that
// order) is missing or not text. Read afresh on every call.
// `durableReports`, when given, receives the Boolean "DURABLE_REPORTS" (absent when the key is
// missing or not a Boolean); the key is not part of the stored record.
ZAPIConfig loadFromBundle(std::optional<bool>* durableReports = nullptr);

}  // namespace zelnora_core::detail
