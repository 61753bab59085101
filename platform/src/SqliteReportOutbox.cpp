#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <thread>

#include <sqlite3.h>

#include "AppGroupContainer.h"
#include "LinuxProviders.h"
#include "platform/ReportOutbox.h"
#include "platform/UserDefaults.h"

namespace platform {
namespace {

constexpr int kBusyTimeoutMilliseconds = 5000;

constexpr const char* kSchema =
    "PRAGMA journal_mode=WAL;"
    "PRAGMA synchronous=NORMAL;"
    "CREATE TABLE IF NOT EXISTS reports (id INTEGER PRIMARY KEY AUTOINCREMENT,"
    " kept REAL NOT NULL, body BLOB NOT NULL);"
    "CREATE TABLE IF NOT EXISTS delivery (one INTEGER PRIMARY KEY CHECK (one = 1),"
    " owner TEXT, lease_until REAL NOT NULL DEFAULT 0,"
    " next_attempt REAL NOT NULL DEFAULT 0, attempts INTEGER NOT NULL DEFAULT 0);"
    "CREATE INDEX IF NOT EXISTS reports_in_order ON reports (kept, id);"
    "INSERT OR IGNORE INTO delivery (one) VALUES (1);";

bool isCorruption(int result) {
  return (result & 0xff) == SQLITE_CORRUPT || (result & 0xff) == SQLITE_NOTADB;
}

// A file SQLite opened but cannot use as our database: damaged, of an unknown format ("unsupported
// file format" is a plain error), or holding tables our schema cannot take.
bool isUnsoundFile(int result) {
  return isCorruption(result) || (result & 0xff) == SQLITE_ERROR ||
         (result & 0xff) == SQLITE_FORMAT;
}

// A statement prepared for one use; finalized when it goes out of scope.
class Query {
 public:
  Query(sqlite3* db, const char* sql) { sqlite3_prepare_v2(db, sql, -1, &statement_, nullptr); }
  ~Query() { sqlite3_finalize(statement_); }
  Query(const Query&) = delete;
  Query& operator=(const Query&) = delete;

  Query& bind(int index, double value) {
    sqlite3_bind_double(statement_, index, value);
    return *this;
  }
  Query& bind(int index, std::int64_t value) {
    sqlite3_bind_int64(statement_, index, value);
    return *this;
  }
  Query& bind(int index, const std::string& text) {
    sqlite3_bind_text(statement_, index, text.data(), static_cast<int>(text.size()),
                      SQLITE_TRANSIENT);
    return *this;
  }
  Query& bind(int index, const Bytes& bytes) {
    sqlite3_bind_blob(statement_, index, bytes.data(), static_cast<int>(bytes.size()),
                      SQLITE_TRANSIENT);
    return *this;
  }
  // SQLITE_ROW, SQLITE_DONE or an error code (also when the statement did not compile).
  int step() { return statement_ == nullptr ? SQLITE_ERROR : sqlite3_step(statement_); }
  bool run() { return step() == SQLITE_DONE; }
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
  sqlite3_stmt* statement_ = nullptr;
};

// BEGIN IMMEDIATE takes the write lock up front, so a read-then-write cannot interleave with the
// other process's. Rolled back unless committed.
class WriteTransaction {
 public:
  explicit WriteTransaction(sqlite3* db) : db_(db) {
    begun_ = sqlite3_exec(db_, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) == SQLITE_OK;
  }
  ~WriteTransaction() {
    if (begun_) sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
  }
  WriteTransaction(const WriteTransaction&) = delete;
  WriteTransaction& operator=(const WriteTransaction&) = delete;

  explicit operator bool() const { return begun_; }
  bool commit() {
    if (!begun_) return false;
    begun_ = false;
    if (sqlite3_exec(db_, "COMMIT", nullptr, nullptr, nullptr) == SQLITE_OK) return true;
    sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
    return false;
  }

