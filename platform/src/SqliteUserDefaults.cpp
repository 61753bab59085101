#include <fcntl.h>
#include <pthread.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <sqlite3.h>

#include "AppGroupContainer.h"
#include "LinuxProviders.h"
#include "PlistCodec.h"
#include "SqliteFile.h"
#include "platform/PropertyListReader.h"
#include "platform/UserDefaults.h"
#include "platform/internal/ThreadAnnotations.h"

namespace platform {
namespace detail {

// The container itself is private whatever was there before (a folder made 0777 by hand, or by
// an older version under another umask). Opened without following a symbolic link, and changed
// through the descriptor, so that a link or a folder of another user planted there is refused
// rather than changed.
bool makeOwnDirectoryPrivate(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return false;
  struct stat info {};
  const bool ok = ::fstat(fd, &info) == 0 && S_ISDIR(info.st_mode) && info.st_uid == ::geteuid() &&
                  ((info.st_mode & 07777) == 0700 || ::fchmod(fd, 0700) == 0);
  ::close(fd);
  return ok;
}

bool createPrivateDirectories(const std::string& path) {
  if (path.empty()) return false;
  for (std::size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
    const std::string prefix = path.substr(0, slash);
    if (::mkdir(prefix.c_str(), 0700) == 0) {
      ::chmod(prefix.c_str(), 0700);  // the umask may have taken bits away
    } else if (errno != EEXIST) {
      return false;
    }
    if (slash == std::string::npos) break;
  }
  return makeOwnDirectoryPrivate(path);
}

}  // namespace detail

namespace {

constexpr std::size_t kMaxSuiteNameLength = 200;

bool isSafeSuiteName(std::string_view name) {
  return !name.empty() && name.size() <= kMaxSuiteNameLength && name != "." && name != ".." &&
         name.find('/') == std::string_view::npos && name.find('\0') == std::string_view::npos;
}

// A prepared statement borrowed from its suite's cache for one use: compiling the SQL each time
// cost more than running it. Giving it back resets it, which also ends its read transaction.
class Statement {
 public:
  explicit Statement(sqlite3_stmt* statement) : statement_(statement) {}
  ~Statement() {
    if (statement_ == nullptr) return;
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
  }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  explicit operator bool() const { return statement_ != nullptr; }
  sqlite3_stmt* get() const { return statement_; }
  void bindText(int index, std::string_view text) {
    sqlite3_bind_text(statement_, index, text.data(), static_cast<int>(text.size()),
                      SQLITE_TRANSIENT);
  }
  void bindBlob(int index, const Bytes& bytes) {
    sqlite3_bind_blob(statement_, index, bytes.data(), static_cast<int>(bytes.size()),
                      SQLITE_TRANSIENT);
  }
  std::string_view blob(int column) const {
    const void* data = sqlite3_column_blob(statement_, column);
    const int size = sqlite3_column_bytes(statement_, column);
    return data == nullptr
               ? std::string_view()
               : std::string_view(static_cast<const char*>(data), static_cast<std::size_t>(size));
  }
  std::string text(int column) const {
    const unsigned char* data = sqlite3_column_text(statement_, column);
    const int size = sqlite3_column_bytes(statement_, column);
    return data == nullptr
               ? std::string()
               : std::string(reinterpret_cast<const char*>(data), static_cast<std::size_t>(size));
  }

 private:
  sqlite3_stmt* statement_;
};

// The suite's statements, one slot each.
enum StatementKind { kSelectOne, kUpsert, kDelete, kSelectAll, kStatementKinds };
constexpr const char* kStatementSql[kStatementKinds] = {
    "SELECT value FROM entries WHERE key = ?1",
    ("INSERT INTO entries (key, value) VALUES (?1, ?2) "
     "ON CONFLICT (key) DO UPDATE SET value = excluded.value"),
    "DELETE FROM entries WHERE key = ?1",
    "SELECT key, value FROM entries",
};

// The committed state of a WAL database as every connection to it sees it: the wal-index header
// at the start of the shared-memory (-shm) file. SQLite rewrites it on every commit, WAL restart
// and recovery, in this process or in any other, and its layout is the documented one that all
// SQLite versions sharing a database agree on. Two equal readings mean nothing was committed in
// between, so a value read in between is still the stored one: the suite can answer repeated
// reads from memory without a read transaction, yet still see the extension's writes at once.
class WalIndexHeader {
 public:
  static constexpr std::size_t kWords = 12;  // one 48-byte copy; SQLite keeps two, back to back
  using Reading = std::array<std::uint32_t, kWords>;

