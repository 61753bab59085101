#include "ModelLookup.h"

#include <array>
#include <cstdint>

#include "ModelTable.h"

namespace DeviceCatalog::detail {
namespace {

// Open-addressing hash tables built at compile time, so a lookup costs one hash, a probe or two
// and one comparison, and never allocates (Device::current() maps the identifier on every call).
// A slot names a key by its place in the model table rather than holding the text itself.
constexpr std::size_t kSlotCount = 512;  // a power of two, well above twice the key count

// Zero means empty, so the tables start out as plain zero bytes.
struct Slot {
  std::uint8_t modelPlusOne;
  std::uint8_t keyIndex;

  constexpr bool isEmpty() const { return modelPlusOne == 0; }
  constexpr std::size_t model() const { return modelPlusOne - 1u; }
};

struct HashTable {
  std::array<Slot, kSlotCount> slots;
  bool keysDistinct;
};

// The keys of a table: a row's key number `keyIndex` (empty when the row has no such key).
using KeyOf = std::string_view (*)(const ModelRow& row, std::size_t keyIndex);

constexpr std::string_view identifierKey(const ModelRow& row, std::size_t keyIndex) {
  return row.identifiers.places[keyIndex];
}

constexpr std::string_view descriptionKey(const ModelRow& row, std::size_t keyIndex) {
  return keyIndex == 0 ? row.description : std::string_view();
}

constexpr std::uint32_t fnv1a(std::string_view text) {
  std::uint32_t hash = 2166136261u;
  for (char c : text) {
    hash ^= static_cast<unsigned char>(c);
    hash *= 16777619u;
  }
  return hash;
}

constexpr std::string_view keyOfSlot(KeyOf keyOf, const Slot& slot) {
  return keyOf(kModelTable[slot.model()], slot.keyIndex);
}

constexpr HashTable buildTable(KeyOf keyOf) {
  HashTable table{{}, true};
  for (std::size_t model = 0; model < kModelTable.size(); ++model) {
    for (std::size_t keyIndex = 0; keyIndex < kMaxIdentifiersPerModel; ++keyIndex) {
      const std::string_view key = keyOf(kModelTable[model], keyIndex);
      if (key.empty()) continue;
      std::size_t index = fnv1a(key) & (kSlotCount - 1);
      while (!table.slots[index].isEmpty()) {
        if (keyOfSlot(keyOf, table.slots[index]) == key) table.keysDistinct = false;
        index = (index + 1) & (kSlotCount - 1);
      }
      table.slots[index] =
          Slot{static_cast<std::uint8_t>(model + 1), static_cast<std::uint8_t>(keyIndex)};
    }
  }
  return table;
}

constexpr HashTable kIdentifierTable = buildTable(identifierKey);
constexpr HashTable kDescriptionTable = buildTable(descriptionKey);
static_assert(kIdentifierTable.keysDistinct, "every machine identifier must name one model");
static_assert(kDescriptionTable.keysDistinct, "every model needs its own description");

std::optional<Device::Model> find(const HashTable& table, KeyOf keyOf, std::string_view key) {
  std::size_t index = fnv1a(key) & (kSlotCount - 1);
  while (!table.slots[index].isEmpty()) {
    const Slot& slot = table.slots[index];
    if (keyOfSlot(keyOf, slot) == key) return static_cast<Device::Model>(slot.model());
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
  return find(kIdentifierTable, identifierKey, identifier);
}

std::optional<Device::Model> modelForDescription(std::string_view description) {
  return find(kDescriptionTable, descriptionKey, description);
}

}  // namespace DeviceCatalog::detail