 private:
  sqlite3* db_;
  bool begun_ = false;
};

// Made 0600 before SQLite opens it, so that the -wal and -shm files get the same mode. A symbolic
// link or anything but a regular file in its place is never followed: `unsound` says so.
bool preparePrivateFile(const std::string& path, bool& unsound) {
  const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
  if (fd < 0) {
    unsound = errno == ELOOP;
    return false;
  }
  struct stat info {};
  unsound = ::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode);
  const bool ok = !unsound && ::fchmod(fd, 0600) == 0;
  ::close(fd);
  return ok;
}

// Sound means SQLite can read the whole file and our tables are (or can be made) there.
// `corrupt` tells a damaged file apart from a failure to open at all (busy, no permission).
sqlite3* openSoundDatabase(const std::string& path, bool& corrupt) {
  corrupt = false;
  if (!preparePrivateFile(path, corrupt)) return nullptr;
  sqlite3* db = nullptr;
  const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_NOFOLLOW;
  if (sqlite3_open_v2(path.c_str(), &db, flags, nullptr) != SQLITE_OK) {
    sqlite3_close_v2(db);
    return nullptr;
  }
  sqlite3_busy_timeout(db, kBusyTimeoutMilliseconds);
  const auto deadline =
      std::chrono::steady_clock::now() + std::chrono::milliseconds(kBusyTimeoutMilliseconds);
  int result = sqlite3_exec(db, kSchema, nullptr, nullptr, nullptr);
  // Switching to WAL and recovering after a killed process may answer BUSY without the handler.
  while ((result & 0xff) == SQLITE_BUSY && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    result = sqlite3_exec(db, kSchema, nullptr, nullptr, nullptr);
  }
  if (result == SQLITE_OK) {
    Query check(db, "PRAGMA quick_check");
    const int checked = check.step();
    if (checked == SQLITE_ROW && check.text(0) == "ok") return db;
    corrupt = checked == SQLITE_ROW || isCorruption(checked);
  } else {
    corrupt = isUnsoundFile(result);
  }
  sqlite3_close_v2(db);
  return nullptr;
}

void setAside(const std::string& path) {
  const std::string aside = path + ".corrupt-" + std::to_string(std::time(nullptr));
  // A companion file that is absent or cannot move is no reason to keep the bad one in place.
  for (const char* suffix : {"", "-wal", "-shm"}) {
    (void)std::rename((path + suffix).c_str(), (aside + suffix).c_str());
  }
}

// The process id in an owner name "pid:token".
bool ownerIsAlive(const std::string& owner) {
  const long pid = std::strtol(owner.c_str(), nullptr, 10);
  if (pid <= 0) return false;
  return ::kill(static_cast<pid_t>(pid), 0) == 0 || errno != ESRCH;
}

// One outbox file: one connection per process, used under a mutex, opened again in a child after
// fork() (the parent's connection is the parent's to use and close).
class SqliteReportOutbox final : public ReportOutbox {
 public:
  explicit SqliteReportOutbox(std::string path) : path_(std::move(path)) {}
  ~SqliteReportOutbox() override {
    if (db_ != nullptr && openedBy_ == ::getpid()) sqlite3_close_v2(db_);
  }

  bool ensureOpen() {
    std::lock_guard lock(mutex_);
    return connection() != nullptr;
  }

  std::optional<std::size_t> append(const Bytes& report, double now, const OutboxLimits& limits,
                                    double notBefore) override {
    std::lock_guard lock(mutex_);
    sqlite3* db = connection();
    if (db == nullptr) return std::nullopt;
    WriteTransaction transaction(db);
    if (!transaction) return std::nullopt;
    const int inserted = Query(db, "INSERT INTO reports (kept, body) VALUES (?1, ?2)")
                             .bind(1, now)
                             .bind(2, report)
                             .step();
    if (inserted != SQLITE_DONE) {
      if (isCorruption(inserted)) dropCorruptConnection();
      return std::nullopt;
    }
    std::size_t dropped = 0;
    if (Query(db, "DELETE FROM reports WHERE kept < ?1")
            .bind(1, now - limits.maxAgeSeconds)
            .run()) {
      dropped += static_cast<std::size_t>(sqlite3_changes(db));
    }
    dropped += dropBeyondBounds(db, limits);
    Query(db, "UPDATE delivery SET next_attempt = max(next_attempt, ?1)").bind(1, notBefore).run();
    if (!transaction.commit()) return std::nullopt;
    return dropped;
  }

