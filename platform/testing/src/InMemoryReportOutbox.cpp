// An in-memory outbox: one transaction at a time works on a copy and commits by swapping it in.
#include <algorithm>

#include "platform/testing/FakePlatform.h"

namespace platform::testing {
namespace {

struct Contents {
  std::vector<StoredReport> reports;  // in the order appended
  std::int64_t nextId = 1;
  std::string state;
};

class Transaction final : public ReportOutboxTransaction {
 public:
  explicit Transaction(Contents contents) : contents(std::move(contents)) {}
  bool append(const Bytes& body, std::chrono::system_clock::time_point keptAt) override {
    contents.reports.push_back({contents.nextId++, keptAt, body});
    return true;
  }
  std::vector<StoredReport> oldest(std::size_t limit) override {
    std::vector<StoredReport> sorted = contents.reports;
    std::ranges::stable_sort(sorted, {}, &StoredReport::keptAt);
    sorted.resize(std::min(limit, sorted.size()));
    return sorted;
  }
  StoredTotals totals() override {
    StoredTotals totals{contents.reports.size(), 0, std::nullopt};
    for (const StoredReport& report : contents.reports) {
      totals.bytes += report.body.size();
      totals.oldest = std::min(totals.oldest.value_or(report.keptAt), report.keptAt);
    }
    return totals;
  }
  void remove(const std::vector<std::int64_t>& ids) override {
    std::erase_if(contents.reports,
                  [&](auto& report) { return std::ranges::count(ids, report.id); });
  }
  std::string state() override { return contents.state; }
  void setState(const std::string& state) override { contents.state = state; }

  Contents contents;
};

class InMemoryReportOutbox final : public ReportOutbox {
 public:
  bool transact(const Work& work) override {
    MutexLock lock(mutex_);
    Transaction transaction(contents_);
    if (!work(transaction)) return false;
    contents_ = std::move(transaction.contents);
    return true;
  }

 private:
  Mutex mutex_;
  Contents contents_ ZELNORA_GUARDED_BY(mutex_);
};

}  // namespace

std::shared_ptr<ReportOutbox> InMemoryReportOutboxes::outbox(std::string_view groupName) {
  MutexLock lock(mutex_);
  auto it = outboxes_.find(groupName);
  if (it == outboxes_.end()) {
    it = outboxes_.emplace(std::string(groupName), std::make_shared<InMemoryReportOutbox>()).first;
  }
  return it->second;
}

}  // namespace platform::testing
