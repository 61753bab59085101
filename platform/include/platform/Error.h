/// \file
/// Error values with a domain and a code, as the phone's NSError carries them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/export.h"

namespace platform {

/// Domain of errors raised by the HTTP transport (the phone's NSURLErrorDomain).
inline constexpr const char* kURLErrorDomain = "NSURLErrorDomain";

/// Codes of the transport errors, with the phone's values.
enum URLErrorCode : std::int64_t {
  kURLErrorUnknown = -1,
  kURLErrorCancelled = -999,
  kURLErrorBadURL = -1000,
  kURLErrorTimedOut = -1001,
  kURLErrorUnsupportedURL = -1002,
  kURLErrorCannotFindHost = -1003,
  kURLErrorCannotConnectToHost = -1004,
  kURLErrorNetworkConnectionLost = -1005,
  kURLErrorHTTPTooManyRedirects = -1007,
  kURLErrorBadServerResponse = -1011,
  kURLErrorUserAuthenticationRequired = -1013,
  kURLErrorCannotDecodeContentData = -1016,
  kURLErrorDataLengthExceedsMaximum = -1103,
  kURLErrorSecureConnectionFailed = -1200,
  kURLErrorServerCertificateUntrusted = -1202,
};

struct ZELNORA_PLATFORM_EXPORT Error {
  std::string domain;
  std::int64_t code = 0;
  /// Set for errors that come with their own text (transport errors); absent for errors that carry
  /// only a domain and a code, whose description is then derived from those two.
  std::optional<std::string> description;

  /// The human-readable text: `description` when set, otherwise the phone's generic wording
  /// "The operation couldn’t be completed. (<domain> error <code>.)" (with U+2019).
  std::string localizedDescription() const;

  bool operator==(const Error&) const = default;
};

}  // namespace platform
