#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "QENHangDetector.h"

// A hang as the library keeps it: its times and, when the host gave a way to read it, the main
// thread's stack as the hang began.
struct QENRecordedHang : QENHang {
  std::string mainThreadStack;
};

// The process's hang watchdog. The host's main thread calls heartbeat() often (every few hundred
// milliseconds, from its run loop or Looper); a thread of the library checks every quarter of the
// threshold, and a check that finds no heartbeat for the threshold (2 s by default, 100 ms at
// least) begins a hang, which ends at the next heartbeat (QENHangDetector says which gaps count:
// none while the app is in the background, none across a suspension). Each top-level metric,
// at its stop, gets a child span "app.hang" for every hang of its run, cut to its run, tagged
// "app.hang.stack" with the stack when there is one.
class QENHangMonitor {
 public:
  struct Options {
    double threshold = QENHangDetector::kDefaultThreshold;
    // Reads the main thread's stack, on the watchdog's thread, as a hang begins; may be empty.
    std::function<std::string()> captureMainThreadStack;
    // Hears of a hang at each check while it goes on (ongoing true) and once as it ends, on the
    // thread that saw it; a spool keeps the ongoing hang through a kill from here.
    std::function<void(const QENRecordedHang&, bool ongoing)> observer;
    // Checks on a thread of the monitor's own. False: the host calls check() on its own schedule
    // (every quarter of the threshold), as tests do on their clock.
    bool startsThread = true;
  };
  // How many ended hangs are kept for the metrics still running.
  static constexpr std::size_t kKeptHangs = 16;

  static QENHangMonitor& shared();

  // Starts watching, or watches anew with other options. Observes the application's background
  // and foreground notifications from the first start on.
  void start(Options options);
  // Stops the watchdog's thread and forgets the hangs; heartbeats do nothing until a start.
  void stop();
  // Hears of the hangs from now on in place of the options' observer, until the next start.
  void setObserver(std::function<void(const QENRecordedHang&, bool ongoing)> observer);
  bool isWatching() const noexcept { return watching_.load(std::memory_order_relaxed); }

  void heartbeat();
  void heartbeat(double now);
  void check(double now);

  // The hangs of [startTime, stopTime], the ongoing one included, each cut to it.
  std::vector<QENRecordedHang> hangsDuring(double startTime, double stopTime) const;

 private:
  QENHangMonitor();
  void observeApplicationState();
  void runChecks(std::uint64_t generation);
  void forgetHangs();  // under mutex_
  static void end(std::thread checker);
  void ended(std::unique_lock<std::mutex>& lock, std::optional<QENHang> hang);

  mutable std::mutex mutex_;
  std::condition_variable stopping_;
  Options options_;
  std::optional<QENHangDetector> detector_;
  std::optional<QENRecordedHang> ongoing_;
  std::deque<QENRecordedHang> kept_;
  std::thread checker_;
  std::uint64_t generation_ = 0;  // a start or a stop moves it on: a thread of another ends
  std::atomic<bool> watching_{false};
};
