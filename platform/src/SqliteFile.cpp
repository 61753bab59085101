#include "SqliteFile.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <thread>

namespace platform::detail {
namespace {

constexpr int kBusyTimeoutMilliseconds = 5000;

// Counts the fork()s this process came out of as a child: cheaper to compare than getpid(), a
// system call that every operation would otherwise make.
std::atomic<unsigned> forkGeneration{1};

unsigned currentForkGeneration() {
  static std::once_flag registered;
  std::call_once(registered,
                 [] { ::pthread_atfork(nullptr, nullptr, [] { forkGeneration.fetch_add(1); }); });
  return forkGeneration.load(std::memory_order_relaxed);
}

// A -wal or -shm file left from before is made 0600 through a descriptor that never follows a
// symbolic link. A link planted in its place is removed (SQLite would write through it); SQLite
// then creates the file afresh with the database file's mode.
void makeSideFilePrivate(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    if (errno == ELOOP) ::unlink(path.c_str());
    return;
  }
  struct stat info {};
  if (::fstat(fd, &info) == 0 && S_ISREG(info.st_mode)) ::fchmod(fd, 0600);
  ::close(fd);
}

enum class Prepared { ready, unsound, failed };

// Creates the database file 0600 before SQLite sees it: SQLite gives the -wal and -shm files the
// mode of the database file, so all three stay private whatever the umask. A symbolic link or
// anything but a regular file in its place is never followed.
Prepared preparePrivateFile(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
  if (fd < 0) return errno == ELOOP ? Prepared::unsound : Prepared::failed;
  struct stat info {};
  const bool regular = ::fstat(fd, &info) == 0 && S_ISREG(info.st_mode);
  const bool ok = regular && ::fchmod(fd, 0600) == 0;
  ::close(fd);
  if (!regular) return Prepared::unsound;
  for (const char* suffix : {"-wal", "-shm"}) makeSideFilePrivate(path + suffix);
  return ok ? Prepared::ready : Prepared::failed;
}

// A file SQLite opened but cannot use as this database: damaged, of an unknown format ("unsupported
// file format" is a plain error), or holding tables the setup cannot take.
bool isUnsoundFile(int result) {
  return isCorruption(result) || (result & 0xff) == SQLITE_ERROR ||
         (result & 0xff) == SQLITE_FORMAT;
}

// Switching to WAL and WAL recovery after another process was killed can answer SQLITE_BUSY
// without going through the busy handler: retry for as long as the busy time-out would wait.
int runSetup(sqlite3* db, const std::string& setupSql) {
  const auto deadline =
      std::chrono::steady_clock::now() + std::chrono::milliseconds(kBusyTimeoutMilliseconds);
  int result = sqlite3_exec(db, setupSql.c_str(), nullptr, nullptr, nullptr);
  while ((result & 0xff) == SQLITE_BUSY && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    result = sqlite3_exec(db, setupSql.c_str(), nullptr, nullptr, nullptr);
  }
  return result;
}

// SQLite reads the whole file without finding damage.
int checkWhole(sqlite3* db) {
  sqlite3_stmt* check = nullptr;
  int result = sqlite3_prepare_v2(db, "PRAGMA quick_check", -1, &check, nullptr);
  if (result == SQLITE_OK) {
    result = sqlite3_step(check);
    if (result == SQLITE_ROW) {
      const unsigned char* verdict = sqlite3_column_text(check, 0);
      const bool ok =
          verdict != nullptr && std::string_view(reinterpret_cast<const char*>(verdict)) == "ok";
      result = ok ? SQLITE_OK : SQLITE_CORRUPT;
    }
  }
  sqlite3_finalize(check);
  return result;
}

}  // namespace

bool isCorruption(int result) {
  return (result & 0xff) == SQLITE_CORRUPT || (result & 0xff) == SQLITE_NOTADB;
}

void setAside(const std::string& path) {
  const std::string aside = path + ".corrupt-" + std::to_string(std::time(nullptr));
  // A side file that is absent or cannot move is no reason to keep the bad one in place.
  for (const char* suffix : {"", "-wal", "-shm"}) {
    (void)std::rename((path + suffix).c_str(), (aside + suffix).c_str());
  }
}

SqliteConnection::SqliteConnection(std::string path, std::string setupSql, WhenUnsound whenUnsound)
    : path_(std::move(path)),
      setupSql_("PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;" + std::move(setupSql)),
      whenUnsound_(whenUnsound) {}

SqliteConnection::~SqliteConnection() {
  if (isThisProcess()) sqlite3_close_v2(db_);
}

bool SqliteConnection::isThisProcess() const {
  return db_ != nullptr && openedIn_ == currentForkGeneration();
}

sqlite3* SqliteConnection::get() {
  const unsigned generation = currentForkGeneration();
  if (openedIn_ != generation) {
    db_ = nullptr;  // the parent's connection, if any, is the parent's to close
    openedIn_ = generation;
  }
  if (db_ == nullptr) {
    db_ = open();
    if (db_ == nullptr && unsound_ && whenUnsound_ == WhenUnsound::setAside) {
      setAside(path_);
      db_ = open();
    }
  }
  return db_;
}

void SqliteConnection::dropDamaged() {
  sqlite3_close_v2(db_);
  db_ = nullptr;
  if (whenUnsound_ == WhenUnsound::setAside) setAside(path_);
}

sqlite3* SqliteConnection::open() {
  unsound_ = false;
  const Prepared prepared = preparePrivateFile(path_);
  unsound_ = prepared == Prepared::unsound;
  if (prepared != Prepared::ready) return nullptr;
  sqlite3* db = nullptr;
  const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_NOFOLLOW;
  if (sqlite3_open_v2(path_.c_str(), &db, flags, nullptr) != SQLITE_OK) {
    sqlite3_close_v2(db);
    return nullptr;
  }
  sqlite3_busy_timeout(db, kBusyTimeoutMilliseconds);
  int result = runSetup(db, setupSql_);
  // Only a file that may be set aside is read whole: the check costs a pass over the file.
  if (result == SQLITE_OK && whenUnsound_ == WhenUnsound::setAside) result = checkWhole(db);
  if (result == SQLITE_OK) return db;
  unsound_ = isUnsoundFile(result);
  sqlite3_close_v2(db);
  return nullptr;
}

}  // namespace platform::detail
