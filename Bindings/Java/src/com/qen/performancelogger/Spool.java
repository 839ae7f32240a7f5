package com.qen.performancelogger;

import java.lang.ref.Cleaner;

/**
 * Batches kept in an SQLite file through a killed app until a reporter delivers them. A reporter
 * given the spool keeps it open as long as it needs it, whether or not this object is closed.
 */
public final class Spool implements AutoCloseable {
  final long handle;
  private final Cleaner.Cleanable cleanable;

  /** 0 for a bound takes its default (8 MiB, seven days); a negative one is refused. */
  public Spool(String path, long maximumBytes, int maximumAgeSeconds) {
    long[] made = new long[1];
    QENPerformanceLoggerException.check(Native.spoolCreate(Utf8.bytes(path, "path"), maximumBytes,
        maximumAgeSeconds, made), "Spool");
    handle = made[0];
    long released = handle;
    cleanable = Metric.CLEANER.register(this, () -> Native.spoolRelease(released));
  }

  @Override
  public void close() {
    cleanable.clean();
  }
}
