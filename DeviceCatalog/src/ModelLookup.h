// Fast lookups into the model table: machine identifier to model case, description to model case.
#pragma once

#include <optional>
#include <string_view>

#include "DeviceCatalog/Device.h"

namespace DeviceCatalog::detail {

// The model case that the machine identifier names (exact, case-sensitive); absent when the table
// does not list it (the simulator identifiers included).
std::optional<Device::Model> modelForIdentifier(std::string_view identifier);

// The model case whose description is exactly `description`.
std::optional<Device::Model> modelForDescription(std::string_view description);

}  // namespace DeviceCatalog::detail
