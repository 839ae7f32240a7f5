#include "QENSpanSpool.h"

#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <limits>

#include "QENFoundation/QENFoundationDevLogger.h"

namespace {

// "QENS": marks a database as a span spool, so that a foreign file is never taken for one.
constexpr int kApplicationId = 0x51454E53;
constexpr int kSchemaVersion = 1;

constexpr const char* kSchema =
    "CREATE TABLE IF NOT EXISTS batches(id INTEGER PRIMARY KEY AUTOINCREMENT,"
    " created INTEGER NOT NULL, content_type TEXT NOT NULL, gzipped INTEGER NOT NULL,"
    " span_count INTEGER NOT NULL, attempts INTEGER NOT NULL DEFAULT 0, body BLOB NOT NULL);"
    "CREATE TABLE IF NOT EXISTS snapshots(tree TEXT PRIMARY KEY, created INTEGER NOT NULL,"
    " content_type TEXT NOT NULL, gzipped INTEGER NOT NULL, span_count INTEGER NOT NULL,"
    " body BLOB NOT NULL);"
    "CREATE INDEX IF NOT EXISTS batches_by_age ON batches(created);"
    // The bytes the batches hold, kept by triggers so that the byte bound needs no scan.
    "CREATE TABLE IF NOT EXISTS totals(bytes INTEGER NOT NULL);"
    "INSERT INTO totals SELECT 0 WHERE NOT EXISTS (SELECT 1 FROM totals);"
    "CREATE TRIGGER IF NOT EXISTS batch_added AFTER INSERT ON batches"
    " BEGIN UPDATE totals SET bytes = bytes + length(NEW.body); END;"
    "CREATE TRIGGER IF NOT EXISTS batch_removed AFTER DELETE ON batches"
    " BEGIN UPDATE totals SET bytes = bytes - length(OLD.body); END;";

std::int64_t unixSeconds() {
  return std::chrono::duration_cast<std::chrono::seconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

// One prepared statement, finalised on every path out.
class Statement {
 public:
  Statement(sqlite3* db, const char* sql)
      : prepared_(db == nullptr ? SQLITE_MISUSE
                                : sqlite3_prepare_v2(db, sql, -1, &statement_, nullptr)) {}
  ~Statement() { sqlite3_finalize(statement_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  Statement& bind(int index, std::int64_t value) {
    sqlite3_bind_int64(statement_, index, value);
    return *this;
  }
  Statement& bind(int index, const std::string& text) {
    sqlite3_bind_text(statement_, index, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
    return *this;
  }
  Statement& bindBlob(int index, const std::string& bytes) {
    sqlite3_bind_blob(statement_, index, bytes.data(), static_cast<int>(bytes.size()),
                      SQLITE_STATIC);
    return *this;
  }
  // SQLITE_ROW, SQLITE_DONE or an error code (the preparation's, if that failed).
  int step() {
    if (prepared_ != SQLITE_OK || statement_ == nullptr) {
      return prepared_ != SQLITE_OK ? prepared_ : SQLITE_ERROR;
    }
    return sqlite3_step(statement_);
  }
  bool run() { return step() == SQLITE_DONE; }
  std::int64_t integer(int column) const { return sqlite3_column_int64(statement_, column); }
  std::string text(int column) const {
    const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement_, column));
    return bytes == nullptr
               ? std::string()
               : std::string(bytes,
                             static_cast<std::size_t>(sqlite3_column_bytes(statement_, column)));
  }

 private:
  sqlite3_stmt* statement_ = nullptr;
  const int prepared_;
};

}  // namespace

QENSpanSpool::QENSpanSpool(QENSpanSpoolOptions options) : options_(std::move(options)) {
  const std::lock_guard guard(mutex_);
  if (!open()) {
    sqlite3_close(db_);
    db_ = nullptr;
  }
}

QENSpanSpool::~QENSpanSpool() {
  sqlite3_close(db_);
}

bool QENSpanSpool::isOpen() const {
  const std::lock_guard guard(mutex_);
  return db_ != nullptr;
}

QENSpanSpoolCounters QENSpanSpool::counters() const {
  const std::lock_guard guard(mutex_);
  return counters_;
}

void QENSpanSpool::logFailure(const std::string& what) {
  const char* reason = db_ != nullptr ? sqlite3_errmsg(db_) : "no database";
  QENFoundationDevLogger::sharedInstance().remote().logErrorWithMessage(
      "QENSpanSpool at " + options_.path + ": " + what + " (" + reason + ")", true, 1,
      "QENSpanSpool", nullptr, __LINE__, __FILE__);
}

bool QENSpanSpool::exec(const char* sql) {
  return db_ != nullptr && sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

bool QENSpanSpool::openDatabase() {
  sqlite3_close(db_);
  db_ = nullptr;
  if (sqlite3_open_v2(options_.path.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE,
                      nullptr) != SQLITE_OK) {
    logFailure("cannot open the spool; spans will be dropped");
    return false;
  }
  sqlite3_busy_timeout(db_, static_cast<int>(options_.busyTimeout.count()));
  return true;
}

// A spool of this version, or an empty database that may become one: readable, intact, and marked
// as ours or holding nothing. Only a definite answer counts: a database another process holds
// locked is not someone else's file. Judged on a read-only connection of its own, so that a file
// that is not ours is never changed, not even by the rollback of a hot journal or a checkpoint.
QENSpanSpool::FileVerdict QENSpanSpool::judgeFile() {
  std::error_code error;
  if (!std::filesystem::exists(options_.path, error) ||
      std::filesystem::is_empty(options_.path, error)) {
    return FileVerdict::kOurs;  // nothing there yet
  }
  sqlite3* reader = nullptr;
  sqlite3_open_v2(options_.path.c_str(), &reader, SQLITE_OPEN_READONLY, nullptr);
  sqlite3_extended_result_codes(reader, 1);
  sqlite3_busy_timeout(reader, static_cast<int>(options_.busyTimeout.count()));
  const FileVerdict verdict = judgeWith(reader);
  sqlite3_close(reader);
  return verdict;
}

QENSpanSpool::FileVerdict QENSpanSpool::judgeWith(sqlite3* reader) {
  const auto verdictOf = [](int result) {
    // A hot rollback journal: the spool writes ahead in WAL mode and never leaves one.
    const bool notOurs = result == SQLITE_NOTADB || (result & 0xff) == SQLITE_CORRUPT ||
                         result == SQLITE_READONLY_ROLLBACK;
    return notOurs ? FileVerdict::kNotOurs : FileVerdict::kCannotTell;
  };
  Statement check(reader, "PRAGMA quick_check");
  if (const int result = check.step(); result != SQLITE_ROW) {
    return verdictOf(result);
  }
  if (check.text(0) != "ok") {
    return FileVerdict::kNotOurs;
  }
  Statement mark(reader, "PRAGMA application_id");
  Statement version(reader, "PRAGMA user_version");
  Statement tables(reader, "SELECT count(*) FROM sqlite_master");
  for (Statement* statement : {&mark, &version, &tables}) {
    if (const int result = statement->step(); result != SQLITE_ROW) {
      return verdictOf(result);
    }
  }
  const bool spool = mark.integer(0) == kApplicationId && version.integer(0) == kSchemaVersion;
  const bool empty = mark.integer(0) == 0 && tables.integer(0) == 0;
  return spool || empty ? FileVerdict::kOurs : FileVerdict::kNotOurs;
}

// False when the file cannot be moved: it is then left alone, never written to.
bool QENSpanSpool::moveAside() {
  sqlite3_close(db_);
  db_ = nullptr;
  // A name no earlier file took, even one moved aside in the same second.
  const std::string stem = options_.path + ".unreadable-" + std::to_string(unixSeconds());
  std::string aside = stem;
  std::error_code error;
  for (int copy = 2; std::filesystem::exists(aside, error); ++copy) {
    aside = stem + "-" + std::to_string(copy);
  }
  std::filesystem::rename(options_.path, aside, error);
  if (error) {
    logFailure("the file is not a readable span spool and cannot be moved aside (" +
               error.message() + "); spans will be dropped");
    return false;
  }
  for (const char* suffix : {"-wal", "-shm", "-journal"}) {
    std::filesystem::rename(options_.path + suffix, aside + suffix, error);  // where there are
  }
  ++counters_.filesMovedAside;
  QENFoundationDevLogger::sharedInstance().remote().logErrorWithMessage(
      "QENSpanSpool: " + options_.path + " is not a readable span spool; moved to " + aside +
          " and a fresh spool made",
      true, 1, "QENSpanSpool", nullptr, __LINE__, __FILE__);
  return true;
}

bool QENSpanSpool::createSchema() {
  const std::string marks = "PRAGMA application_id=" + std::to_string(kApplicationId) +
                            ";PRAGMA user_version=" + std::to_string(kSchemaVersion);
  // In WAL mode a committed transaction survives the process being killed whatever the
  // synchronous setting; NORMAL leaves out the flush to disk on every commit, so only a power
  // loss (not a killed app) can take the last batches back.
  if (!exec("PRAGMA journal_mode=WAL") || !exec("PRAGMA synchronous=NORMAL") || !exec(kSchema) ||
      !exec(marks.c_str())) {
    logFailure("cannot prepare the spool; spans will be dropped");
    return false;
  }
  if (options_.maximumFileBytes > 0) {
    Statement pageSize(db_, "PRAGMA page_size");
    const std::int64_t pageBytes = pageSize.step() == SQLITE_ROW ? pageSize.integer(0) : 4096;
    const std::string limit =
        "PRAGMA max_page_count=" +
        std::to_string(std::max<std::uint64_t>(1, options_.maximumFileBytes / pageBytes));
    exec(limit.c_str());
  }
  return true;
}

bool QENSpanSpool::open() {
  // Judged before it is opened for writing: a foreign database is never touched, only moved.
  switch (judgeFile()) {
    case FileVerdict::kOurs:
      break;
    case FileVerdict::kNotOurs:
      if (!moveAside()) {
        return false;
      }
      break;
    case FileVerdict::kCannotTell:
      logFailure("cannot read the spool; spans will be dropped");
      return false;
  }
  if (!openDatabase() || !createSchema()) {
    return false;
  }
  recoverSnapshots();
  applyBounds();
  return true;
}

void QENSpanSpool::recoverSnapshots() {
  if (!exec("BEGIN IMMEDIATE")) {
    return;
  }
  std::uint64_t spans = 0;
  {
    Statement count(db_, "SELECT coalesce(sum(span_count), 0) FROM snapshots");
    if (count.step() == SQLITE_ROW) {
      spans = static_cast<std::uint64_t>(count.integer(0));
    }
  }
  if (exec("INSERT INTO batches(created, content_type, gzipped, span_count, body)"
           " SELECT created, content_type, gzipped, span_count, body FROM snapshots"
           " ORDER BY created") &&
      exec("DELETE FROM snapshots") && exec("COMMIT")) {
    counters_.recovered += spans;
  } else {
    exec("ROLLBACK");
  }
}

// Deletes the batches the condition names, in one transaction, whatever spans they hold.
QENSpanSpool::Deleted QENSpanSpool::deleteCounting(const char* condition, std::int64_t argument) {
  const std::string count =
      std::string("SELECT count(*), coalesce(sum(span_count), 0) FROM batches WHERE ") + condition;
  const std::string remove = std::string("DELETE FROM batches WHERE ") + condition;
  if (!exec("BEGIN IMMEDIATE")) {
    return {};
  }
  Deleted deleted;
  {
    Statement counting(db_, count.c_str());
    if (counting.bind(1, argument).step() == SQLITE_ROW) {
      deleted = {static_cast<std::uint64_t>(counting.integer(0)),
                 static_cast<std::uint64_t>(counting.integer(1))};
    }
  }
  if (deleted.batches > 0 && Statement(db_, remove.c_str()).bind(1, argument).run() &&
      exec("COMMIT")) {
    return deleted;
  }
  exec("ROLLBACK");
  return {};
}

void QENSpanSpool::applyBounds() {
  counters_.droppedExpired +=
      deleteCounting("created < ?1", unixSeconds() - options_.maximumAge.count()).spans;
  // SQLite counts in signed 64 bits: a bound past them is no bound, never a negative one.
  const auto maximumBytes = static_cast<std::int64_t>(std::clamp<std::uint64_t>(
      options_.maximumBytes, 1, std::numeric_limits<std::int64_t>::max()));
  for (;;) {  // the oldest go until the newest fit
    {
      Statement total(db_, "SELECT bytes FROM totals");
      if (total.step() != SQLITE_ROW || total.integer(0) <= maximumBytes) {
        return;
      }
    }
    const Deleted dropped = deleteCounting("id = (SELECT min(id) FROM batches) AND ?1", 1);
    if (dropped.batches == 0) {
      return;
    }
    counters_.droppedFull += dropped.spans;
  }
}

bool QENSpanSpool::append(const QENEncodedBatch& batch) {
  const std::lock_guard guard(mutex_);
  Statement insert(db_,
                   "INSERT INTO batches(created, content_type, gzipped, span_count, body)"
                   " VALUES(?1, ?2, ?3, ?4, ?5)");
  const bool written = insert.bind(1, unixSeconds())
                           .bind(2, batch.contentType)
                           .bind(3, batch.gzipped ? 1 : 0)
                           .bind(4, static_cast<std::int64_t>(batch.spanCount))
                           .bindBlob(5, batch.body)
                           .run();
  if (!written) {
    counters_.droppedWriteFailed += batch.spanCount;
    logFailure("a batch of " + std::to_string(batch.spanCount) + " spans could not be written");
    return false;
  }
  counters_.persisted += batch.spanCount;
  applyBounds();
  return true;
}

std::optional<QENSpanSpool::Batch> QENSpanSpool::oldest() {
  const std::lock_guard guard(mutex_);
  counters_.droppedExpired +=
      deleteCounting("created < ?1", unixSeconds() - options_.maximumAge.count()).spans;
  Statement select(db_,
                   "SELECT id, body, content_type, gzipped, span_count, attempts FROM batches"
                   " ORDER BY id LIMIT 1");
  if (select.step() != SQLITE_ROW) {
    return std::nullopt;
  }
  return Batch{{select.text(1), select.text(2), select.integer(3) != 0,
                static_cast<std::uint64_t>(select.integer(4))},
               select.integer(0),
               static_cast<int>(select.integer(5))};
}

void QENSpanSpool::recordAttempt(std::int64_t id) {
  const std::lock_guard guard(mutex_);
  Statement(db_, "UPDATE batches SET attempts = attempts + 1 WHERE id = ?1").bind(1, id).run();
}

bool QENSpanSpool::remove(std::int64_t id) {
  const std::lock_guard guard(mutex_);
  return Statement(db_, "DELETE FROM batches WHERE id = ?1").bind(1, id).run() &&
         sqlite3_changes(db_) > 0;
}

bool QENSpanSpool::replace(std::int64_t id, const std::vector<QENEncodedBatch>& parts) {
  const std::lock_guard guard(mutex_);
  if (!exec("BEGIN IMMEDIATE")) {
    return false;
  }
  bool written = true;
  for (const QENEncodedBatch& part : parts) {
    written =
        written && Statement(db_,
                             "INSERT INTO batches(created, content_type, gzipped, span_count,"
                             " body) SELECT created, ?2, ?3, ?4, ?5 FROM batches WHERE id = ?1")
                       .bind(1, id)
                       .bind(2, part.contentType)
                       .bind(3, part.gzipped ? 1 : 0)
                       .bind(4, static_cast<std::int64_t>(part.spanCount))
                       .bindBlob(5, part.body)
                       .run();
  }
  if (written && Statement(db_, "DELETE FROM batches WHERE id = ?1").bind(1, id).run() &&
      exec("COMMIT")) {
    return true;
  }
  exec("ROLLBACK");
  return false;
}

void QENSpanSpool::clear() {
  const std::lock_guard guard(mutex_);
  exec("PRAGMA secure_delete = ON");
  counters_.droppedCleared += deleteCounting("?1", 1).spans;
  exec("DELETE FROM snapshots");
  exec("PRAGMA secure_delete = OFF");
  exec("PRAGMA wal_checkpoint(TRUNCATE)");
  removeFilesMovedAside();
}

// Files moved aside, by this process or an earlier one, may hold spans of their own.
void QENSpanSpool::removeFilesMovedAside() {
  const std::filesystem::path spool(options_.path);
  const std::string prefix = spool.filename().string() + ".unreadable-";
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(
           spool.parent_path().empty() ? "." : spool.parent_path(), error)) {
    if (entry.path().filename().string().starts_with(prefix)) {
      std::filesystem::remove(entry.path(), error);
    }
  }
}

void QENSpanSpool::refuseSnapshots(bool refused) {
  const std::lock_guard guard(mutex_);
  snapshotsRefused_ = refused;
}

bool QENSpanSpool::storeSnapshot(const std::string& treeId, const QENEncodedBatch& batch) {
  const std::lock_guard guard(mutex_);
  if (snapshotsRefused_) {
    return false;
  }
  Statement replace(db_,
                    "INSERT OR REPLACE INTO snapshots(tree, created, content_type, gzipped,"
                    " span_count, body) VALUES(?1, ?2, ?3, ?4, ?5, ?6)");
  return replace.bind(1, treeId)
      .bind(2, unixSeconds())
      .bind(3, batch.contentType)
      .bind(4, batch.gzipped ? 1 : 0)
      .bind(5, static_cast<std::int64_t>(batch.spanCount))
      .bindBlob(6, batch.body)
      .run();
}

void QENSpanSpool::forgetSnapshot(const std::string& treeId) {
  const std::lock_guard guard(mutex_);
  Statement(db_, "DELETE FROM snapshots WHERE tree = ?1").bind(1, treeId).run();
}
