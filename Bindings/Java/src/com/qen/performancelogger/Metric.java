package com.qen.performancelogger;

import java.lang.ref.WeakReference;
import java.util.ArrayList;
import java.util.Collections;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.Objects;

/**
 * A named interval of monotonic time, measured by the native library. Close it when done with it
 * (a parent keeps a child's measurement alive in its tree regardless); a metric left to the garbage
 * collector is closed by the binding's releaser. Every method may be called from any thread; a closed metric
 * throws {@link QENPerformanceLoggerException} with status INVALID_HANDLE.
 */
public final class Metric implements AutoCloseable {
  /** Told once whether the metric finished valid, on a library thread. */
  @FunctionalInterface
  public interface Completion {
    void completed(boolean valid);
  }

  final long handle;
  private final NativeReleaser.Registration registration;
  // The completions while the metric is open, and what native code holds of them: made by the
  // first completion, as most metrics have none, and written under this.
  private volatile List<Completion> completions;
  private volatile List<HeldCompletion> held;

  /**
   * A metric sampled at {@code uploadFraction}, whose start is announced to the native metrics that
   * adopt starting metrics. It adopts none itself: children are added with {@link #addChild}.
   */
  public Metric(String name, double uploadFraction) {
    handle =
        QENPerformanceLoggerException.checkHandle(
            Native.metricCreate(Arguments.required(name, "name"), uploadFraction), "Metric");
    registration = NativeReleaser.register(this, handle, Native::metricRelease);
  }

  public Metric(String name) {
    this(name, 1.0);
  }

  /** A metric whose start is not announced, so that nothing adopts it: the cheapest kind. */
  public static Metric leaf(String name) {
    return new Metric(
        QENPerformanceLoggerException.checkHandle(
            Native.metricCreateLeaf(Arguments.required(name, "name")), "leaf"));
  }

  /** Takes ownership of a handle the native side made. */
  Metric(long handle) {
    this.handle = handle;
    registration = NativeReleaser.register(this, handle, Native::metricRelease);
  }

  /** Monotonic seconds, the clock every explicit time is read on. */
  public static double now() {
    return Native.monotonicNow();
  }

  /** Native metric handles not yet released, whatever made them. */
  public static long handleCount() {
    return Native.metricHandleCount();
  }

  public void start() {
    QENPerformanceLoggerException.check(Native.metricStart(this, handle), "start");
  }

  public void start(double time) {
    QENPerformanceLoggerException.check(Native.metricStartWithTime(this, handle, time), "start");
  }

  public void stop() {
    QENPerformanceLoggerException.check(Native.metricStop(this, handle), "stop");
  }

  public void stop(double time) {
    QENPerformanceLoggerException.check(Native.metricStopWithTime(this, handle, time), "stop");
  }

  /** With a stop reason from -1 (valid) to 5 (client error). */
  public void invalidate(long stopReason) {
    QENPerformanceLoggerException.check(Native.metricInvalidate(this, handle, stopReason), "invalidate");
  }

  public void invalidate(long stopReason, double time) {
    QENPerformanceLoggerException.check(
        Native.metricInvalidateWithTime(this, handle, stopReason, time), "invalidate");
  }

  public void addChild(Metric child) {
    QENPerformanceLoggerException.check(
        Native.metricAddChild(this, handle, java.util.Objects.requireNonNull(child, "child"), child.handle),
        "addChild");
  }

  /** An annotation at this moment, with the clock read in the same native call. */
  public void addAnnotation(String name) {
    QENPerformanceLoggerException.check(
        Native.metricAddAnnotationNow(this, handle, Arguments.required(name, "name")),
        "addAnnotation");
  }

  public void addAnnotation(String name, double time) {
    QENPerformanceLoggerException.check(
        Native.metricAddAnnotation(this, handle, Arguments.required(name, "name"), time), "addAnnotation");
  }

  public void addTag(String key, String value) {
    QENPerformanceLoggerException.check(Native.metricAddStringTag(this, handle, Arguments.required(key, "key"),
        Arguments.required(value, "value")), "addTag");
  }

  public void addTag(String key, boolean value) {
    QENPerformanceLoggerException.check(
        Native.metricAddBoolTag(this, handle, Arguments.required(key, "key"), value), "addTag");
  }

  public void addTag(String key, short value) {
    QENPerformanceLoggerException.check(
        Native.metricAddInt16Tag(this, handle, Arguments.required(key, "key"), value), "addTag");
  }

  public void addTag(String key, int value) {
    QENPerformanceLoggerException.check(
        Native.metricAddInt32Tag(this, handle, Arguments.required(key, "key"), value), "addTag");
  }

  public void addTag(String key, long value) {
    QENPerformanceLoggerException.check(
        Native.metricAddInt64Tag(this, handle, Arguments.required(key, "key"), value), "addTag");
  }

