package com.qen.performancelogger;

/**
 * The process's hang watchdog: the main thread calls {@link #heartbeat()} often, and a library
 * thread checks every quarter of the threshold that one came. A gap of the threshold while the app
 * is in the foreground ({@link AppLifecycleBridge} tells it), not across a suspension of the
 * process, is a hang; each top-level metric running through it gets a child span {@code app.hang}.
 * The heartbeat costs a lock and a clock read, and blocks on no I/O.
 *
 * <p>On Android, from a {@code Runnable} the main {@code Looper}'s {@code Handler} runs every 500
 * ms, re-posting itself: {@code Hangs.heartbeat(); handler.postDelayed(this, 500);}
 */
public final class Hangs {
  private Hangs() {}

  /** Starts the watchdog, or starts it anew, with a threshold of at least 0.1 s (0: 2 s). */
  public static void start(double thresholdSeconds) {
    QENPerformanceLoggerException.check(Native.hangMonitorStart(thresholdSeconds), "Hangs.start");
  }

  /**
   * After a start: keeps the hang going on in the spool, so that the next launch's reporter on it
   * sends a kill during a hang as a span {@code app.hang} tagged {@code app.hang.fatal} = true, in
   * the format (not Chrome trace) for the service and platform given. A start forgets it.
   */
  public static void keepOngoingHangsIn(Spool spool, Format format, String service, String platform) {
    java.util.Objects.requireNonNull(spool, "spool");
    QENPerformanceLoggerException.check(Native.hangMonitorKeepOngoingHangs(spool, spool.handle,
        Arguments.required(format, "format").ordinal(), Arguments.required(service, "service"),
        Arguments.required(platform, "platform")), "Hangs.keepOngoingHangsIn");
  }

  public static void heartbeat() {
    QENPerformanceLoggerException.check(Native.heartbeat(), "Hangs.heartbeat");
  }

  public static void stop() {
    QENPerformanceLoggerException.check(Native.hangMonitorStop(), "Hangs.stop");
  }
}
