package com.qen.performancelogger;

import java.io.IOException;
import java.util.LinkedHashMap;
import java.util.Map;
import java.util.logging.Level;
import java.util.logging.Logger;

/**
 * The native methods, one per function of the C interface; each returns its status. The library
 * is loaded from the path in the system property {@code com.qen.performancelogger.library} when it
 * is set (tests, desktop hosts), else by name from the library path ({@code
 * libQENPerformanceLoggerJNI.so}, as an Android app packages it).
 */
final class Native {
  static final String LIBRARY_PROPERTY = "com.qen.performancelogger.library";
  private static final Logger LOG = Logger.getLogger(Native.class.getName());

  /** Where a completion's exception goes; by default the thread's uncaught-exception handler. */
  static volatile Thread.UncaughtExceptionHandler completionFailureHandler = null;

  static {
    String path = System.getProperty(LIBRARY_PROPERTY);
    if (path != null) {
      System.load(path);
    } else {
      System.loadLibrary("QENPerformanceLoggerJNI");
    }
  }

  private Native() {}

  /** Called from native code, on the thread the completion runs on. */
  static void runCompletion(Object held, boolean valid) {
    Metric.Completion completion = ((Metric.HeldCompletion) held).completion();
    if (completion == null) {
      return;  // it went with its forgotten metric
    }
    try {
      completion.completed(valid);
    } catch (Throwable thrown) {
      Thread thread = Thread.currentThread();
      Thread.UncaughtExceptionHandler handler = completionFailureHandler;
      if (handler == null) {
        handler = thread.getUncaughtExceptionHandler();
      }
      handler.uncaughtException(thread, thrown);
    }
  }

  /**
   * Called from native code on a library thread, for a reporter's post through the app's
   * transport: the outcome (the C interface's QENCPostOutcome) in the low byte, and the
   * Retry-After seconds plus one above it (0: none). Nothing the transport throws leaves here.
   */
  static long postThroughTransport(Object transport, byte[] body, Object[] headerPairs) {
    Map<String, String> headers = new LinkedHashMap<>();
    for (int index = 0; index + 1 < headerPairs.length; index += 2) {
      headers.put((String) headerPairs[index], (String) headerPairs[index + 1]);
    }
    try {
      return ((Reporter.Transport) transport).post(body, headers).encoded();
    } catch (IOException noAnswer) {
      return Reporter.Answer.RETRY;
    } catch (RuntimeException thrown) {
      LOG.log(Level.WARNING, "QENPerformanceLogger: the transport threw", thrown);
      return -1;  // the batch is lost to host code, counted as such
    }
  }

  /**
   * Called from native code on the thread that encodes: the value to keep (the same string, or
   * another), or null to drop the tag. A filter that throws keeps the tag as it was.
   */
  static String filterTag(Object filter, String key, String value) {
    try {
      return ((Reporter.TagFilter) filter).filter(key, value);
    } catch (RuntimeException thrown) {
      LOG.log(Level.WARNING, "QENPerformanceLogger: the tag filter threw", thrown);
      return value;
    }
  }

  /** A handle; on failure the status in the high half over a zero low half. */
  static native long metricCreate(String name, double uploadFraction);
  /** As {@link #metricCreate}. */
  static native long metricCreateLeaf(String name);
  static native int metricRelease(long metric);
  static native long metricHandleCount();
  static native int metricStart(Object owner, long metric);
  static native int metricStartWithTime(Object owner, long metric, double time);
  static native int metricStop(Object owner, long metric);
  static native int metricStopWithTime(Object owner, long metric, double time);
  static native int metricInvalidate(Object owner, long metric, long stopReason);
  static native int metricInvalidateWithTime(Object owner, long metric, long stopReason, double time);
  static native int metricAddChild(Object parentOwner, long parent, Object childOwner, long child);
  static native int metricAddAnnotation(Object owner, long metric, String name, double time);
  static native int metricAddAnnotationNow(Object owner, long metric, String name);
  static native int metricAddStringTag(Object owner, long metric, String key, String value);
  static native int metricAddBoolTag(Object owner, long metric, String key, boolean value);
  static native int metricAddInt16Tag(Object owner, long metric, String key, short value);
  static native int metricAddInt32Tag(Object owner, long metric, String key, int value);
  static native int metricAddInt64Tag(Object owner, long metric, String key, long value);
  static native int metricAddCompletion(Object owner, long metric, Object completion);
  static native int metricShouldUpload(Object owner, long metric, boolean[] shouldUpload);
  static native int metricIdentifiers(Object owner, long metric, long[] traceAndSpanId);
  static native int setPropagationHosts(Object[] hosts);
  static native int metricPropagationHeaders(Object owner, long metric, String url, Object[] namesAndValues);
  static native int propagationHeadersForRequest(
      Object owner, long parent, String url, long[] spanId, Object[] headers);
  static native int endpointMetricCreate(String url, String method, double[] phaseTimes,
      long[] statusBytesAndReuse, long requestSpanId, long[] metric);
  static native int postApplicationEvent(int event);
  static native int reportFrame(double startTime, double duration, double expectedInterval);
  static native int setSlowFrameTolerance(double seconds);
  static native int screenDisplayCreate(Object screenOwner, long screen, double creationTime,
      double fullDisplayTimeout, long[] display);
  static native int screenDisplayReportFullyDrawn(Object owner, long display, double time);
  static native int screenDisplayRelease(long display);
  static native int hangMonitorStart(double thresholdSeconds);
  static native int hangMonitorKeepOngoingHangs(Object spoolOwner, long spool, int format,
      String service, String platform);
  static native int heartbeat();
  static native int hangMonitorStop();
  static native int metricTagAppStart(Object owner, long metric, double processStartTime,
      double firstScreenTime, int flags, int[] type);
  static native int metricObserveApplicationEvents(Object owner, long metric);
  static native int traceCreate(Object owner, long metric, String userId, String platform, long[] trace);
  static native int traceRelease(long trace);
  static native int traceSpanCount(Object owner, long trace, long[] count);
  static native int traceEncode(Object owner, long trace, int format, String service, Object[] encoded);
  static native int spoolCreate(String path, long maximumBytes, int maximumAgeSeconds, long[] spool);
  static native int spoolRelease(long spool);
  /** Limits in pairs of a Reporter.Limit's ordinal and its value. */
  static native int reporterCreate(String collectorURL, int format, String service, boolean gzip,
      Object[] headerNamesAndValues, Object spoolOwner, long spool, long[] limits, Object[] keptQueryKeys,
      int consent, double minimumBatteryLevel, boolean pausesOnMeteredNetwork, Object tagFilter,
      Object transport, long[] reporter);
  static native int reporterRelease(long reporter);
  static native int reporterReport(Object reporterOwner, long reporter, Object traceOwner, long trace);
  static native int reporterShutdown(Object owner, long reporter, int limitMilliseconds, boolean[] delivered);
  static native int reporterCounters(Object owner, long reporter, long[] counters);
  static native int reporterSetConsent(Object owner, long reporter, int consent);
  static native int reporterSetDeviceConditions(Object owner, long reporter, boolean online, boolean metered,
      boolean powerSave, double batteryLevel, boolean charging);
  static native double monotonicNow();
}
