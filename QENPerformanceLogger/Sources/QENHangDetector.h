#pragma once

#include <optional>

// A stretch of time in which the app's main thread answered nothing: from its last heartbeat
// before the hang to its first after it (or, for a hang still going on, to the latest check).
struct QENHang {
  double start = 0;
  double end = 0;
};

// When the main thread hangs, from its heartbeats and a watchdog's periodic checks, on times
// given (the library's monotonic seconds), so that the rules run the same in a test as in an app.
// A hang begins at a check that finds no heartbeat for the threshold, and ends at the next
// heartbeat. What the watchdog could not have seen is no hang: nothing counts while the app is in
// the background, and a check much later than the watchdog's own period (the process was
// suspended, its threads with it) starts the count again.
class QENHangDetector {
 public:
  static constexpr double kDefaultThreshold = 2;
  static constexpr double kMinimumThreshold = 0.1;

  // The watchdog checks every `checkInterval` seconds; a check more than twice that after the
  // one before finds the process was suspended. A threshold below the minimum is raised to it.
  QENHangDetector(double threshold, double checkInterval, double now);

  // The main thread answered at `now`: the hang going on, if any, ends here.
  std::optional<QENHang> heartbeat(double now);
  // The watchdog's check: the hang that begins here, if any. A hang going on when the process
  // turns out to have been suspended ends at the check before, as the last time it was seen.
  struct CheckResult {
    std::optional<QENHang> began;
    std::optional<QENHang> ended;
  };
  CheckResult check(double now);
  // The app went to the background (a hang going on ends there) or came back.
  std::optional<QENHang> enterBackground(double now);
  void enterForeground(double now);

 private:
  std::optional<QENHang> endHang(double end);

  const double threshold_;
  const double checkInterval_;
  double lastHeartbeat_;
  double lastCheck_;
  std::optional<double> hangStart_;
  bool inBackground_ = false;
};
