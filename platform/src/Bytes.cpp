#include "platform/Bytes.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace platform {
namespace {

bool isContinuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }

// Length of the sequence starting with `lead`, and the bounds its second byte must lie in (these
// bounds exclude overlongs, surrogates and code points above U+10FFFF). 0 for an invalid lead.
struct SequenceShape {
  int length;
  unsigned char secondMin, secondMax;
};

SequenceShape shapeOf(unsigned char lead) {
  if (lead < 0x80) return {1, 0, 0};
  if (lead >= 0xC2 && lead <= 0xDF) return {2, 0x80, 0xBF};
  if (lead == 0xE0) return {3, 0xA0, 0xBF};
  if (lead == 0xED) return {3, 0x80, 0x9F};
  if (lead >= 0xE1 && lead <= 0xEF) return {3, 0x80, 0xBF};
  if (lead == 0xF0) return {4, 0x90, 0xBF};
  if (lead >= 0xF1 && lead <= 0xF3) return {4, 0x80, 0xBF};
  if (lead == 0xF4) return {4, 0x80, 0x8F};
  return {0, 0, 0};
}

// Length of the well-formed sequence at `at`, or the length of its maximal invalid subpart (the
// longest start of a well-formed sequence, at least one byte) as a negative number.
int sequenceAt(std::string_view bytes, std::size_t at) {
  const SequenceShape shape = shapeOf(static_cast<unsigned char>(bytes[at]));
  if (shape.length <= 1) return shape.length == 1 ? 1 : -1;
  const std::size_t available = bytes.size() - at;
  if (available < 2) return -1;
  const auto second = static_cast<unsigned char>(bytes[at + 1]);
  if (second < shape.secondMin || second > shape.secondMax) return -1;
  for (int k = 2; k < shape.length; ++k) {
    if (static_cast<std::size_t>(k) >= available ||
        !isContinuation(static_cast<unsigned char>(bytes[at + static_cast<std::size_t>(k)]))) {
      return -k;
    }
  }
  return shape.length;
}

}  // namespace

std::string repairedUtf8(std::string_view bytes) {
  if (isValidUtf8(bytes)) return std::string(bytes);
  std::string text;
  text.reserve(bytes.size() + 8);
  for (std::size_t at = 0; at < bytes.size();) {
    const int length = sequenceAt(bytes, at);
    if (length > 0) {
      text.append(bytes.substr(at, static_cast<std::size_t>(length)));
    } else {
      text.append("\xEF\xBF\xBD");  // U+FFFD REPLACEMENT CHARACTER
    }
    at += static_cast<std::size_t>(length > 0 ? length : -length);
  }
  return text;
}

bool isValidUtf8(std::string_view bytes) {
  std::size_t i = 0;
  while (i < bytes.size()) {
    const auto lead = static_cast<unsigned char>(bytes[i]);
    const SequenceShape shape = shapeOf(lead);
    if (shape.length == 0 || bytes.size() - i < static_cast<std::size_t>(shape.length))
      return false;
    if (shape.length > 1) {
      const auto second = static_cast<unsigned char>(bytes[i + 1]);
      if (second < shape.secondMin || second > shape.secondMax) return false;
      for (int k = 2; k < shape.length; ++k) {
        if (!isContinuation(static_cast<unsigned char>(bytes[i + k]))) return false;
      }
    }
    i += static_cast<std::size_t>(shape.length);
  }
  return true;
}

}  // namespace platform
