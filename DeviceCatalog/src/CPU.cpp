#include "DeviceCatalog/CPU.h"

#include <array>

namespace DeviceCatalog {
namespace {

// Indexed by CPU::Value.
constexpr std::array<std::string_view, CPU::unknown + 1> kDescriptions = {
    "A4",         "A5",         "A5X",         "A6",          "A6X",        "A7",
    "A8",         "A8X",        "A9",          "A9X",         "A10 Fusion", "A10X Fusion",
    "A11 Bionic", "A12 Bionic", "A12X Bionic", "A12Z Bionic", "A13 Bionic", "A14 Bionic",
    "A15 Bionic", "A16 Bionic", "A17 Pro",     "M1",          "M2",         "unknown",
};

}  // namespace

std::string_view CPU::description() const { return kDescriptions[value_]; }

}  // namespace DeviceCatalog