  // Points at the connection's own mapping of the -shm file. Call with the connection in WAL
  // mode and unused by other threads; the mapping lives as long as the connection.
  void attach(sqlite3* db) {
    header_ = nullptr;
    sqlite3_file* file = nullptr;
    if (sqlite3_file_control(db, "main", SQLITE_FCNTL_FILE_POINTER, &file) != SQLITE_OK ||
        file == nullptr || file->pMethods == nullptr || file->pMethods->iVersion < 2 ||
        file->pMethods->xShmMap == nullptr) {
      return;
    }
    constexpr int kWalIndexPageBytes = 32768;
    volatile void* region = nullptr;
    if (file->pMethods->xShmMap(file, 0, kWalIndexPageBytes, 0, &region) != SQLITE_OK) return;
    header_ = static_cast<std::uint32_t*>(const_cast<void*>(region));
  }
  void detach() { header_ = nullptr; }

  // The header, or nothing while a writer is between its two copies, before the header is
  // initialised, or when there is no mapping to read.
  std::optional<Reading> read() const {
    if (header_ == nullptr) return std::nullopt;
    Reading first{};
    Reading second{};
    // A writer fills the second copy, then the first; reading in the other order and comparing
    // catches a write in progress (the same protocol SQLite's own readers follow).
    // Acquire loads keep the second copy's reads after the first's (ThreadSanitizer does not
    // model a stand-alone fence).
    for (std::size_t i = 0; i < kWords; ++i) first[i] = load(i, std::memory_order_acquire);
    for (std::size_t i = 0; i < kWords; ++i)
      second[i] = load(kWords + i, std::memory_order_relaxed);
    constexpr std::size_t kIsInitByte = 12;
    if (first != second || reinterpret_cast<const unsigned char*>(first.data())[kIsInitByte] == 0) {
      return std::nullopt;
    }
    return first;
  }

 private:
  std::uint32_t load(std::size_t word, std::memory_order order) const {
    return std::atomic_ref<std::uint32_t>(header_[word]).load(order);
  }

  std::uint32_t* header_ = nullptr;
};

bool isInWalMode(sqlite3* db) {
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(db, "PRAGMA journal_mode", -1, &statement, nullptr) != SQLITE_OK) {
    return false;
  }
  bool wal = false;
  if (sqlite3_step(statement) == SQLITE_ROW) {
    const unsigned char* mode = sqlite3_column_text(statement, 0);
    wal = mode != nullptr && std::string_view(reinterpret_cast<const char*>(mode)) == "wal";
  }
  sqlite3_finalize(statement);
  return wal;
}

// One suite: one connection per process, used under a mutex. A child process after fork() must
// not touch its parent's connection (closing it could drop the parent's locks), so it leaves it
// alone and opens its own.
class SqliteSuite final : public UserDefaultsSuite {
 public:
  explicit SqliteSuite(std::string path)
      : connection_(std::move(path),
                    "CREATE TABLE IF NOT EXISTS entries (key TEXT PRIMARY KEY, value BLOB);",
                    detail::WhenUnsound::fail) {}
  ~SqliteSuite() override {
    if (!connection_.isThisProcess()) return;
    for (sqlite3_stmt* statement : statements_) sqlite3_finalize(statement);
  }

  // True when this process has an open connection (opening one if needed).
  bool ensureOpen() {
    MutexLock lock(mutex_);
    return connection() != nullptr;
  }

  std::optional<PropertyValue> object(std::string_view key) override {
    MutexLock lock(mutex_);
    if (connection() == nullptr) return std::nullopt;
    const std::optional<WalIndexHeader::Reading> before = walIndex_.read();
    if (before && before == cachedAt_) {
      if (auto hit = cache_.find(key); hit != cache_.end()) return hit->second;
    }
    std::optional<PropertyValue> value = readObject(key);
    if (before && before == walIndex_.read()) remember(*before, key, value);
    return value;
  }

  void set(std::string_view key, const PropertyValue& value) override {
    const std::optional<Bytes> encoded = detail::encodeBinaryPropertyList(value);
    if (!encoded || encoded->size() > detail::kMaxPropertyListBytes) return;
    MutexLock lock(mutex_);
    forgetCache();
    Statement upsert(prepared(kUpsert));
    if (!upsert) return;
    upsert.bindText(1, key);
    upsert.bindBlob(2, *encoded);
    sqlite3_step(upsert.get());
  }

  void remove(std::string_view key) override {
    MutexLock lock(mutex_);
    forgetCache();
    Statement removal(prepared(kDelete));
    if (!removal) return;
    removal.bindText(1, key);
    sqlite3_step(removal.get());
  }

  std::map<std::string, PropertyValue> dictionaryRepresentation() override {
    std::map<std::string, PropertyValue> entries;
    MutexLock lock(mutex_);
    Statement selectAll(prepared(kSelectAll));
    if (!selectAll) return entries;
    while (sqlite3_step(selectAll.get()) == SQLITE_ROW) {
      std::optional<PropertyValue> value = parsePropertyList(selectAll.blob(1));
      if (value) entries.insert_or_assign(selectAll.text(0), std::move(*value));
    }
    return entries;
  }

 private:
  // Entries remembered per committed state; the kit reads a handful of keys.
  static constexpr std::size_t kMaxCachedEntries = 32;

