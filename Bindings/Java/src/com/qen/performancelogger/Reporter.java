package com.qen.performancelogger;

import java.util.ArrayList;
import java.util.Arrays;
import java.util.EnumMap;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.concurrent.TimeUnit;

/**
 * Sends traces to a collector from a native thread of its own. Closing it (or the binding's
 * releaser, for one left to the garbage collector) shuts it down, within 5 s, on a library thread.
 */
public final class Reporter implements AutoCloseable {
  /** What a reporter is made with. */
  public static final class Options {
    public String collectorURL;
    public Format format = Format.ZIPKIN_V2_JSON;
    public String service = "";
    public boolean gzip = true;
    public final Map<String, String> headers = new LinkedHashMap<>();
    public Spool spool;
    /** Until {@link #setConsent}: granted by default; an app that asks its users starts pending. */
    public Consent consent = Consent.GRANTED;
    /** Query keys whose values URL scrubbing keeps, matched exactly. */
    public final List<String> keptQueryKeys = new ArrayList<>();
    /** Limits other than the reporter's defaults; a value below a limit's floor is refused. */
    public final Map<Limit, Long> limits = new EnumMap<>(Limit.class);
    /** Sending also pauses below this battery level (0 to 1) when not charging. */
    public double minimumBatteryLevel = 0.1;
    public boolean pausesOnMeteredNetwork = false;
    /** Sees each tag about to leave, and each span's name (key "span.name"); null: none. */
    public TagFilter tagFilter;
    /** The app's own HTTP client to post through; null: the library posts with libcurl. */
    public Transport transport;
  }

  /**
   * The app's say over each tag about to leave, after URL scrubbing: returns the value to keep
   * (the same, or another string), or null to drop the tag (a name dropped leaves as "redacted").
   * Called on library threads, possibly two at once.
   */
  @FunctionalInterface
  public interface TagFilter {
    String filter(String key, String value);
  }

  /**
   * Posts a reporter's batches through the app's own HTTP client (OkHttp with its interceptors,
   * proxies and certificate pinning). Called on a library thread, one post at a time; it may
   * block, but a reporter waits for it only within its limits. An IOException is no answer (the
   * batch is retried); anything else it throws is logged and loses the batch, never the app.
   */
  @FunctionalInterface
  public interface Transport {
    Answer post(byte[] body, Map<String, String> headers) throws java.io.IOException;
  }

  /**
   * The collector's answer: its status, and its Retry-After header (null when it has none; a date
   * there is read as none).
   */
  public static final class Answer {
    static final long RETRY = 1;
    private final int status;
    private final String retryAfter;

    public Answer(int status, String retryAfter) {
      this.status = status;
      this.retryAfter = retryAfter;
    }

    public int status() {
      return status;
    }

    public String retryAfter() {
      return retryAfter;
    }

    /** The C interface's QENCPostOutcome, with the Retry-After seconds plus one above it. */
    long encoded() {
      long outcome = status >= 200 && status < 300 ? 0
          : status == 429 || status == 503 ? 2
          : status == 413 ? 3
          : status == 415 ? 4
          : status >= 300 && status < 500 ? 5
          : RETRY;
      long seconds = -1;
      if (outcome == 2 && retryAfter != null && retryAfter.trim().matches("[0-9]{1,9}")) {
        seconds = Long.parseLong(retryAfter.trim());
      }
      return outcome | (seconds + 1) << 8;
    }
  }

  /** The numbers a reporter works within (the C interface's QENCReporterLimit, in its order). */
  public enum Limit {
    MAXIMUM_SPANS_PER_REPORT, MAXIMUM_SPANS_PER_MINUTE, MAXIMUM_QUEUED_SPANS, MAXIMUM_BATCH_SPANS,
    MAXIMUM_BATCH_BYTES, MAXIMUM_TAGS_PER_SPAN, MAXIMUM_TAG_VALUE_BYTES, MAXIMUM_RETRIES,
    FLUSH_INTERVAL_MILLISECONDS, INITIAL_BACKOFF_MILLISECONDS, MAXIMUM_BACKOFF_MILLISECONDS,
    MAXIMUM_RETRY_AFTER_MILLISECONDS, REQUEST_TIMEOUT_MILLISECONDS, SHUTDOWN_MILLISECONDS,
    MAXIMUM_SPOOLED_RETRIES
  }

  /**
   * Whether the user lets telemetry leave the device; a reporter starts {@code GRANTED}. {@code
   * PENDING} keeps spans (in the spool, else in the queue) and sends none; {@code NOT_GRANTED}
   * keeps none, and what the spool held is deleted when {@link #setConsent} returns.
   */
  public enum Consent { PENDING, GRANTED, NOT_GRANTED }

