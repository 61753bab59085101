// Fuzz target: the OUTGOING and INCOMMING dump texts built from arbitrary exchanges (URL text,
// method, header fields, body, status, error). Building must not crash, and the texts must keep
// their shape whatever the fields hold.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fuzzer/FuzzedDataProvider.h>

#include "platform/Bytes.h"
#include "platform/Error.h"
#include "platform/Url.h"
#include "platform/UrlSession.h"
#include "zelnora_core/src/TrafficLog.h"

namespace {

using zelnora_core::detail::incomingText;
using zelnora_core::detail::isSendableHeaderField;
using zelnora_core::detail::outgoingText;

constexpr std::string_view kMethods[] = {"GET", "POST", "PUT", "DELETE"};

std::optional<platform::Bytes> consumeBody(FuzzedDataProvider& input) {
  if (!input.ConsumeBool()) return std::nullopt;
  const std::string text = input.ConsumeRandomLengthString(512);
  return platform::toBytes(text);
}

std::vector<std::pair<std::string, std::string>> consumeFields(FuzzedDataProvider& input) {
  std::vector<std::pair<std::string, std::string>> fields;
  const int count = input.ConsumeIntegralInRange(0, 6);
  for (int i = 0; i < count; ++i) {
    std::string name = input.ConsumeRandomLengthString(24);
    fields.emplace_back(std::move(name), input.ConsumeRandomLengthString(64));
  }
  return fields;
}

std::string_view bodyText(const platform::Bytes& body) {
  std::string_view text(reinterpret_cast<const char*>(body.data()), body.size());
  return platform::isValidUtf8(text) ? text : std::string_view();
}

// The header block of an OUTGOING dump: every line "name: value " with a token name; no CR or NUL
// (a field that could inject lines is left out, as it is left off the wire).
bool isCleanHeaderBlock(std::string_view block) {
  while (!block.empty()) {
    const std::size_t end = block.find('\n');
    if (end == std::string_view::npos) return false;
    const std::string_view line = block.substr(0, end);
    const std::size_t colon = line.find(": ");
    if (colon == std::string_view::npos || line.back() != ' ') return false;
    if (!isSendableHeaderField(line.substr(0, colon), line.substr(colon + 2))) return false;
    block.remove_prefix(end + 1);
  }
  return true;
}

void checkOutgoing(FuzzedDataProvider& input, const platform::Url& url) {
  platform::URLRequest request(url);
  request.httpMethod = std::string(input.PickValueInArray(kMethods));
  for (const auto& [name, value] : consumeFields(input)) request.addValue(value, name);
  request.httpBody = consumeBody(input);
  const std::string text = outgoingText(request);

  if (!text.starts_with(url.absoluteString())) __builtin_trap();
  // The body piece closes the dump exactly when there is a body; otherwise the header block does.
  std::string_view head = text;
  if (request.httpBody) {
    const std::string piece = "\n " + std::string(bodyText(*request.httpBody));
    if (!text.ends_with(piece)) __builtin_trap();
    head.remove_suffix(piece.size());
  } else if (!text.ends_with('\n')) {
    __builtin_trap();
  }
  const std::optional<platform::UrlComponents> components =
      platform::UrlComponents::parse(url.absoluteString());
  const std::string hostLine =
      "\nHOST: " + (components ? components->host().value_or("") : std::string()) + "\n";
  // The last match: a path or host decoded from the URL may hold the same text earlier.
  const std::size_t hostAt = head.rfind(hostLine);
  if (hostAt == std::string_view::npos) __builtin_trap();
  if (!isCleanHeaderBlock(head.substr(hostAt + hostLine.size()))) __builtin_trap();
}

void checkIncoming(FuzzedDataProvider& input, const std::string& urlText) {
  std::optional<platform::HTTPURLResponse> response;
  if (input.ConsumeBool()) {
    response.emplace();
    response->statusCode = input.ConsumeIntegral<int>();
    response->url = urlText;
    response->allHeaderFields = consumeFields(input);
  }
  const std::optional<platform::Bytes> body = consumeBody(input);
  std::optional<platform::Error> error;
  if (input.ConsumeBool()) {
    error.emplace();
    error->domain = input.ConsumeRandomLengthString(32);
    error->code = input.ConsumeIntegral<std::int64_t>();
    if (input.ConsumeBool()) error->description = input.ConsumeRandomLengthString(64);
  }
  const std::string text = incomingText(response, body, error);

  if (response && !urlText.empty() && !text.starts_with(urlText)) __builtin_trap();
  if (response &&
      text.find("HTTP " + std::to_string(response->statusCode) + " ") == std::string::npos) {
    __builtin_trap();
  }
  if (!response && !body && !error && !text.empty()) __builtin_trap();
  if (error) {
    if (!text.ends_with("\nError: " + error->localizedDescription() + "\n")) __builtin_trap();
  } else if (body) {
    if (!text.ends_with("\n" + std::string(bodyText(*body)) + "\n")) __builtin_trap();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  const std::string urlText = input.ConsumeRandomLengthString(256);
  if (const std::optional<platform::Url> url = platform::Url::parse(urlText)) {
    checkOutgoing(input, *url);
  }
  checkIncoming(input, urlText);
  return 0;
}
