// When the Linux URL session may send a request again, and what libcurl's trace says about it.
#include "ResendRule.h"

#include <array>
#include <charconv>

namespace platform::detail {
namespace {

constexpr std::size_t kRememberedConnections = 64;

// The number that follows `marker` in `text` (blanks and '#' skipped), or -1.
std::int64_t numberAfter(std::string_view text, std::string_view marker) {
  const auto at = text.find(marker);
  if (at == std::string_view::npos) return -1;
  auto rest = text.substr(at + marker.size());
  while (!rest.empty() && (rest.front() == ' ' || rest.front() == '#')) rest.remove_prefix(1);
  std::int64_t value = -1;
  const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), value);
  return error == std::errc() ? value : -1;
}

bool contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

}  // namespace

bool shouldResend(const AttemptOutcome& outcome) {
  if (outcome.alreadyResent || !outcome.connectionLost || outcome.answerStarted) return false;
  if (outcome.refusedByPeer) return true;  // the server said it did not act on it
  if (!outcome.connected) return false;    // a failed connect fails the same way again
  if (!outcome.requestWritten) return true;
  // A kept-alive connection the server closed as the request crossed it (RFC 9110, 9.2.2).
  return outcome.idempotentMethod && outcome.reusedConnection;
}

bool isIdempotentMethod(std::string_view method) {
  constexpr std::array<std::string_view, 6> kIdempotent = {"GET",    "HEAD",    "PUT",
                                                           "DELETE", "OPTIONS", "TRACE"};
  for (const auto name : kIdempotent) {
    if (method == name) return true;
  }
  return false;
}

void GoawayLedger::record(long connection, std::int64_t lastStreamId) {
  if (connection < 0 || lastStreamId < 0) return;
  lastStreamByConnection_[connection] = lastStreamId;
  if (lastStreamByConnection_.size() > kRememberedConnections) {
    lastStreamByConnection_.erase(lastStreamByConnection_.begin());  // the oldest connection
  }
}

bool GoawayLedger::refused(long connection, std::int64_t streamId) const {
  const auto found = lastStreamByConnection_.find(connection);
  return found != lastStreamByConnection_.end() && streamId > found->second;
}

void AttemptTrace::onText(std::string_view text) {
  if (contains(text, "Connected to ")) {
    connection_ = static_cast<long>(numberAfter(text, "(#"));
    reused_ = false;
  } else if (contains(text, "Re-using existing connection")) {
    connection_ = static_cast<long>(numberAfter(text, "connection"));
    if (connection_ < 0) connection_ = static_cast<long>(numberAfter(text, "(#"));
    reused_ = true;
  } else if (contains(text, "Using Stream ID:")) {
    streamId_ = numberAfter(text, "Using Stream ID:");
  } else if (contains(text, "GOAWAY") && contains(text, "last_stream=")) {
    ledger_->record(connection_, numberAfter(text, "last_stream="));
  }
  if (contains(text, "REFUSED_STREAM")) sawRefusedStream_ = true;
}

void AttemptTrace::onHeaderOut(std::string_view head) {
  if (head.starts_with("CONNECT ")) {
    tunnelOpening_ = true;  // the proxy's tunnel, not this request
  } else {
    current_.requestWritten = current_.connected;
  }
}

void AttemptTrace::onAnswerIn() {
  if (!tunnelOpening_ && current_.connected) current_.answerStarted = true;
}

bool AttemptTrace::beginAttempt() {
  if (attempts_ > 0 && current_.requestWritten) return false;
  ++attempts_;
  current_ = AttemptOutcome{};
  current_.connected = true;
  current_.reusedConnection = reused_;
  requestConnection_ = connection_;
  tunnelOpening_ = false;
  sawRefusedStream_ = false;
  streamId_ = -1;
  return true;
}

AttemptOutcome AttemptTrace::outcome(bool lost) const {
  AttemptOutcome facts = current_;
  facts.connectionLost = lost;
  facts.refusedByPeer =
      sawRefusedStream_ || (streamId_ > 0 && ledger_->refused(requestConnection_, streamId_));
  return facts;
}

}  // namespace platform::detail
