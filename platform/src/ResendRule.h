// When the Linux URL session may send a request again: only when the server provably did not act
// on it, or when the method is idempotent and the connection died before any answer byte.
#pragma once

#include <cstdint>
#include <map>
#include <string_view>

namespace platform::detail {

/// What one attempt of a request met, as libcurl reported it.
struct AttemptOutcome {
  bool connectionLost = false;    // send or receive failed, the peer closed or reset the stream
  bool connected = false;         // a connection (tunnel and TLS included) carried the attempt
  bool requestWritten = false;    // bytes of this request went out (not a proxy's CONNECT)
  bool answerStarted = false;     // an answer byte came back
  bool reusedConnection = false;  // the connection had carried earlier exchanges
  bool refusedByPeer = false;     // HTTP/2: REFUSED_STREAM, or a stream above GOAWAY's last id
  bool idempotentMethod = false;
  bool alreadyResent = false;
};

/// True when the request goes again, once, on a fresh connection.
bool shouldResend(const AttemptOutcome& outcome);

/// GET, HEAD, PUT, DELETE, OPTIONS and TRACE: sending them twice has the effect of once.
bool isIdempotentMethod(std::string_view method);

/// The last stream id each connection's GOAWAY said its server may have processed, by libcurl's
/// connection number. Bounded: only the most recent connections are remembered.
class GoawayLedger {
 public:
  void record(long connection, std::int64_t lastStreamId);
  /// True when `connection` announced a GOAWAY whose last stream id is below `streamId`.
  bool refused(long connection, std::int64_t streamId) const;

 private:
  std::map<long, std::int64_t> lastStreamByConnection_;
};

/// Reads libcurl's verbose trace of one transfer to learn what each attempt met. Only libcurl's
/// informational lines are parsed; a libcurl that words them differently leaves the facts unknown,
/// which never allows a resend a server might have acted on.
class AttemptTrace {
 public:
  explicit AttemptTrace(GoawayLedger& ledger) : ledger_(&ledger) {}

  void onText(std::string_view text);
  void onHeaderOut(std::string_view head);
  void onDataOut() { current_.requestWritten = current_.connected; }
  void onAnswerIn();
  /// A request is about to go out on the connection now established. False when an earlier
  /// attempt of this request already wrote bytes: the facts of that attempt are kept.
  bool beginAttempt();
  /// What the attempt in flight met so far; `lost` says whether the transfer failed as a lost
  /// connection.
  AttemptOutcome outcome(bool lost) const;
  bool requestWritten() const { return current_.requestWritten; }

 private:
  GoawayLedger* ledger_;
  AttemptOutcome current_;
  long connection_ = -1;         // libcurl's number of the connection being set up or used
  long requestConnection_ = -1;  // the one that carries the current attempt
  bool reused_ = false;
  bool tunnelOpening_ = false;  // a proxy CONNECT is under way: its answer is not ours
  bool sawRefusedStream_ = false;
  std::int64_t streamId_ = -1;
  int attempts_ = 0;
};

}  // namespace platform::detail
