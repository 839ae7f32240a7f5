package com.qen.performancelogger;


/** The spans a finished metric tree exported, ready to encode or to report. */
public final class Trace implements AutoCloseable {
  final long handle;
  private final NativeReleaser.Registration registration;

  Trace(Metric metric, String userId, String platform) {
    long[] made = new long[1];
    QENPerformanceLoggerException.check(Native.traceCreate(metric, metric.handle, userId,
        Arguments.required(platform, "platform"), made), "export");
    handle = made[0];
    registration = NativeReleaser.register(this, handle, Native::traceRelease);
  }

  public long spanCount() {
    long[] count = new long[1];
    QENPerformanceLoggerException.check(Native.traceSpanCount(this, handle, count), "spanCount");
    return count[0];
  }

  /** The spans in {@code format}, for the service named. */
  public byte[] encode(Format format, String service) {
    Object[] out = new Object[1];
    QENPerformanceLoggerException.check(Native.traceEncode(this, handle, format.ordinal(),
        Arguments.required(service, "service"), out), "encode");
    return (byte[]) out[0];
  }

  @Override
  public void close() {
    registration.release();
  }
}
