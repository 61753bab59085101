// Checks run on untrusted property-list bytes before libplist sees them: libplist 2.2 parses binary
// object graphs recursively (expanding shared objects at every reference) and frees recursively,
// and loses or garbles some values it reads (dates, unpaired UTF-16 surrogates).
#include <bit>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include "PlistCodec.h"

namespace platform::detail {
namespace {

constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kTrailerSize = 32;

std::uint64_t readBigEndian(const unsigned char* bytes, std::size_t width) {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < width; ++i) value = (value << 8) | bytes[i];
  return value;
}

class BinaryObjectGraph {
 public:
  explicit BinaryObjectGraph(std::string_view bytes)
      : data_(reinterpret_cast<const unsigned char*>(bytes.data())), size_(bytes.size()) {}

  bool readTrailer();
  std::uint64_t root() const { return root_; }
  // Appends the references held by object `index` (none for scalars) and, for a date, its value
  // to `dates`; false when malformed or not readable faithfully.
  bool children(std::uint64_t index, std::vector<std::uint64_t>& out, bool& isContainer,
                std::vector<double>& dates) const;

 private:
  bool objectOffset(std::uint64_t index, std::uint64_t& offset) const;
  bool readCount(std::uint64_t& position, std::uint64_t& count) const;
  bool stringHasNoNul(std::uint64_t position, std::size_t unitSize) const;
  bool utf16HasOnlyPairedSurrogates(std::uint64_t position) const;
  bool readDate(std::uint64_t position, std::vector<double>& dates) const;

  const unsigned char* data_;
  std::size_t size_;
  std::size_t offsetWidth_ = 0, refWidth_ = 0;
  std::uint64_t objectCount_ = 0, root_ = 0, offsetTable_ = 0;
};

bool BinaryObjectGraph::readTrailer() {
  if (size_ < kHeaderSize + 1 + kTrailerSize) return false;
  const unsigned char* trailer = data_ + size_ - kTrailerSize;
  offsetWidth_ = trailer[6];
  refWidth_ = trailer[7];
  objectCount_ = readBigEndian(trailer + 8, 8);
  root_ = readBigEndian(trailer + 16, 8);
  offsetTable_ = readBigEndian(trailer + 24, 8);
  const std::uint64_t tableEnd = size_ - kTrailerSize;
  if (offsetWidth_ < 1 || offsetWidth_ > 8 || refWidth_ < 1 || refWidth_ > 8) return false;
  if (objectCount_ == 0 || root_ >= objectCount_) return false;
  if (offsetTable_ < kHeaderSize || offsetTable_ > tableEnd) return false;
  return objectCount_ <= (tableEnd - offsetTable_) / offsetWidth_;
}

bool BinaryObjectGraph::objectOffset(std::uint64_t index, std::uint64_t& offset) const {
  if (index >= objectCount_) return false;
  offset = readBigEndian(data_ + offsetTable_ + index * offsetWidth_, offsetWidth_);
  return offset >= kHeaderSize && offset < offsetTable_;
}

// Reads the element count of the container whose marker is at `position`, leaving `position` at
// its first reference.
bool BinaryObjectGraph::readCount(std::uint64_t& position, std::uint64_t& count) const {
  count = data_[position] & 0x0F;
  ++position;
  if (count != 0x0F) return true;
  if (position >= offsetTable_) return false;
  const unsigned char intMarker = data_[position];
  if ((intMarker & 0xF0) != 0x10 || (intMarker & 0x0F) > 3) return false;
  const std::size_t width = std::size_t{1} << (intMarker & 0x0F);
  ++position;
  if (width > offsetTable_ - position) return false;
  count = readBigEndian(data_ + position, width);
  position += width;
  return true;
}

bool BinaryObjectGraph::children(std::uint64_t index, std::vector<std::uint64_t>& out,
                                 bool& isContainer, std::vector<double>& dates) const {
  std::uint64_t position = 0;
  if (!objectOffset(index, position)) return false;
  const unsigned kind = data_[position] >> 4;
  isContainer = kind == 0xA || kind == 0xC || kind == 0xD;
  if (kind == 0x5) return stringHasNoNul(position, 1);
  if (kind == 0x6) return stringHasNoNul(position, 2) && utf16HasOnlyPairedSurrogates(position);
  if (kind == 0x3) return readDate(position, dates);
  if (!isContainer) return true;
  std::uint64_t count = 0;
  if (!readCount(position, count)) return false;
  const std::uint64_t references = kind == 0xD ? count * 2 : count;
  if (count > kMaxPropertyListValues || references > (offsetTable_ - position) / refWidth_) {
    return false;
  }
  for (std::uint64_t i = 0; i < references; ++i) {
    const std::uint64_t child = readBigEndian(data_ + position + i * refWidth_, refWidth_);
    if (child >= objectCount_) return false;
    out.push_back(child);
  }
  return true;
}

// libplist aborts (an assertion) when a string or dictionary key holds a NUL character, so such a
// string makes the whole list unreadable. `unitSize` is 1 for ASCII strings, 2 for UTF-16 ones.
bool BinaryObjectGraph::stringHasNoNul(std::uint64_t position, std::size_t unitSize) const {
  std::uint64_t count = 0;
  if (!readCount(position, count)) return false;
  if (count > (offsetTable_ - position) / unitSize) return false;
  for (std::uint64_t i = 0; i < count; ++i) {
    const unsigned char* unit = data_ + position + i * unitSize;
    if (unit[0] == 0 && (unitSize == 1 || unit[1] == 0)) return false;
  }
  return true;
}

// libplist drops an unpaired surrogate when it converts UTF-16 to UTF-8 (it has no UTF-8 form), so
// the text read would silently differ from the text stored: such a list is refused.
bool BinaryObjectGraph::utf16HasOnlyPairedSurrogates(std::uint64_t position) const {
  std::uint64_t count = 0;
  if (!readCount(position, count)) return false;  // bounds already checked by stringHasNoNul
  const auto unitAt = [&](std::uint64_t i) {
    return static_cast<unsigned>(readBigEndian(data_ + position + i * 2, 2));
  };
  const auto isHigh = [](unsigned unit) { return unit >= 0xD800 && unit <= 0xDBFF; };
  const auto isLow = [](unsigned unit) { return unit >= 0xDC00 && unit <= 0xDFFF; };
  for (std::uint64_t i = 0; i < count; ++i) {
    const unsigned unit = unitAt(i);
    if (isLow(unit)) return false;
    if (!isHigh(unit)) continue;
    if (i + 1 == count || !isLow(unitAt(i + 1))) return false;
    ++i;
  }
  return true;
}

// libplist keeps a date only as (seconds, microseconds), so the exact value is taken from the
// bytes here. Dates it cannot carry (not finite, seconds beyond 32 bits) are refused.
bool BinaryObjectGraph::readDate(std::uint64_t position, std::vector<double>& dates) const {
  const unsigned widthCode = data_[position] & 0x0F;
  if (widthCode != 2 && widthCode != 3) return false;
  const std::size_t width = std::size_t{1} << widthCode;
  if (width > offsetTable_ - position - 1) return false;
  const std::uint64_t bits = readBigEndian(data_ + position + 1, width);
  const double seconds = width == 8 ? std::bit_cast<double>(bits)
                                    : std::bit_cast<float>(static_cast<std::uint32_t>(bits));
  if (!isCarriableDate(seconds)) return false;
  dates.push_back(seconds);
  return true;
}

// Position just past `terminator` from `from`, or npos when it never comes.
std::size_t skipPast(std::string_view text, std::size_t from, std::string_view terminator) {
  const std::size_t at = text.find(terminator, from);
  return at == std::string_view::npos ? at : at + terminator.size();
}

// "&#0;", "&#x0;", "&#000;", "&#X00;" and the like.
bool hasNulCharacterReference(std::string_view text) {
  for (std::size_t at = text.find("&#"); at != std::string_view::npos;
       at = text.find("&#", at + 2)) {
    std::size_t i = at + 2;
    if (i < text.size() && (text[i] == 'x' || text[i] == 'X')) ++i;
    const std::size_t digits = i;
    while (i < text.size() && text[i] == '0') ++i;
    if (i > digits && i < text.size() && text[i] == ';') return true;
  }
  return false;
}

}  // namespace

