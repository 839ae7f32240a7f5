#pragma once

#include <optional>
#include <string_view>

class QENPerformanceMetric;

// How an app's start began, for the start-up metric's `app.start.type` tag.
enum class QENAppStartType {
  kCold,       // a new process, started for the user, its first screen made anew
  kWarm,       // a screen made anew in a process that was there before the user asked (still
               // running, or started for a push or a job), or restored from saved state
  kHot,        // a running process whose screen was only brought back to the front
  kPrewarmed,  // a new process the system started ahead of the user (iOS prewarming)
};

// What the host knows of its start. Times are the library's monotonic clock, in seconds
// (QENMonotonicTimeGetCurrent).
struct QENAppStartFacts {
  double processStartTime = 0;
  // When the first screen (an activity, a scene) was created or brought to the front; none while
  // there is no screen, as for a process started for a background task.
  std::optional<double> firstScreenTime{};
  bool processWasRunning = false;  // the process was there before this start
  bool screenWasCreated = true;    // false: an existing screen only came back to the front
  bool restoredFromSavedState = false;
  bool prewarmedBySystem = false;
  // The process was started because a screen was coming to the foreground (on Android, its
  // importance at Application.onCreate); false for a push, a broadcast, a job.
  bool startedForForeground = true;
};

// The tag's key and its values: "cold", "warm", "hot", "prewarmed".
inline constexpr std::string_view QENAppStartTypeTagKey = "app.start.type";
std::string_view QENAppStartTypeName(QENAppStartType type);

// The start the facts describe, or none when no user sat through it: no screen yet, or a fresh
// foreground process whose first screen came more than `longestColdStartSeconds` after it began
// (a gap nobody waited for: the app was left before its screen, or the clock moved). A warm start
// is measured from its screen, a cold one from its process's start. Facts that cannot be (a time
// that is not finite, a screen before its process) are reported through the assertion facility,
// and give none.
std::optional<QENAppStartType> QENClassifyAppStart(const QENAppStartFacts& facts,
                                                   double longestColdStartSeconds = 60);

// Classifies the start and tags `startMetric` with its type; none, and no tag, when it was not a
// user-visible start (the host then invalidates its start-up metric rather than upload it).
std::optional<QENAppStartType> QENTagAppStart(QENPerformanceMetric& startMetric,
                                              const QENAppStartFacts& facts);
