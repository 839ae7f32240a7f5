package com.qen.performancelogger;

/**
 * What the app knows of how its start began, for {@link Metric#tagAppStart}. On Android: the
 * process's start ({@code Process.getStartUptimeMillis()}) and the first activity's {@code
 * onCreate} or {@code onStart}, both on the uptime clock, which is {@link Metric#now()}'s; whether
 * {@code onCreate} had a saved-state bundle; whether the process began for an activity (its
 * importance at {@code Application.onCreate}) or for a push, a broadcast, a job.
 */
public final class AppStart {
  /** Seconds on {@link Metric#now()}'s clock. */
  public double processStartTime;
  /** When the first screen was created or came to the front; NaN while there is none. */
  public double firstScreenTime = Double.NaN;
  /** The process was there before this start. */
  public boolean processWasRunning;
  /** An existing screen only came back to the front. */
  public boolean screenBroughtToFront;
  public boolean restoredFromSavedState;
  /** The system started the process ahead of the user. */
  public boolean prewarmedBySystem;
  /** The process began for a push, a broadcast, a job: not for a screen. */
  public boolean startedInBackground;

  /** The C interface's QENCAppStartFlag values. */
  int flags() {
    return (processWasRunning ? 1 : 0) | (screenBroughtToFront ? 2 : 0)
        | (restoredFromSavedState ? 4 : 0) | (prewarmedBySystem ? 8 : 0)
        | (startedInBackground ? 16 : 0);
  }
}
