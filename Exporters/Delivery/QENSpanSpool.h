#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "QENSpanEncoding.h"

struct sqlite3;

struct QENSpanSpoolOptions {
  // The database file, in a folder the app owns (its caches or application-support folder).
  std::string path;
  // Encoded bytes the spool keeps; past it the oldest batches go. At least 1.
  std::uint64_t maximumBytes = 8 * 1024 * 1024;
  // Batches older than this go. At least 1 s.
  std::chrono::seconds maximumAge{std::chrono::hours(24 * 7)};
  // A hard limit on the file itself (SQLite's page limit), for hosts that must cap their disk
  // use; a write past it fails as on a full disk. 0: none.
  std::uint64_t maximumFileBytes = 0;
  // How long a write waits for another process that holds the database's lock.
  std::chrono::milliseconds busyTimeout{5000};
};

// What the spool did to its batches, counted in spans.
struct QENSpanSpoolCounters {
  std::uint64_t persisted = 0;           // written in a committed transaction
  std::uint64_t droppedFull = 0;         // the oldest, pushed out by the byte bound
  std::uint64_t droppedExpired = 0;      // older than the age bound
  std::uint64_t droppedWriteFailed = 0;  // not written: disk full, read-only, no spool
  std::uint64_t droppedCleared = 0;      // deleted by clear
  std::uint64_t recovered = 0;           // snapshot spans of unfinished trees, turned into batches
  std::uint64_t filesMovedAside = 0;     // unreadable or foreign files renamed at open
};

// Finished batches waiting for delivery, kept in an SQLite database in WAL mode so that a
// committed batch survives the process being killed: a write is one transaction, and a batch
// leaves only when delivery is acknowledged (remove). A file that is not a spool, or not a
// readable database, is renamed aside ("<path>.unreadable-<unix seconds>") untouched and a fresh
// spool made; one that cannot be judged or moved is left alone and the spool stays closed. When the
// spool cannot be written at all (read-only folder, full disk), every write fails and is counted;
// nothing blocks for longer than the busy timeout, nothing throws.
//
// Snapshots of unfinished trees are kept apart, one per tree, each replacing the last. The next
// process that opens the spool turns what snapshots are left, trees that never completed, into
// ordinary batches before anything else.
//
// Thread-safe: one connection, every operation under one mutex.
class QENSpanSpool {
 public:
  // A stored batch: what was appended, with the spool's id for it.
  struct Batch : QENEncodedBatch {
    std::int64_t id = 0;
    int attempts = 0;  // sends started, in any process
  };

  explicit QENSpanSpool(QENSpanSpoolOptions options);
  ~QENSpanSpool();
  QENSpanSpool(const QENSpanSpool&) = delete;
  QENSpanSpool& operator=(const QENSpanSpool&) = delete;

  // Writes one batch in one transaction, then applies the bounds. False if it could not be
  // written (counted in droppedWriteFailed).
  bool append(const QENEncodedBatch& batch);
  // The oldest batch after the age bound is applied, or none.
  std::optional<Batch> oldest();
  // Counts a send of the batch before it starts, so that a later process knows it was tried.
  void recordAttempt(std::int64_t id);
  // False when the batch was no longer there (cleared, or expired).
  bool remove(std::int64_t id);
  // Puts `parts` (each framed on its own) in the place of batch `id`, in one transaction, keeping
  // its age: a batch the collector found too large goes again in parts. Not counted as persisted
  // again. False when it could not be done; the batch then stays as it was.
  bool replace(std::int64_t id, const std::vector<QENEncodedBatch>& parts);
  // Deletes every batch and snapshot, overwriting their bytes, and shrinks the write-ahead log,
  // so that nothing of them is left in the files, and removes the files moved aside from its
  // path; for a user who withdrew consent.
  void clear();

  // Keeps `batch` as the snapshot of tree `treeId`, replacing the previous one. False, keeping
  // nothing, while snapshots are refused.
  bool storeSnapshot(const std::string& treeId, const QENEncodedBatch& batch);
  // A reporter refuses snapshots while its user has not consented, so that a watcher sharing the
  // spool keeps nothing either.
  void refuseSnapshots(bool refused);
  void forgetSnapshot(const std::string& treeId);

  QENSpanSpoolCounters counters() const;
  // Whether the database is open; false after a failed open (every write is then dropped).
  bool isOpen() const;

 private:
  bool open();
  bool openDatabase();
  enum class FileVerdict { kOurs, kNotOurs, kCannotTell };
  FileVerdict judgeFile();
  static FileVerdict judgeWith(sqlite3* reader);
  bool createSchema();
  bool moveAside();
  void removeFilesMovedAside();
  void recoverSnapshots();
  void applyBounds();
  struct Deleted {
    std::uint64_t batches = 0;
    std::uint64_t spans = 0;
  };
  Deleted deleteCounting(const char* condition, std::int64_t argument);
  bool exec(const char* sql);
  void logFailure(const std::string& what);

  const QENSpanSpoolOptions options_;
  mutable std::mutex mutex_;
  sqlite3* db_ = nullptr;
  QENSpanSpoolCounters counters_;
  bool snapshotsRefused_ = false;
};