  std::optional<PropertyValue> readObject(std::string_view key) ZELNORA_REQUIRES(mutex_) {
    Statement select(prepared(kSelectOne));
    if (!select) return std::nullopt;
    select.bindText(1, key);
    if (sqlite3_step(select.get()) != SQLITE_ROW) return std::nullopt;
    return parsePropertyList(select.blob(0));
  }

  void remember(const WalIndexHeader::Reading& state, std::string_view key,
                const std::optional<PropertyValue>& value) ZELNORA_REQUIRES(mutex_) {
    if (cachedAt_ != state || cache_.size() >= kMaxCachedEntries) {
      cache_.clear();
      cachedAt_ = state;
    }
    cache_.insert_or_assign(std::string(key), value);
  }

  void forgetCache() ZELNORA_REQUIRES(mutex_) {
    cache_.clear();
    cachedAt_.reset();
  }

  // This process's connection; its statements and cache start afresh with every new connection
  // (a child after fork() leaves the parent's statements alone).
  sqlite3* connection() ZELNORA_REQUIRES(mutex_) {
    sqlite3* db = connection_.get();
    if (db != preparedFor_) {
      statements_.fill(nullptr);
      walIndex_.detach();
      forgetCache();
      preparedFor_ = db;
      if (db != nullptr && isInWalMode(db)) walIndex_.attach(db);
    }
    return db;
  }

  // The cached statement of that kind on this process's connection; null when there is none.
  sqlite3_stmt* prepared(StatementKind kind) ZELNORA_REQUIRES(mutex_) {
    sqlite3* db = connection();
    if (db == nullptr) return nullptr;
    sqlite3_stmt*& slot = statements_[kind];
    if (slot == nullptr) {
      sqlite3_prepare_v3(db, kStatementSql[kind], -1, SQLITE_PREPARE_PERSISTENT, &slot, nullptr);
    }
    return slot;
  }

  Mutex mutex_;
  detail::SqliteConnection connection_ ZELNORA_GUARDED_BY(mutex_);
  sqlite3* preparedFor_ ZELNORA_GUARDED_BY(mutex_) = nullptr;  // the connection of statements_
  std::array<sqlite3_stmt*, kStatementKinds> statements_ ZELNORA_GUARDED_BY(mutex_){};
  WalIndexHeader walIndex_ ZELNORA_GUARDED_BY(mutex_);
  // Values read at the committed state cachedAt_ (absent values too).
  std::optional<WalIndexHeader::Reading> cachedAt_ ZELNORA_GUARDED_BY(mutex_);
  std::map<std::string, std::optional<PropertyValue>, std::less<>> cache_
      ZELNORA_GUARDED_BY(mutex_);
};

class SqliteUserDefaultsStore final : public UserDefaultsStore {
 public:
  explicit SqliteUserDefaultsStore(std::string directory) : directory_(std::move(directory)) {}

  std::shared_ptr<UserDefaultsSuite> suite(std::string_view suiteName) override {
    if (!isSafeSuiteName(suiteName)) return nullptr;
    MutexLock lock(mutex_);
    std::shared_ptr<SqliteSuite>& cached = suites_[std::string(suiteName)];
    if (!cached) {
      if (!detail::createPrivateDirectories(directory_)) return nullptr;
      cached = std::make_shared<SqliteSuite>(directory_ + "/" + std::string(suiteName) + ".sqlite");
    }
    if (!cached->ensureOpen()) return nullptr;
    return cached;
  }

 private:
  const std::string directory_;
  Mutex mutex_;
  std::map<std::string, std::shared_ptr<SqliteSuite>> suites_ ZELNORA_GUARDED_BY(mutex_);
};

std::string homeDirectoryForContainer() {
  // Read once, when the container is first located, before the kit starts its own threads.
  // NOLINTBEGIN(concurrency-mt-unsafe)
  if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') return home;
  if (const passwd* entry = ::getpwuid(::getuid()); entry != nullptr && entry->pw_dir != nullptr) {
    return entry->pw_dir;
  }
  // NOLINTEND(concurrency-mt-unsafe)
  return "/tmp";
}

}  // namespace

std::unique_ptr<UserDefaultsStore> makeSqliteUserDefaultsStore(std::string containerDirectory) {
  return std::make_unique<SqliteUserDefaultsStore>(std::move(containerDirectory));
}

std::string appGroupContainerDirectory() {
  static const std::string directory = [] {
    const char* dataHome = std::getenv("XDG_DATA_HOME");
    const std::string base = dataHome != nullptr && dataHome[0] == '/'
                                 ? std::string(dataHome)
                                 : homeDirectoryForContainer() + "/.local/share";
    return base + "/zelnora/app-groups";
  }();
  return directory;
}

namespace linux_provider {
UserDefaultsStore& userDefaultsStore() {
  static const std::unique_ptr<UserDefaultsStore> store =
      makeSqliteUserDefaultsStore(appGroupContainerDirectory());
  return *store;
}
}  // namespace linux_provider

}  // namespace platform
