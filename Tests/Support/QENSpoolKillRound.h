#pragma once

// What the kill test needs: the child process it kills, the reporter that drains its spool
// afterwards, and SQLite's own check of the file it left.
#include <signal.h>
#include <sqlite3.h>

#include <cstdio>
#include <optional>
#include <string>

#include "QENSpanReporter.h"

// The kill test's child program (under the emulator of a cross build), its standard output on a
// pipe; killed, if still running, when destroyed. The child's first line is its process id.
class QENChildProcess {
 public:
  QENChildProcess(const std::string& spoolPath, const std::string& collectorURL)
      : output_(::popen(("exec " + std::string(QEN_TEST_EMULATOR) + " " + QEN_SPOOL_KILL_CHILD +
                         " " + spoolPath + " " + collectorURL)
                            .c_str(),
                        "r")),
        pid_(std::stoi(readLine().value_or("-1"))) {}
  ~QENChildProcess() {
    if (pid_ > 0)
      ::kill(pid_, SIGKILL);
    if (output_ != nullptr)
      ::pclose(output_);
  }
  QENChildProcess(const QENChildProcess&) = delete;
  QENChildProcess& operator=(const QENChildProcess&) = delete;

  // The next line the child wrote, without its newline; none once it closed its output.
  std::optional<std::string> readLine() {
    char line[256];
    if (output_ == nullptr || std::fgets(line, sizeof line, output_) == nullptr)
      return std::nullopt;
    std::string text(line);
    if (!text.empty() && text.back() == '\n')
      text.pop_back();
    return text;
  }

 private:
  std::FILE* output_;
  pid_t pid_;
};

inline std::string integrityOf(const std::string& spoolPath) {
  sqlite3* db = nullptr;
  std::string result = "cannot open";
  if (sqlite3_open_v2(spoolPath.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(db, "PRAGMA integrity_check", -1, &statement, nullptr);
    if (sqlite3_step(statement) == SQLITE_ROW)
      result = reinterpret_cast<const char*>(sqlite3_column_text(statement, 0));
    sqlite3_finalize(statement);
  }
  sqlite3_close(db);
  return result;
}

// Drains the spool through a fresh reporter; returns its counters.
inline QENSpanReporterCounters drainSpool(const std::string& spoolPath, const std::string& url) {
  QENSpanReporterOptions options;
  options.collectorURL = url;
  options.spool = std::make_shared<QENSpanSpool>(QENSpanSpoolOptions{.path = spoolPath});
  options.initialBackoff = std::chrono::milliseconds(1);
  QENSpanReporter drainer(options);
  drainer.shutdown(std::chrono::seconds(60));
  return drainer.counters();
}
