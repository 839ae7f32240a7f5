package com.qen.performancelogger;

/**
 * The frames the app draws, reported as they are drawn, so that every metric running counts
 * them: at its stop it is tagged {@code frames.total}, {@code frames.slow}, {@code frames.frozen}
 * and {@code frames.delay_ms} (time past the frames' expected intervals). A frame is slow when it
 * runs past the interval its display expected of it, at the refresh rate of that moment, by more
 * than the slow-frame tolerance; frozen from 700 ms. Reporting costs the same however many
 * metrics run, and blocks on no I/O.
 *
 * <p>On Android, {@link AndroidFrameMetricsListener} reports a window's frames, and {@link
 * AndroidActivityVitals} adds it to each activity in the foreground.
 */
public final class Frames {
  private Frames() {}

  /**
   * One frame: its start in seconds on {@link Metric#now()}'s clock, how long it took and the
   * interval its display expected of it, in seconds.
   *
   * @throws QENPerformanceLoggerException (INVALID_ARGUMENT) for a time that is not finite, or a
   *     duration or interval not above 0; the frame is left out
   */
  public static void report(double startTime, double duration, double expectedInterval) {
    QENPerformanceLoggerException.check(
        Native.reportFrame(startTime, duration, expectedInterval), "Frames.report");
  }

  /**
   * One frame as Android's {@code FrameMetrics} gives it: its start (the intended vsync, from API
   * 26) and total duration in nanoseconds ({@code System.nanoTime()}'s clock, which is {@link
   * Metric#now()}'s), and the display's refresh rate at that frame, in hertz.
   */
  public static void reportFrameMetrics(
      long intendedVsyncNanos, long totalDurationNanos, float refreshRate) {
    report(intendedVsyncNanos / 1e9, totalDurationNanos / 1e9, 1.0 / refreshRate);
  }

  /** How far past its interval a frame may run and not be slow: at least 0 (1 ms by default). */
  public static void setSlowFrameTolerance(double seconds) {
    QENPerformanceLoggerException.check(
        Native.setSlowFrameTolerance(seconds), "Frames.setSlowFrameTolerance");
  }
}
