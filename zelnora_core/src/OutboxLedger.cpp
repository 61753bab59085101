#include "OutboxLedger.h"

#include <algorithm>
#include <charconv>
#include <string_view>
#include <system_error>

namespace zelnora_core::detail {
namespace {

using Milliseconds = std::chrono::milliseconds;

// The delivery state, kept by the store as one text record: "<owner> <lease until> <next attempt>
// <failed attempts>", times in milliseconds since 1970, owner "-" when no one holds the lease.
struct DeliveryState {
  std::string owner;
  SystemTime leaseUntil;
  SystemTime nextAttempt;
  int failedAttempts = 0;
};

std::optional<std::int64_t> number(std::string_view& text) {
  const std::size_t start = text.find_first_not_of(' ');
  if (start == std::string_view::npos) return std::nullopt;
  text.remove_prefix(start);
  std::int64_t value = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc()) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return value;
}

SystemTime fromMilliseconds(std::int64_t value) { return SystemTime(Milliseconds(value)); }
std::int64_t toMilliseconds(SystemTime time) {
  return std::chrono::duration_cast<Milliseconds>(time.time_since_epoch()).count();
}

// A record that cannot be read is no state at all: no lease, no back-off.
DeliveryState decode(std::string_view text) {
  DeliveryState state;
  const std::size_t space = text.find(' ');
  if (space == std::string_view::npos) return state;
  std::string owner(text.substr(0, space));
  text.remove_prefix(space);
  auto lease = number(text);
  auto next = number(text);
  auto attempts = number(text);
  if (!lease || !next || !attempts) return state;
  state.owner = owner == "-" ? std::string() : std::move(owner);
  state.leaseUntil = fromMilliseconds(*lease);
  state.nextAttempt = fromMilliseconds(*next);
  state.failedAttempts = static_cast<int>(*attempts);
  return state;
}

std::string encode(const DeliveryState& state) {
  return (state.owner.empty() ? std::string("-") : state.owner) + " " +
         std::to_string(toMilliseconds(state.leaseUntil)) + " " +
         std::to_string(toMilliseconds(state.nextAttempt)) + " " +
         std::to_string(state.failedAttempts);
}

bool beyond(const platform::StoredTotals& totals, const OutboxLimits& limits,
            SystemTime oldestAllowed) {
  return totals.count > limits.maxReports || totals.bytes > limits.maxBytes ||
         (totals.oldest && *totals.oldest < oldestAllowed);
}

// Drops the oldest reports until the outbox is within `limits`; how many went.
std::size_t dropBeyondLimits(platform::ReportOutboxTransaction& outbox, const OutboxLimits& limits,
                             SystemTime now) {
  constexpr std::size_t kReadAtOnce = 64;
  const SystemTime oldestAllowed = now - limits.maxAge;
  std::size_t dropped = 0;
  platform::StoredTotals totals = outbox.totals();
  while (beyond(totals, limits, oldestAllowed)) {
    std::vector<std::int64_t> gone;
    for (const platform::StoredReport& report : outbox.oldest(kReadAtOnce)) {
      if (totals.count <= limits.maxReports && totals.bytes <= limits.maxBytes &&
          report.keptAt >= oldestAllowed) {
        break;
      }
      gone.push_back(report.id);
      totals.count -= 1;
      totals.bytes -= std::min(totals.bytes, report.body.size());
    }
    if (gone.empty()) break;
    outbox.remove(gone);
    dropped += gone.size();
    totals = outbox.totals();
  }
  return dropped;
}

// Ends `owner`'s lease (only theirs) with `change` applied to the state; removes `ids` in any case.
template <typename Change>
void finish(platform::ReportOutbox& store, const std::string& owner,
            const std::vector<std::int64_t>& ids, Change change) {
  store.transact([&](platform::ReportOutboxTransaction& outbox) {
    outbox.remove(ids);
    DeliveryState state = decode(outbox.state());
    if (state.owner != owner) return true;
    state.owner.clear();
    state.leaseUntil = {};
    change(state);
    outbox.setState(encode(state));
    return true;
  });
}

}  // namespace

std::optional<std::size_t> OutboxLedger::keep(const platform::Bytes& report, SystemTime keptAt,
                                              SystemTime notBefore, const OutboxLimits& limits) {
  std::size_t dropped = 0;
  const bool kept = store_.transact([&](platform::ReportOutboxTransaction& outbox) {
    if (!outbox.append(report, keptAt)) return false;
    dropped = dropBeyondLimits(outbox, limits, keptAt);
    DeliveryState state = decode(outbox.state());
    if (notBefore > state.nextAttempt) {
      state.nextAttempt = notBefore;
      outbox.setState(encode(state));
    }
    return true;
  });
  if (!kept) return std::nullopt;
  return dropped;
}

std::optional<ClaimedBatch> OutboxLedger::claim(const ClaimRequest& request) {
  ClaimedBatch batch;
  const bool claimed = store_.transact([&](platform::ReportOutboxTransaction& outbox) {
    DeliveryState state = decode(outbox.state());
    const bool leasedElsewhere = !state.owner.empty() && state.owner != request.owner &&
                                 state.leaseUntil > request.now &&
                                 platform::outboxOwnerMayRun(state.owner);
    if (leasedElsewhere || (!request.ignoreBackOff && state.nextAttempt > request.now)) {
      return false;
    }
    std::size_t bytes = 0;
    for (platform::StoredReport& report : outbox.oldest(request.maxReports)) {
      if (!batch.ids.empty() && bytes + report.body.size() > request.maxBytes) break;
      bytes += report.body.size();
      batch.ids.push_back(report.id);
      batch.reports.push_back(std::move(report.body));
    }
    if (batch.ids.empty()) return false;
    batch.failedAttempts = state.failedAttempts;
    state.owner = request.owner;
    state.leaseUntil = request.now + request.lease;
    outbox.setState(encode(state));
    return true;
  });
  if (!claimed) return std::nullopt;
  return batch;
}

void OutboxLedger::complete(const std::string& owner, const std::vector<std::int64_t>& ids) {
  finish(store_, owner, ids, [](DeliveryState& state) {
    state.nextAttempt = {};
    state.failedAttempts = 0;
  });
}

void OutboxLedger::discard(const std::string& owner, const std::vector<std::int64_t>& ids) {
  finish(store_, owner, ids, [](DeliveryState&) {});
}

void OutboxLedger::release(const std::string& owner, SystemTime nextAttempt) {
  finish(store_, owner, {}, [&](DeliveryState& state) {
    state.nextAttempt = nextAttempt;
    state.failedAttempts += 1;
  });
}

std::optional<LedgerStatus> OutboxLedger::status() {
  LedgerStatus status;
  const bool read = store_.transact([&](platform::ReportOutboxTransaction& outbox) {
    const platform::StoredTotals totals = outbox.totals();
    status.count = totals.count;
    status.oldest = totals.oldest;
    const DeliveryState state = decode(outbox.state());
    if (state.nextAttempt != SystemTime{}) status.nextAttempt = state.nextAttempt;
    return true;
  });
  if (!read) return std::nullopt;
  return status;
}

}  // namespace zelnora_core::detail
