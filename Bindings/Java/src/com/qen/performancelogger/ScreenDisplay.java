package com.qen.performancelogger;

/**
 * A screen's time to initial and full display, as two child spans of its metric, from its
 * creation: {@code ui.load.initial_display} ends with the first frame {@link Frames} hears of that
 * began once the screen was created; {@code ui.load.full_display} with the first frame begun once
 * {@link #reportFullyDrawn()} is called (or with the initial display, when called before it), or at
 * the timeout, tagged {@code ui.load.stop_reason} = {@code timeout}. On Android: made in the
 * activity's {@code onCreate}, told fully drawn where the app calls {@code reportFullyDrawn()}.
 * Closing it stops nothing: the spans still come with the frames.
 */
public final class ScreenDisplay implements AutoCloseable {
  private final long handle;
  private final NativeReleaser.Registration registration;

  /** From now, with the default timeout of 30 seconds. */
  public ScreenDisplay(Metric screen) {
    this(screen, Metric.now(), 30);
  }

  /** From {@code creationTime} (seconds on {@link Metric#now()}'s clock); a timeout above 0. */
  public ScreenDisplay(Metric screen, double creationTime, double fullDisplayTimeoutSeconds) {
    java.util.Objects.requireNonNull(screen, "screen");
    if (!(fullDisplayTimeoutSeconds > 0)) {
      throw new IllegalArgumentException("fullDisplayTimeoutSeconds must be above 0");
    }
    long[] made = new long[1];
    QENPerformanceLoggerException.check(Native.screenDisplayCreate(screen, screen.handle,
        creationTime, fullDisplayTimeoutSeconds, made), "ScreenDisplay");
    handle = made[0];
    registration = NativeReleaser.register(this, handle, Native::screenDisplayRelease);
  }

  /** The screen shows everything it is to show, now. */
  public void reportFullyDrawn() {
    QENPerformanceLoggerException.check(
        Native.screenDisplayReportFullyDrawn(this, handle, Metric.now()), "reportFullyDrawn");
  }

  @Override
  public void close() {
    registration.release();
  }
}
