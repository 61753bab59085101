#include "ModelLookup.h"

#include <array>
#include <cstdint>

#include "ModelTable.h"

namespace DeviceCatalog::detail {
namespace {

// Open-addressing hash tables built at compile time, so a lookup costs one hash, a probe or two
// and one comparison, and never allocates (Device::current() maps the identifier on every call).
constexpr std::size_t kSlotCount = 512;  // a power of two, well above twice the identifier count
constexpr std::uint8_t kEmptySlot = 0xFF;

struct Slot {
  std::string_view key;
  std::uint8_t model = kEmptySlot;
};
struct HashTable {
  std::array<Slot, kSlotCount> slots{};
  bool keysDistinct = true;
};

constexpr std::uint32_t fnv1a(std::string_view text) {
  std::uint32_t hash = 2166136261u;
  for (char c : text) {
    hash ^= static_cast<unsigned char>(c);
    hash *= 16777619u;
  }
  return hash;
}

constexpr void insert(HashTable& table, std::string_view key, std::size_t model) {
  std::size_t index = fnv1a(key) & (kSlotCount - 1);
  while (table.slots[index].model != kEmptySlot) {
    if (table.slots[index].key == key) table.keysDistinct = false;
    index = (index + 1) & (kSlotCount - 1);
  }
  table.slots[index] = Slot{key, static_cast<std::uint8_t>(model)};
}

constexpr HashTable buildIdentifierTable() {
  HashTable table{};
  for (std::size_t model = 0; model < kModelTable.size(); ++model) {
    for (const std::string_view& identifier : kModelTable[model].identifiers) {
      if (!identifier.empty()) insert(table, identifier, model);
    }
  }
  return table;
}

constexpr HashTable buildDescriptionTable() {
  HashTable table{};
  for (std::size_t model = 0; model < kModelTable.size(); ++model) {
    insert(table, kModelTable[model].description, model);
  }
  return table;
}

constexpr HashTable kIdentifierTable = buildIdentifierTable();
constexpr HashTable kDescriptionTable = buildDescriptionTable();
static_assert(kIdentifierTable.keysDistinct, "every machine identifier must name one model");
static_assert(kDescriptionTable.keysDistinct, "every model needs its own description");

std::optional<Device::Model> find(const HashTable& table, std::string_view key) {
  std::size_t index = fnv1a(key) & (kSlotCount - 1);
  while (table.slots[index].model != kEmptySlot) {
    const Slot& slot = table.slots[index];
    if (slot.key == key) return static_cast<Device::Model>(slot.model);
    index = (index + 1) & (kSlotCount - 1);
  }
  return std::nullopt;
}

constexpr bool rowsFollowModelOrder() {
  for (std::size_t index = 0; index < kModelTable.size(); ++index) {
    if (static_cast<std::size_t>(kModelTable[index].model) != index) return false;
  }
  return true;
}
static_assert(rowsFollowModelOrder(), "the model table must list the cases in model-case order");

constexpr bool safeDescriptionsDistinct() {
  for (std::size_t i = 0; i < kModelTable.size(); ++i) {
    for (std::size_t j = i + 1; j < kModelTable.size(); ++j) {
      if (kModelTable[i].safeDescription == kModelTable[j].safeDescription) return false;
    }
  }
  return true;
}
static_assert(safeDescriptionsDistinct(), "every model needs its own safe description");

}  // namespace

std::optional<Device::Model> modelForIdentifier(std::string_view identifier) {
  return find(kIdentifierTable, identifier);
}

std::optional<Device::Model> modelForDescription(std::string_view description) {
  return find(kDescriptionTable, description);
}

}  // namespace DeviceCatalog::detail