  std::optional<OutboxBatch> claim(const std::string& owner, double now, double leaseSeconds,
                                   std::size_t maxReports, std::size_t maxBytes,
                                   bool ignoreBackOff) override {
    std::lock_guard lock(mutex_);
    sqlite3* db = connection();
    if (db == nullptr) return std::nullopt;
    WriteTransaction transaction(db);
    if (!transaction) return std::nullopt;
    OutboxBatch batch;
    {
      Query state(db, "SELECT owner, lease_until, next_attempt, attempts FROM delivery");
      if (state.step() != SQLITE_ROW) return std::nullopt;
      const std::string holder = state.isNull(0) ? std::string() : state.text(0);
      const bool leasedElsewhere =
          !holder.empty() && holder != owner && state.real(1) > now && ownerIsAlive(holder);
      if (leasedElsewhere || (!ignoreBackOff && state.real(2) > now)) return std::nullopt;
      batch.failedAttempts = static_cast<int>(state.integer(3));
    }
    Query oldest(db, "SELECT id, body FROM reports ORDER BY kept, id LIMIT ?1");
    oldest.bind(1, static_cast<std::int64_t>(maxReports));
    std::size_t bytes = 0;
    while (oldest.step() == SQLITE_ROW) {
      Bytes body = oldest.blob(1);
      if (!batch.ids.empty() && bytes + body.size() > maxBytes) break;
      bytes += body.size();
      batch.ids.push_back(oldest.integer(0));
      batch.reports.push_back(std::move(body));
    }
    if (batch.ids.empty()) return std::nullopt;
    if (!Query(db, "UPDATE delivery SET owner = ?1, lease_until = ?2")
             .bind(1, owner)
             .bind(2, now + leaseSeconds)
             .run() ||
        !transaction.commit()) {
      return std::nullopt;
    }
    return batch;
  }

  void complete(const std::string& owner, const std::vector<std::int64_t>& ids) override {
    finish(owner, ids,
           "UPDATE delivery SET owner = NULL, lease_until = 0, next_attempt = 0,"
           " attempts = 0 WHERE owner = ?1");
  }

  void discard(const std::string& owner, const std::vector<std::int64_t>& ids) override {
    finish(owner, ids, "UPDATE delivery SET owner = NULL, lease_until = 0 WHERE owner = ?1");
  }

  void release(const std::string& owner, double nextAttempt) override {
    std::lock_guard lock(mutex_);
    sqlite3* db = connection();
    if (db == nullptr) return;
    Query(db,
          "UPDATE delivery SET owner = NULL, lease_until = 0, next_attempt = ?2,"
          " attempts = attempts + 1 WHERE owner = ?1")
        .bind(1, owner)
        .bind(2, nextAttempt)
        .run();
  }

  OutboxStatus status() override {
    OutboxStatus status;
    std::lock_guard lock(mutex_);
    sqlite3* db = connection();
    if (db == nullptr) return status;
    Query reports(db, "SELECT count(*), min(kept) FROM reports");
    if (reports.step() == SQLITE_ROW) {
      status.count = static_cast<std::size_t>(reports.integer(0));
      if (!reports.isNull(1)) status.oldest = reports.real(1);
    }
    Query delivery(db, "SELECT next_attempt FROM delivery");
    if (delivery.step() == SQLITE_ROW) status.nextAttempt = delivery.real(0);
    return status;
  }

