#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <system_error>

#include <sqlite3.h>

#include "AppGroupContainer.h"
#include "LinuxProviders.h"
#include "SqliteFile.h"
#include "platform/ReportOutbox.h"
#include "platform/internal/ThreadAnnotations.h"

namespace platform {
namespace {

// "kept" is in seconds since 1970; "state" holds the kit's one record.
constexpr const char* kSchema =
    "CREATE TABLE IF NOT EXISTS reports (id INTEGER PRIMARY KEY AUTOINCREMENT,"
    " kept REAL NOT NULL, body BLOB NOT NULL);"
    "CREATE INDEX IF NOT EXISTS reports_in_order ON reports (kept, id);"
    "CREATE TABLE IF NOT EXISTS state (one INTEGER PRIMARY KEY CHECK (one = 1),"
    " value TEXT NOT NULL);";

using SystemTime = std::chrono::system_clock::time_point;

double secondsOf(SystemTime time) {
  return std::chrono::duration<double>(time.time_since_epoch()).count();
}
SystemTime timeOf(double seconds) {
  return SystemTime(
      std::chrono::duration_cast<SystemTime::duration>(std::chrono::duration<double>(seconds)));
}

// A statement prepared for one use; finalized when it goes out of scope.
class Query {
 public:
  Query(sqlite3* db, const char* sql) { sqlite3_prepare_v2(db, sql, -1, &statement_, nullptr); }
  ~Query() { sqlite3_finalize(statement_); }
  Query(const Query&) = delete;
  Query& operator=(const Query&) = delete;

  template <typename... Values>
  Query& bind(const Values&... values) {
    int index = 0;
    (bindOne(++index, values), ...);
    return *this;
  }
  // SQLITE_ROW, SQLITE_DONE or an error code (also when the statement did not compile).
  int step() { return statement_ == nullptr ? SQLITE_ERROR : sqlite3_step(statement_); }
  // Steps once and makes the statement ready to be bound and stepped again.
  int stepAndReset() {
    const int result = step();
    sqlite3_reset(statement_);
    return result;
  }
  double real(int column) const { return sqlite3_column_double(statement_, column); }
  std::int64_t integer(int column) const { return sqlite3_column_int64(statement_, column); }
  bool isNull(int column) const { return sqlite3_column_type(statement_, column) == SQLITE_NULL; }
  std::string text(int column) const {
    const unsigned char* data = sqlite3_column_text(statement_, column);
    return data == nullptr ? std::string() : std::string(reinterpret_cast<const char*>(data));
  }
  Bytes blob(int column) const {
    const auto* data = static_cast<const std::uint8_t*>(sqlite3_column_blob(statement_, column));
    return data == nullptr ? Bytes() : Bytes(data, data + sqlite3_column_bytes(statement_, column));
  }

 private:
  void bindOne(int index, double value) { sqlite3_bind_double(statement_, index, value); }
  void bindOne(int index, std::int64_t value) { sqlite3_bind_int64(statement_, index, value); }
  void bindOne(int index, const std::string& text) {
    sqlite3_bind_text(statement_, index, text.data(), static_cast<int>(text.size()),
                      SQLITE_TRANSIENT);
  }
  void bindOne(int index, const Bytes& bytes) {
    sqlite3_bind_blob(statement_, index, bytes.data(), static_cast<int>(bytes.size()),
                      SQLITE_TRANSIENT);
  }

  sqlite3_stmt* statement_ = nullptr;
};

// The transaction's operations; any failed step fails the whole transaction.
class SqliteTransaction final : public ReportOutboxTransaction {
 public:
  explicit SqliteTransaction(sqlite3* db) : db_(db) {}

  bool append(const Bytes& body, SystemTime keptAt) override {
    return done(Query(db_, "INSERT INTO reports (kept, body) VALUES (?1, ?2)")
                    .bind(secondsOf(keptAt), body)
                    .step());
  }

  std::vector<StoredReport> oldest(std::size_t limit) override {
    std::vector<StoredReport> reports;
    Query query(db_, "SELECT id, kept, body FROM reports ORDER BY kept, id LIMIT ?1");
    query.bind(static_cast<std::int64_t>(limit));
    int result = SQLITE_ROW;
    while ((result = query.step()) == SQLITE_ROW) {
      reports.push_back({query.integer(0), timeOf(query.real(1)), query.blob(2)});
    }
    done(result);
    return reports;
  }

  StoredTotals totals() override {
    StoredTotals totals;
    Query query(db_, "SELECT count(*), total(length(body)), min(kept) FROM reports");
    if (query.step() != SQLITE_ROW) {
      failed_ = true;
      return totals;
    }
    totals.count = static_cast<std::size_t>(query.integer(0));
    totals.bytes = static_cast<std::size_t>(query.real(1));
    if (!query.isNull(2)) totals.oldest = timeOf(query.real(2));
    return totals;
  }

