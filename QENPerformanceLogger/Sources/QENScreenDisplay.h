#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string_view>

#include "QENFrameListener.h"

class QENPerformanceMetric;

// How long a screen took to show something and to show everything, as two child spans of the
// screen's metric, both from the screen's creation:
//   "ui.load.initial_display" ends at the end of the first frame that began once the screen was
//     created;
//   "ui.load.full_display" ends at the end of the first frame that began once the app said the
//     screen was fully drawn, or with the initial display when the app said so before it; or, when
//     the app has not said so by the timeout, at the timeout, tagged "ui.load.stop_reason" =
//     "timeout" (seen at the first frame or report after it).
// Frames come from the frame monitor; a display waits for them only until both spans are made.
class QENScreenDisplay : public QENFrameListener {
 public:
  static constexpr double kDefaultFullDisplayTimeout = 30;
  static constexpr std::string_view kInitialDisplayName = "ui.load.initial_display";
  static constexpr std::string_view kFullDisplayName = "ui.load.full_display";
  static constexpr std::string_view kStopReasonKey = "ui.load.stop_reason";

  // Starts waiting for the screen's frames. The screen was created at `creationTime` (the
  // library's monotonic seconds); `fullDisplayTimeout` is above 0. A null metric, a time that is
  // not finite or a timeout not above 0 is reported through the assertion facility, and gives
  // null.
  static std::shared_ptr<QENScreenDisplay> track(
      const std::shared_ptr<QENPerformanceMetric>& screen, double creationTime,
      double fullDisplayTimeout = kDefaultFullDisplayTimeout);

  // The app says the screen shows everything it is to show, at `time`. Later calls do nothing.
  void reportFullyDrawn(double time);

  bool frameDrawn(double startTime, double endTime) override;

  QENScreenDisplay(const std::shared_ptr<QENPerformanceMetric>& screen, double creationTime,
                   double fullDisplayTimeout);

 private:
  // Under mutex_. Each makes its span once.
  void endInitialDisplay(double endTime);
  void endFullDisplay(double endTime, bool timedOut);
  void timeOutFullDisplayIfDue(double now);

  mutable std::mutex mutex_;
  const std::weak_ptr<QENPerformanceMetric> screen_;
  const double creationTime_;
  const double fullDisplayDeadline_;
  std::optional<double> fullyDrawnTime_;
  bool initialDisplayEnded_ = false;
  bool fullDisplayEnded_ = false;
};
