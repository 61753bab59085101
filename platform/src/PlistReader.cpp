#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <plist/plist.h>

#include "CNumbers.h"
#include "LinuxProviders.h"
#include "PlistCodec.h"
#include "platform/PropertyListReader.h"

namespace platform {
namespace {

using detail::isStorableText;
using detail::kMaxPropertyListBytes;
using detail::PlistNode;

struct MallocFree {
  void operator()(void* memory) const { std::free(memory); }
};

// libplist's plist_get_string_val asserts (aborts the process) on a string holding a NUL byte, so
// the string is read in place with its length.
std::optional<PropertyValue> convertString(plist_t node) {
  std::uint64_t length = 0;
  const char* text = plist_get_string_ptr(node, &length);
  if (text == nullptr) return std::nullopt;
  std::string value(text, static_cast<std::size_t>(length));
  if (!isStorableText(value)) return std::nullopt;
  return PropertyValue(std::move(value));
}

std::optional<PropertyValue> convertData(plist_t node) {
  char* raw = nullptr;
  std::uint64_t length = 0;
  plist_get_data_val(node, &raw, &length);
  const std::unique_ptr<char, MallocFree> bytes(raw);
  if (bytes == nullptr) return PropertyValue(Bytes{});
  const auto* begin = reinterpret_cast<const std::uint8_t*>(bytes.get());
  return PropertyValue(Bytes(begin, begin + length));
}

std::optional<PropertyValue> convertScalar(plist_t node, plist_type type) {
  switch (type) {
    case PLIST_BOOLEAN: {
      std::uint8_t flag = 0;
      plist_get_bool_val(node, &flag);
      return PropertyValue(flag != 0);
    }
    case PLIST_UINT: {
      std::uint64_t number = 0;
      plist_get_uint_val(node, &number);
      return PropertyValue(static_cast<std::int64_t>(number));
    }
    case PLIST_REAL: {
      double number = 0;
      plist_get_real_val(node, &number);
      return PropertyValue(number);
    }
    default: return std::nullopt;
  }
}

// libplist nodes to typed values. Binary dates come from the bytes (`exactDates`, looked up by
// the key libplist reports), as libplist keeps them only to the microsecond and garbles the
// fraction of negative ones.
class NodeConverter {
 public:
  explicit NodeConverter(const std::vector<double>& exactDates) {
    for (const double date : exactDates) {
      const auto [entry, inserted] = exactDates_.emplace(detail::libplistDateKey(date), date);
      if (!inserted && !(entry->second == date)) entry->second = kAmbiguous;
    }
  }

  // Recursion is bounded: only graphs that passed the depth checks reach libplist.
  std::optional<PropertyValue> convert(plist_t node) const {
    if (node == nullptr) return std::nullopt;
    const plist_type type = plist_get_node_type(node);
    switch (type) {
      case PLIST_DICT: return convertDictionary(node);
      case PLIST_ARRAY: return convertArray(node);
      case PLIST_STRING: return convertString(node);
      case PLIST_DATA: return convertData(node);
      case PLIST_DATE: return convertDate(node);
      default: return convertScalar(node, type);
    }
  }

 private:
  // Two different dates that libplist reports alike: which one a node holds is unknown.
  static constexpr double kAmbiguous = std::numeric_limits<double>::quiet_NaN();

  std::optional<PropertyValue> convertDictionary(plist_t node) const;
  std::optional<PropertyValue> convertArray(plist_t node) const;
  std::optional<PropertyValue> convertDate(plist_t node) const;

