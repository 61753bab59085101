#include "TrafficLog.h"

#include <string_view>

#include "platform/Console.h"
#include "platform/Services.h"
#include "platform/Url.h"
#include "platform/internal/HttpText.h"

namespace zelnora_core::detail {
namespace {

std::string_view bodyText(const platform::Bytes& body) {
  std::string_view text(reinterpret_cast<const char*>(body.data()), body.size());
  return platform::isValidUtf8(text) ? text : std::string_view();
}

void writeBlock(std::string_view banner, std::string text) {
  platform::Console& console = platform::console();
  std::string piece(banner);
  piece.push_back('\n');
  console.write(piece);
  text.push_back('\n');
  console.write(text);
  piece.assign(kEndBanner).push_back('\n');
  console.write(piece);
}

}  // namespace

bool isSendableHeaderField(std::string_view name, std::string_view value) {
  return platform::http::isToken(name) && platform::http::isSendableValue(value);
}

std::string outgoingText(const platform::URLRequest& request) {
  const std::string& url = request.url.absoluteString();
  std::optional<platform::UrlComponents> components = platform::UrlComponents::parse(url);
  std::string text;
  text.reserve(256 + (request.httpBody ? request.httpBody->size() : 0));
  text.append(url).append(" \n\n\n").append(request.httpMethod).append(" ");
  if (components) text.append(components->path());
  text.append("?");
  if (components) text.append(components->query().value_or(""));
  text.append(" HTTP/1.1 \n\nHOST: ");
  if (components) text.append(components->host().value_or(""));
  text.append("\n");
  for (const auto& [name, value] : request.allHTTPHeaderFields.fields()) {
    if (!isSendableHeaderField(name, value)) continue;
    text.append(name).append(": ").append(value).append(" \n");
  }
  if (request.httpBody) text.append("\n ").append(bodyText(*request.httpBody));
  return text;
}

std::string incomingText(const std::optional<platform::HTTPURLResponse>& response,
                         const std::optional<platform::Bytes>& body,
                         const std::optional<platform::Error>& error) {
  std::optional<std::string_view> url;
  if (response && !response->url.empty()) url = response->url;
  std::optional<platform::UrlComponents> components =
      platform::UrlComponents::parse(url.value_or(std::string_view()));
  std::string text;
  if (url) text.append(*url).append("\n\n");
  if (response) {
    text.append("HTTP ").append(std::to_string(response->statusCode)).append(" ");
    if (components) text.append(components->path());
    text.append("?");
    if (components) text.append(components->query().value_or(""));
    text.append("\n");
  }
  if (components) {
    if (std::optional<std::string> host = components->host())
      text.append("Host: ").append(*host).append("\n");
  }
  if (response) {
    for (const auto& [name, value] : response->allHeaderFields) {
      text.append(name).append(": ").append(value).append("\n");
    }
  }
  if (body) text.append("\n").append(bodyText(*body)).append("\n");
  if (error) text.append("\nError: ").append(error->localizedDescription()).append("\n");
  return text;
}

void logRequest(const platform::URLRequest& request) {
  writeBlock(kOutgoingBanner, outgoingText(request));
}

void logResponse(const std::optional<platform::HTTPURLResponse>& response,
                 const std::optional<platform::Bytes>& body,
                 const std::optional<platform::Error>& error) {
  writeBlock(kIncomingBanner, incomingText(response, body, error));
}

}  // namespace zelnora_core::detail
