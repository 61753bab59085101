// Internal: what both SQLite providers (preferences suites and the report outbox) do with their
// files — create them private (0600, their -wal and -shm too), never follow a symbolic link, open
// in WAL mode with a busy time-out, set an unsound file aside, and keep one connection per process
// across fork().
#pragma once

#include <string>
#include <string_view>

#include <sqlite3.h>

namespace platform::detail {

enum class WhenUnsound {
  fail,      // the open fails and the file stays as it is
  setAside,  // the file is renamed "<name>.corrupt-<time>" (with its side files), a fresh one made
};

// True for the answers that mean the file itself is damaged.
bool isCorruption(int result);

// Renames the file and its -wal and -shm files with a ".corrupt-<time>" suffix.
void setAside(const std::string& path);

// The connection of this process to one database file. A child after fork() never uses or closes
// its parent's connection (that could drop the parent's locks): it opens its own.
class SqliteConnection {
 public:
  // `setupSql` runs on every open, after WAL mode is on (say, CREATE TABLE IF NOT EXISTS).
  SqliteConnection(std::string path, std::string setupSql, WhenUnsound whenUnsound);
  ~SqliteConnection();
  SqliteConnection(const SqliteConnection&) = delete;
  SqliteConnection& operator=(const SqliteConnection&) = delete;

  // This process's connection, opened if needed; null when the file cannot be opened. Not
  // thread-safe: call under the owner's lock.
  sqlite3* get();
  // Whether the connection last returned by get() belongs to this process.
  bool isThisProcess() const;
  // Closes a connection that found its file damaged and, as the policy says, sets it aside.
  void dropDamaged();

 private:
  sqlite3* open();

  const std::string path_;
  const std::string setupSql_;
  const WhenUnsound whenUnsound_;
  sqlite3* db_ = nullptr;
  unsigned openedIn_ = 0;  // the fork generation db_ belongs to
  bool unsound_ = false;   // the last open failed because the file is not a sound database
};

}  // namespace platform::detail
