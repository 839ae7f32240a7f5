#pragma once

// What the kill tests need: the child process they kill, the reporter that drains its spool
// afterwards, and SQLite's own check of the file it left.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "QENSpanReporter.h"

extern char** environ;

// A child program with its standard output on a pipe; killed, if still running, when destroyed.
class QENChildProcess {
 public:
  explicit QENChildProcess(std::vector<std::string> command) {
    int pipeEnds[2];
    ::pipe(pipeEnds);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, pipeEnds[0]);
    std::vector<char*> arguments;
    for (auto& argument : command)
      arguments.push_back(argument.data());
    arguments.push_back(nullptr);
    ::posix_spawnp(&pid_, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(pipeEnds[1]);
    output_ = ::fdopen(pipeEnds[0], "r");
  }
  ~QENChildProcess() {
    kill();
    std::fclose(output_);
  }
  QENChildProcess(const QENChildProcess&) = delete;
  QENChildProcess& operator=(const QENChildProcess&) = delete;

  // The next line the child wrote, without its newline; none once it closed its output.
  std::optional<std::string> readLine() {
    char line[256];
    if (std::fgets(line, sizeof line, output_) == nullptr)
      return std::nullopt;
    std::string text(line);
    if (!text.empty() && text.back() == '\n')
      text.pop_back();
    return text;
  }

  void kill() {
    if (pid_ > 0) {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, nullptr, 0);
      pid_ = -1;
    }
  }

 private:
  pid_t pid_ = -1;
  std::FILE* output_ = nullptr;
};

// The command that starts the kill test's child program (under the emulator of a cross build).
inline std::vector<std::string> spoolKillChild(const std::string& spoolPath,
                                               const std::string& collectorURL,
                                               const std::string& mode) {
  std::vector<std::string> command;
  if (std::string(QEN_TEST_EMULATOR).size() > 0)
    command.push_back(QEN_TEST_EMULATOR);
  command.insert(command.end(), {QEN_SPOOL_KILL_CHILD, spoolPath, collectorURL, mode});
  return command;
}

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