  void remove(const std::vector<std::int64_t>& ids) override {
    if (ids.empty()) return;
    // Compiled once for the batch: compiling it again for every report cost more than deleting.
    Query query(db_, "DELETE FROM reports WHERE id = ?1");
    for (std::int64_t id : ids) done(query.bind(id).stepAndReset());
  }

  std::string state() override {
    Query query(db_, "SELECT value FROM state WHERE one = 1");
    return query.step() == SQLITE_ROW ? query.text(0) : std::string();
  }

  void setState(const std::string& state) override {
    done(Query(db_, "INSERT OR REPLACE INTO state (one, value) VALUES (1, ?1)").bind(state).step());
  }

  bool failed() const { return failed_; }
  bool damaged() const { return damaged_; }

 private:
  bool done(int result) {
    if (result == SQLITE_DONE) return true;
    failed_ = true;
    damaged_ = damaged_ || detail::isCorruption(result);
    return false;
  }

  sqlite3* db_;
  bool failed_ = false;
  bool damaged_ = false;
};

// One outbox file: one connection per process, used under a mutex.
class SqliteReportOutbox final : public ReportOutbox {
 public:
  explicit SqliteReportOutbox(std::string path)
      : connection_(std::move(path), kSchema, detail::WhenUnsound::setAside) {}

  bool ensureOpen() {
    MutexLock lock(mutex_);
    return connection_.get() != nullptr;
  }

  bool transact(const Work& work) override {
    MutexLock lock(mutex_);
    sqlite3* db = connection_.get();
    // BEGIN IMMEDIATE takes the write lock up front, so a read-then-write cannot interleave with
    // another process's.
    if (db == nullptr ||
        sqlite3_exec(db, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) != SQLITE_OK) {
      return false;
    }
    SqliteTransaction transaction(db);
    const bool wanted = work(transaction) && !transaction.failed();
    if (wanted && sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr) == SQLITE_OK) return true;
    sqlite3_exec(db, "ROLLBACK", nullptr, nullptr, nullptr);
    if (transaction.damaged()) connection_.dropDamaged();
    return false;
  }

 private:
  Mutex mutex_;
  detail::SqliteConnection connection_ ZELNORA_GUARDED_BY(mutex_);
};

class SqliteReportOutboxStore final : public ReportOutboxStore {
 public:
  explicit SqliteReportOutboxStore(std::string directory) : directory_(std::move(directory)) {}

  std::shared_ptr<ReportOutbox> outbox(std::string_view groupName) override {
    if (groupName.empty() || groupName.find('/') != std::string_view::npos ||
        groupName.front() == '.') {
      return nullptr;
    }
    MutexLock lock(mutex_);
    std::shared_ptr<SqliteReportOutbox>& cached = outboxes_[std::string(groupName)];
    if (!cached) {
      if (!detail::createPrivateDirectories(directory_)) return nullptr;
      cached = std::make_shared<SqliteReportOutbox>(directory_ + "/" + std::string(groupName) +
                                                    ".outbox.db");
    }
    return cached->ensureOpen() ? cached : nullptr;
  }

 private:
  const std::string directory_;
  Mutex mutex_;
  std::map<std::string, std::shared_ptr<SqliteReportOutbox>> outboxes_ ZELNORA_GUARDED_BY(mutex_);
};

}  // namespace

std::unique_ptr<ReportOutboxStore> makeSqliteReportOutboxStore(std::string containerDirectory) {
  return std::make_unique<SqliteReportOutboxStore>(std::move(containerDirectory));
}

std::string outboxOwnerName() {
  thread_local std::mt19937_64 random{std::random_device{}()};
  static Mutex mutex;
  static pid_t namedFor ZELNORA_GUARDED_BY(mutex) = 0;
  static std::string name ZELNORA_GUARDED_BY(mutex);
  MutexLock lock(mutex);
  if (namedFor != ::getpid()) {
    namedFor = ::getpid();
    name = std::to_string(namedFor) + ":" + std::to_string(random());
  }
  return name;
}

bool outboxOwnerMayRun(std::string_view owner) {
  pid_t pid = 0;
  const auto [end, error] = std::from_chars(owner.data(), owner.data() + owner.size(), pid);
  if (error != std::errc() || end == owner.data() + owner.size() || *end != ':' || pid <= 0) {
    return false;
  }
  return ::kill(pid, 0) == 0 || errno != ESRCH;
}

namespace linux_provider {
ReportOutboxStore& reportOutboxStore() {
  static ReportOutboxStore* const store =
      makeSqliteReportOutboxStore(appGroupContainerDirectory()).release();
  return *store;
}
}  // namespace linux_provider

}  // namespace platform
