#include "platform/internal/Json.h"

#include <array>

namespace platform {
namespace {

using Json = nlohmann::json;

// The short escapes the phone's encoder uses; every other control byte becomes \u00xx.
const char* shortEscape(unsigned char byte) {
  switch (byte) {
    case '"': return "\\\"";
    case '\\': return "\\\\";
    case '/': return "\\/";
    case '\b': return "\\b";
    case '\f': return "\\f";
    case '\n': return "\\n";
    case '\r': return "\\r";
    case '\t': return "\\t";
    default: return nullptr;
  }
}

void appendUnicodeEscape(std::string& out, unsigned char byte) {
  static constexpr std::array<char, 16> kHex = {'0', '1', '2', '3', '4', '5', '6', '7',
                                                '8', '9', 'a', 'b', 'c', 'd', 'e', 'f'};
  out += "\\u00";
  out += kHex[byte >> 4];
  out += kHex[byte & 0x0F];
}

}  // namespace

std::optional<Json> parseJson(std::string_view text) {
  if (!isValidUtf8(text)) return std::nullopt;
  // The parser itself is iterative, but dump(), copies and == recurse: a value nested deeper than
  // the bound must never be built. The callback drops such containers and remembers that it did.
  bool tooDeep = false;
  const Json::parser_callback_t limitDepth = [&tooDeep](int depth, Json::parse_event_t event,
                                                        Json&) {
    const bool opens =
        event == Json::parse_event_t::object_start || event == Json::parse_event_t::array_start;
    if (opens && depth >= kMaxJsonDepth) {
      tooDeep = true;
      return false;
    }
    return !tooDeep;
  };
  Json result = Json::parse(text.begin(), text.end(), limitDepth, /*allow_exceptions=*/false);
  if (tooDeep || result.is_discarded()) return std::nullopt;
  return result;
}

void appendJsonString(std::string& out, std::string_view text) {
  out += '"';
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (const char* escape = shortEscape(byte)) {
      out += escape;
    } else if (byte < 0x20) {
      appendUnicodeEscape(out, byte);
    } else {
      out += c;
    }
  }
  out += '"';
}

void JsonObjectWriter::key(std::string_view key) {
  if (!first_) text_ += ',';
  first_ = false;
  appendJsonString(text_, key);
  text_ += ':';
}

JsonObjectWriter& JsonObjectWriter::string(std::string_view key, std::string_view value) {
  this->key(key);
  appendJsonString(text_, value);
  return *this;
}

JsonObjectWriter& JsonObjectWriter::boolean(std::string_view key, bool value) {
  this->key(key);
  text_ += value ? "true" : "false";
  return *this;
}

JsonObjectWriter& JsonObjectWriter::raw(std::string_view key, std::string_view json) {
  this->key(key);
  text_ += json;
  return *this;
}

std::string JsonObjectWriter::finish() && {
  text_ += '}';
  return std::move(text_);
}

}  // namespace platform