 private:
  // Drops the oldest reports until at most limits.maxReports remain, of limits.maxBytes in all.
  static std::size_t dropBeyondBounds(sqlite3* db, const OutboxLimits& limits) {
    {
      Query totals(db, "SELECT count(*), total(length(body)) FROM reports");
      if (totals.step() != SQLITE_ROW) return 0;
      if (static_cast<std::size_t>(totals.integer(0)) <= limits.maxReports &&
          totals.real(1) <= static_cast<double>(limits.maxBytes)) {
        return 0;
      }
    }
    std::size_t count = 0;
    std::size_t bytes = 0;
    std::vector<std::int64_t> beyond;
    {
      Query newestFirst(db, "SELECT id, length(body) FROM reports ORDER BY kept DESC, id DESC");
      while (newestFirst.step() == SQLITE_ROW) {
        bytes += static_cast<std::size_t>(newestFirst.integer(1));
        if (++count > limits.maxReports || bytes > limits.maxBytes) {
          beyond.push_back(newestFirst.integer(0));
        }
      }
    }
    std::size_t dropped = 0;
    for (std::int64_t id : beyond) {
      if (Query(db, "DELETE FROM reports WHERE id = ?1").bind(1, id).run()) ++dropped;
    }
    return dropped;
  }

  void finish(const std::string& owner, const std::vector<std::int64_t>& ids,
              const char* deliverySql) {
    std::lock_guard lock(mutex_);
    sqlite3* db = connection();
    if (db == nullptr) return;
    WriteTransaction transaction(db);
    if (!transaction) return;
    for (std::int64_t id : ids) Query(db, "DELETE FROM reports WHERE id = ?1").bind(1, id).run();
    Query(db, deliverySql).bind(1, owner).run();
    transaction.commit();
  }

  void dropCorruptConnection() {
    sqlite3_close_v2(db_);
    db_ = nullptr;
    setAside(path_);
  }

  sqlite3* connection() {
    if (openedBy_ != ::getpid()) {
      db_ = nullptr;  // the parent's connection, if any, is the parent's to close
      openedBy_ = ::getpid();
    }
    if (db_ == nullptr) {
      bool corrupt = false;
      db_ = openSoundDatabase(path_, corrupt);
      if (db_ == nullptr && corrupt) {
        setAside(path_);
        db_ = openSoundDatabase(path_, corrupt);
      }
    }
    return db_;
  }

  const std::string path_;
  std::mutex mutex_;
  sqlite3* db_ = nullptr;  // guarded by mutex_
  pid_t openedBy_ = 0;     // guarded by mutex_: the process db_ belongs to
};

class SqliteReportOutboxStore final : public ReportOutboxStore {
 public:
  explicit SqliteReportOutboxStore(std::string directory) : directory_(std::move(directory)) {}

  std::shared_ptr<ReportOutbox> outbox(std::string_view groupName) override {
    if (groupName.empty() || groupName.find('/') != std::string_view::npos ||
        groupName.front() == '.') {
      return nullptr;
    }
    std::lock_guard lock(mutex_);
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
  std::mutex mutex_;
  std::map<std::string, std::shared_ptr<SqliteReportOutbox>> outboxes_;  // guarded by mutex_
};

}  // namespace

std::unique_ptr<ReportOutboxStore> makeSqliteReportOutboxStore(std::string containerDirectory) {
  return std::make_unique<SqliteReportOutboxStore>(std::move(containerDirectory));
}

std::string outboxOwnerName() {
  thread_local std::mt19937_64 random{std::random_device{}()};
  static std::mutex mutex;
  static pid_t namedFor = 0;
  static std::string name;
  std::lock_guard lock(mutex);
  if (namedFor != ::getpid()) {
    namedFor = ::getpid();
    name = std::to_string(namedFor) + ":" + std::to_string(random());
  }
  return name;
}

namespace linux_provider {
ReportOutboxStore& reportOutboxStore() {
  static ReportOutboxStore* const store =
      makeSqliteReportOutboxStore(appGroupContainerDirectory()).release();
  return *store;
}
}  // namespace linux_provider

}  // namespace platform