  /**
   * What the app knows of the device: sending pauses while offline, in power-save, or under 10 %
   * battery and not charging, and resumes when that changes. {@code batteryLevel} is 0 to 1, or
   * {@code Double.NaN} when unknown.
   */
  public static final class DeviceConditions {
    final boolean online;
    final boolean metered;
    final boolean powerSave;
    final double batteryLevel;
    final boolean charging;

    public DeviceConditions(
        boolean online, boolean metered, boolean powerSave, double batteryLevel, boolean charging) {
      this.online = online;
      this.metered = metered;
      this.powerSave = powerSave;
      this.batteryLevel = batteryLevel;
      this.charging = charging;
    }
  }

  /**
   * What happened to the spans it was given. A value (not a record: records and java.time are
   * above Android API 24, which the binding supports).
   */
  public static final class Counters {
    public final long accepted;
    public final long persisted;
    public final long delivered;
    public final long dropped;

    public Counters(long accepted, long persisted, long delivered, long dropped) {
      this.accepted = accepted;
      this.persisted = persisted;
      this.delivered = delivered;
      this.dropped = dropped;
    }

    @Override
    public boolean equals(Object other) {
      return other instanceof Counters && Arrays.equals(values(), ((Counters) other).values());
    }

    @Override
    public int hashCode() {
      return Arrays.hashCode(values());
    }

    @Override
    public String toString() {
      return "Counters" + Arrays.toString(values());
    }

    private long[] values() {
      return new long[] {accepted, persisted, delivered, dropped};
    }
  }

  private final long handle;
  private final NativeReleaser.Registration registration;

  public Reporter(Options options) {
    List<String> headers = new ArrayList<>();
    options.headers.forEach((name, value) -> {
      headers.add(Arguments.required(name, "header name"));
      headers.add(Arguments.required(value, "header value"));
    });
    long[] made = new long[1];
    long[] limits = new long[options.limits.size() * 2];
    int next = 0;
    for (Map.Entry<Limit, Long> limit : options.limits.entrySet()) {
      limits[next++] = limit.getKey().ordinal();
      limits[next++] = Arguments.required(limit.getValue(), "limit");
    }
    options.keptQueryKeys.forEach(key -> Arguments.required(key, "kept query key"));
    QENPerformanceLoggerException.check(Native.reporterCreate(
        Arguments.required(options.collectorURL, "collectorURL"), options.format.ordinal(),
        Arguments.required(options.service, "service"), options.gzip, headers.toArray(),
        options.spool, options.spool == null ? 0 : options.spool.handle, limits, options.keptQueryKeys.toArray(),
        Arguments.required(options.consent, "consent").ordinal(), options.minimumBatteryLevel,
        options.pausesOnMeteredNetwork, options.tagFilter, options.transport, made), "Reporter");
    handle = made[0];
    registration = NativeReleaser.register(this, handle, Native::reporterRelease);
  }

  /** Queues the trace's spans and returns at once; the trace stays the caller's. */
  public void report(Trace trace) {
    QENPerformanceLoggerException.check(Native.reporterReport(this, handle, trace, trace.handle), "report");
  }

  /** Sends what is queued within the limit, then stops; whether everything was delivered. */
  public boolean shutdown(long limit, TimeUnit unit) {
    boolean[] delivered = new boolean[1];
    int milliseconds = (int) Math.min(Integer.MAX_VALUE, Math.max(0, unit.toMillis(limit)));
    QENPerformanceLoggerException.check(
        Native.reporterShutdown(this, handle, milliseconds, delivered), "shutdown");
    return delivered[0];
  }

  public void setConsent(Consent consent) {
    QENPerformanceLoggerException.check(
        Native.reporterSetConsent(this, handle, consent.ordinal()), "setConsent");
  }

  public void setDeviceConditions(DeviceConditions conditions) {
    QENPerformanceLoggerException.check(
        Native.reporterSetDeviceConditions(this, handle, conditions.online, conditions.metered,
            conditions.powerSave, conditions.batteryLevel, conditions.charging),
        "setDeviceConditions");
  }

  public Counters counters() {
    long[] counts = new long[4];
    QENPerformanceLoggerException.check(Native.reporterCounters(this, handle, counts), "counters");
    return new Counters(counts[0], counts[1], counts[2], counts[3]);
  }

  /**
   * Returns at once, on any thread, the main one included: the shutdown (within 5 s) goes on on a
   * library thread.
   */
  @Override
  public void close() {
    registration.release();
  }
}
