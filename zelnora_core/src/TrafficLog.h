// Internal: the OUTGOING and INCOMMING dumps of every API exchange on standard output. The texts
// are pure functions of the exchange; the log functions only add the banners and write.
#pragma once

#include <optional>
#include <string>

#include "platform/Bytes.h"
#include "platform/Error.h"
#include "platform/UrlSession.h"

namespace zelnora_core::detail {

inline constexpr std::string_view kOutgoingBanner =
    "\n - - - - - - - - - - OUTGOING - - - - - - - - - - \n";
inline constexpr std::string_view kIncomingBanner =
    "\n - - - - - - - - - - INCOMMING - - - - - - - - - - \n";
inline constexpr std::string_view kEndBanner = "\n - - - - - - - - - -  END - - - - - - - - - - \n";

// URL, request line (always with "?"), "HOST: " line, one "name: value \n" per header field of
// the request (custom "Host" or "Content-Length" included: the session never sends those, the
// dump shows them as they stand), and " " + body (as UTF-8, empty when invalid) when there is one.
std::string outgoingText(const platform::URLRequest& request);

// URL, status line, "Host: " line, header lines, body and error, each only when it exists.
std::string incomingText(const std::optional<platform::HTTPURLResponse>& response,
                         const std::optional<platform::Bytes>& body,
                         const std::optional<platform::Error>& error);

// Each writes three pieces to the console (banner, text, END banner), each with its own line feed.
void logRequest(const platform::URLRequest& request);
void logResponse(const std::optional<platform::HTTPURLResponse>& response,
                 const std::optional<platform::Bytes>& body,
                 const std::optional<platform::Error>& error);

// False when the name is not an HTTP token or the value holds CR, LF or NUL: such a field would
// inject header lines, so it is never sent and never dumped.
bool isSendableHeaderField(std::string_view name, std::string_view value);

}  // namespace zelnora_core::detail