  /**
   * Runs {@code completion} once the metric stops or is invalidated, on a library thread attached
   * to the JVM as a daemon (at once, on this thread, for a finished metric). What it throws goes to
   * the thread's uncaught-exception handler; the next completion still runs.
   *
   * <p>A completion lives as long as this object is open and reachable and, once it is closed,
   * until it runs or the native metric goes unfinished. So a metric left to the garbage collector
   * takes its completions with it, even one that captures the metric itself.
   */
  public void onCompletion(Completion completion) {
    HeldCompletion holder = new HeldCompletion(Objects.requireNonNull(completion, "completion"));
    synchronized (this) {
      QENPerformanceLoggerException.check(
          Native.metricAddCompletion(this, handle, holder), "onCompletion");
      if (held == null) {
        completions = new ArrayList<>();
        held = new ArrayList<>();
      }
      completions.add(completion);
      held.add(holder);
    }
  }

  public boolean shouldUpload() {
    boolean[] answer = new boolean[1];
    QENPerformanceLoggerException.check(Native.metricShouldUpload(this, handle, answer), "shouldUpload");
    return answer[0];
  }

  public long traceId() {
    return identifiers()[0];
  }

  public long spanId() {
    return identifiers()[1];
  }

  /**
   * The hosts that requests may carry propagation headers to, for the whole process; none until
   * this is called. "example.com" covers it and its subdomains, "*" every host. The one list every
   * header call applies, the OkHttp adapter's included.
   */
  public static void setPropagationHosts(List<String> hostSuffixes) {
    Object[] hosts = new Object[hostSuffixes.size()];
    for (int index = 0; index < hosts.length; ++index) {
      hosts[index] = Arguments.required(hostSuffixes.get(index), "host");
    }
    QENPerformanceLoggerException.check(Native.setPropagationHosts(hosts), "setPropagationHosts");
  }

  /**
   * The headers of a request to {@code url} this metric measures, a child in its tree: the tree's
   * trace id, this span id, the parent's, and the root's upload decision; none for a host not
   * listed in {@link #setPropagationHosts}.
   */
  public Map<String, String> propagationHeaders(String url) {
    Object[] out = new Object[1];
    QENPerformanceLoggerException.check(
        Native.metricPropagationHeaders(this, handle, Arguments.required(url, "url"), out),
        "propagationHeaders");
    return headersOf(out);
  }

  /** Annotates the metric with the application's lifecycle events from now on. */
  public void observeApplicationEvents() {
    QENPerformanceLoggerException.check(
        Native.metricObserveApplicationEvents(this, handle), "observeApplicationEvents");
  }

  /** Native code's names and values, alternately, in out[0]. */
  static Map<String, String> headersOf(Object[] out) {
    String[] pairs = (String[]) out[0];
    Map<String, String> headers = new LinkedHashMap<>();
    for (int index = 0; index + 1 < pairs.length; index += 2) {
      headers.put(pairs[index], pairs[index + 1]);
    }
    return Collections.unmodifiableMap(headers);
  }

  private static final String[] APP_START_TYPES = {null, "cold", "warm", "hot", "prewarmed"};

  /**
   * Tags this start-up metric with {@code app.start.type} and returns the type: "cold", "warm",
   * "hot" or "prewarmed". Null, and nothing tagged, when no user sat through the start (no screen
   * yet, or one that came more than 60 s after its process): invalidate the metric rather than
   * upload it.
   */
  public String tagAppStart(AppStart start) {
    java.util.Objects.requireNonNull(start, "start");
    int[] type = new int[1];
    QENPerformanceLoggerException.check(Native.metricTagAppStart(this, handle,
        start.processStartTime, start.firstScreenTime, start.flags(), type), "tagAppStart");
    return APP_START_TYPES[type[0]];
  }

  /** The finished tree's spans, for the signed-in user (null: nobody) and the platform label. */
  public Trace export(String userId, String platform) {
    return new Trace(this, userId, platform);
  }

  /** Releases the native handle; later calls throw. Closing twice does nothing more. */
  @Override
  public void close() {
    if (held != null) {
      synchronized (this) {
        held.forEach(HeldCompletion::keep);
        held.clear();
        completions.clear();
      }
    }
    registration.release();
  }

  /**
   * What native code holds of a completion: only a weak reference while its metric is open (the
   * metric holds the completion then), so that native code never keeps a forgotten metric
   * reachable; the completion itself once the metric is closed.
   */
  static final class HeldCompletion {
    private final WeakReference<Completion> weak;
    private volatile Completion kept;

    HeldCompletion(Completion completion) {
      weak = new WeakReference<>(completion);
    }

    void keep() {
      kept = weak.get();
    }

    /** Null once it went with a forgotten metric. */
    Completion completion() {
      Completion strong = kept;
      return strong != null ? strong : weak.get();
    }
  }

  private long[] identifiers() {
    long[] identifiers = new long[2];
    QENPerformanceLoggerException.check(Native.metricIdentifiers(this, handle, identifiers), "identifiers");
    return identifiers;
  }
}