  std::map<std::int64_t, double> exactDates_;
};

std::optional<PropertyValue> NodeConverter::convertDictionary(plist_t node) const {
  PropertyDictionary dictionary;
  plist_dict_iter iterator = nullptr;
  plist_dict_new_iter(node, &iterator);
  const std::unique_ptr<void, MallocFree> iteratorGuard(iterator);
  while (true) {
    char* rawKey = nullptr;
    plist_t item = nullptr;
    plist_dict_next_item(node, iterator, &rawKey, &item);
    const std::unique_ptr<char, MallocFree> key(rawKey);
    if (item == nullptr) break;
    if (key == nullptr || !isStorableText(key.get())) return std::nullopt;
    std::optional<PropertyValue> value = convert(item);
    if (!value) return std::nullopt;
    dictionary.insert_or_assign(key.get(), std::move(*value));
  }
  std::optional<PropertyValue> result(std::in_place);
  result->value.emplace<PropertyDictionary>(std::move(dictionary));
  return result;
}

// Walked with an iterator: libplist 2.2 finds the item at an index by walking the list from the
// start, which made reading a long array take quadratic time (a minute for 2^18 items).
std::optional<PropertyValue> NodeConverter::convertArray(plist_t node) const {
  PropertyArray array;
  array.reserve(plist_array_get_size(node));
  plist_array_iter iterator = nullptr;
  plist_array_new_iter(node, &iterator);
  const std::unique_ptr<void, MallocFree> iteratorGuard(iterator);
  while (true) {
    plist_t item = nullptr;
    plist_array_next_item(node, iterator, &item);
    if (item == nullptr) break;
    std::optional<PropertyValue> value = convert(item);
    if (!value) return std::nullopt;
    array.push_back(std::move(*value));
  }
  return PropertyValue(std::move(array));
}

// XML dates are whole seconds, which libplist keeps exactly; a binary date missing from the
// exact values, or ambiguous among them, makes the list unreadable.
std::optional<PropertyValue> NodeConverter::convertDate(plist_t node) const {
  std::int32_t seconds = 0, microseconds = 0;
  plist_get_date_val(node, &seconds, &microseconds);
  if (exactDates_.empty()) return PropertyValue(PropertyDate{static_cast<double>(seconds)});
  const auto exact = exactDates_.find(detail::libplistDateKey(seconds, microseconds));
  if (exact == exactDates_.end() || std::isnan(exact->second)) return std::nullopt;
  return PropertyValue(PropertyDate{exact->second});
}

bool isBinaryPropertyList(std::string_view bytes) { return bytes.starts_with("bplist00"); }

std::optional<PropertyValue> parseWithinBounds(std::string_view bytes) {
  plist_t root = nullptr;
  const auto length = static_cast<std::uint32_t>(bytes.size());
  std::vector<double> exactDates;
  if (isBinaryPropertyList(bytes)) {
    if (!detail::binaryPropertyListWithinBounds(bytes, exactDates)) return std::nullopt;
    plist_from_bin(bytes.data(), length, &root);
  } else {
    if (!detail::xmlPropertyListWithinBounds(bytes)) return std::nullopt;
    const detail::ScopedCNumbers cNumbers;  // libplist reads <real> with strtod
    plist_from_xml(bytes.data(), length, &root);
  }
  const PlistNode guard(root);
  return NodeConverter(exactDates).convert(root);
}

// The whole regular file at `path`, absent when it is missing, unreadable or too large (also when
// it grows past the bound while being read).
std::optional<std::string> readSmallFile(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return std::nullopt;
  struct stat info {};
  std::optional<std::string> content;
  if (::fstat(fd, &info) == 0 && S_ISREG(info.st_mode) &&
      static_cast<std::uint64_t>(info.st_size) <= kMaxPropertyListBytes) {
    content.emplace();
    char chunk[16384];
    while (content && content->size() <= kMaxPropertyListBytes) {
      const ssize_t n = ::read(fd, chunk, sizeof chunk);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) content.reset();
      if (n <= 0) break;
      content->append(chunk, static_cast<std::size_t>(n));
    }
    if (content && content->size() > kMaxPropertyListBytes) content.reset();
  }
  ::close(fd);
  return content;
}

class LibplistReader final : public PropertyListReader {
 public:
  std::optional<PropertyValue> readFile(const std::string& path) override {
    const std::optional<std::string> bytes = readSmallFile(path);
    if (!bytes) return std::nullopt;
    return parsePropertyList(*bytes);
  }
};

}  // namespace

std::optional<PropertyValue> parsePropertyList(std::string_view bytes) {
  if (bytes.empty() || bytes.size() > kMaxPropertyListBytes) return std::nullopt;
  // Editors save XML with a UTF-8 byte-order mark, which the phone's reader skips and libplist
  // refuses. A binary list has no such mark: one in front of it stays and makes it unreadable.
  constexpr std::string_view kUtf8ByteOrderMark = "\xEF\xBB\xBF";
  if (bytes.starts_with(kUtf8ByteOrderMark) &&
      !isBinaryPropertyList(bytes.substr(kUtf8ByteOrderMark.size()))) {
    bytes.remove_prefix(kUtf8ByteOrderMark.size());
  }
  return parseWithinBounds(bytes);
}

namespace linux_provider {
PropertyListReader& propertyListReader() {
  static LibplistReader reader;
  return reader;
}
}  // namespace linux_provider

}  // namespace platform