bool binaryPropertyListWithinBounds(std::string_view bytes, std::vector<double>& dates) {
  BinaryObjectGraph graph(bytes);
  if (!graph.readTrailer()) return false;
  std::vector<std::pair<std::uint64_t, int>> pending{{graph.root(), 1}};
  std::vector<std::uint64_t> children;
  std::size_t visited = 0;
  while (!pending.empty()) {
    const auto [index, depth] = pending.back();
    pending.pop_back();
    if (++visited > kMaxPropertyListValues) return false;
    children.clear();
    bool isContainer = false;
    if (!graph.children(index, children, isContainer, dates)) return false;
    if (isContainer && depth > kMaxPropertyListDepth) return false;
    if (pending.size() + children.size() > kMaxPropertyListValues) return false;
    for (const std::uint64_t child : children) pending.emplace_back(child, depth + 1);
  }
  return true;
}

bool xmlPropertyListWithinBounds(std::string_view text) {
  // Every element counts (the <plist> root and the leaf elements add two levels to the value
  // nesting); comments, CDATA, declarations and processing instructions are skipped as a parser
  // would, so that tags inside them neither open nor close anything.
  constexpr int kMaxElementDepth = kMaxPropertyListDepth + 2;
  // A NUL character, raw or as a character reference, would abort libplist (see above).
  if (text.find('\0') != std::string_view::npos || hasNulCharacterReference(text)) return false;
  int depth = 0;
  std::size_t position = text.find('<');
  while (position != std::string_view::npos) {
    const std::string_view rest = text.substr(position);
    std::size_t next;
    if (rest.starts_with("<!--")) {
      next = skipPast(text, position + 4, "-->");
    } else if (rest.starts_with("<![CDATA[")) {
      next = skipPast(text, position + 9, "]]>");
    } else if (rest.starts_with("<?") || rest.starts_with("<!")) {
      next = skipPast(text, position + 2, ">");
    } else {
      next = skipPast(text, position + 1, ">");
      if (next == std::string_view::npos) return true;  // unterminated: the parser refuses it
      const bool closing = rest.size() > 1 && rest[1] == '/';
      const bool selfClosing = text[next - 2] == '/';
      if (closing) {
        depth = depth > 0 ? depth - 1 : 0;
      } else if (!selfClosing) {  // anything else that opens counts, even if malformed
        if (++depth > kMaxElementDepth) return false;
      }
    }
    if (next == std::string_view::npos) return true;
    position = text.find('<', next);
  }
  return true;
}

}  // namespace platform::detail
