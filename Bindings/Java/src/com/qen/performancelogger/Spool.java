package com.qen.performancelogger;


/**
 * Batches kept in an SQLite file through a killed app until a reporter delivers them. A reporter
 * given the spool keeps it open as long as it needs it, whether or not this object is closed.
 */
public final class Spool implements AutoCloseable {
  final long handle;
  private final NativeReleaser.Registration registration;

  /** 0 for a bound takes its default (8 MiB, seven days); a negative one is refused. */
  public Spool(String path, long maximumBytes, int maximumAgeSeconds) {
    long[] made = new long[1];
    QENPerformanceLoggerException.check(Native.spoolCreate(Arguments.required(path, "path"), maximumBytes,
        maximumAgeSeconds, made), "Spool");
    handle = made[0];
    registration = NativeReleaser.register(this, handle, Native::spoolRelease);
  }

  @Override
  public void close() {
    registration.release();
  }
}
