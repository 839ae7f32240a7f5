package com.qen.performancelogger;

import static org.junit.jupiter.api.Assertions.*;

import com.qen.performancelogger.QENPerformanceLoggerException.Status;
import com.sun.net.httpserver.HttpServer;
import java.io.IOException;
import java.net.InetSocketAddress;
import java.nio.charset.StandardCharsets;
import java.util.*;
import java.util.concurrent.*;
import java.util.concurrent.atomic.AtomicInteger;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.api.function.Executable;

class BindingTest {
  private static String text(byte[] bytes) {
    return new String(bytes, StandardCharsets.UTF_8);
  }

  private static Status thrown(Executable call) {
    return assertThrows(QENPerformanceLoggerException.class, call).status();
  }

  @Test
  void aTreeMeasuredInJavaExportsItsSpansTagsAndHeaders() {
    try (Metric root = new Metric("home_feed_render"); Metric request = new Metric("feed_request")) {
      double now = Metric.now();
      root.start(now - 1.0);
      root.addChild(request);
      request.start(now - 0.5);
      request.addTag("http.path", "/feed \u00e9 \uD800");  // a lone surrogate
      request.addTag("cached", true);
      request.addAnnotation("first_byte", now - 0.2);
      request.addAnnotation("parsed");  // read now, after the first byte
      Metric.setPropagationHosts(List.of("api.example.com"));
      assertTrue(request.propagationHeaders("https://tracker.test/feed").isEmpty());
      Map<String, String> headers = request.propagationHeaders("https://api.example.com/feed");
      assertEquals(String.format("%016x", root.spanId()), headers.get("X-B3-ParentSpanId"));
      request.stop(now - 0.1);
      try (ScreenDisplay display = new ScreenDisplay(root, now - 1.0, 30)) {
        display.reportFullyDrawn();  // before any frame: both displays end with the first
      }
      Frames.reportFrameMetrics((long) ((now - 0.8) * 1e9), 50_000_000L, 120f);  // 41.7 ms late
      AppStart start = new AppStart();
      start.processStartTime = now - 1.5;
      start.firstScreenTime = now - 1.2;
      assertEquals("cold", root.tagAppStart(start));
      root.stop();
      assertTrue(root.shouldUpload());
      try (Trace trace = root.export(null, "android")) {
        assertEquals(4, trace.spanCount());
        String json = text(trace.encode(Format.ZIPKIN_V2_JSON, "java-app"));
        assertTrue(json.contains("\"http.path\":\"/feed \u00e9 \uFFFD\""), json);
        assertTrue(json.contains("\"serviceName\":\"java-app\""), json);
        assertTrue(json.indexOf("first_byte") < json.indexOf("parsed"), json);
        assertTrue(json.contains("\"app.start.type\":\"cold\""), json);
        assertTrue(json.contains(
            "\"frames.slow\":\"1\",\"frames.frozen\":\"0\",\"frames.delay_ms\":\"42\""), json);
        assertTrue(json.contains("\"name\":\"ui.load.full_display\""), json);
        assertTrue(text(trace.encode(Format.OTLP_JSON, "java-app")).contains("resourceSpans"));
      }
    }
  }

  @Test
  void anActivityTheAppMeasuresGetsItsDisplaySpansAndTheFirstActivityDatesTheStart() {
    AndroidActivityVitals vitals = new AndroidActivityVitals(activity -> null, null);
    try (Metric screen = new Metric("profile_screen")) {
      double now = Metric.now();
      screen.start(now - 1.0);
      Object measured = new Object();  // activities, as keys: no Activity can be made on a JVM
      vitals.screenCreated(new Object(), null, now - 2.0, true);
      vitals.screenCreated(measured, screen, now - 1.0, false);
      vitals.screenFullyDrawn(measured);
      AndroidFrameMetricsListener.report((long) ((now - 0.9) * 1e9), 16_000_000L, 60f);
      AndroidFrameMetricsListener.report(0, 16_000_000L, 0f);  // refused, and not thrown
      vitals.screenGone(measured);
      screen.stop();
      AppStart start = vitals.appStart(now - 3.0);
      assertEquals(now - 2.0, start.firstScreenTime);
      assertTrue(start.restoredFromSavedState);
      try (Trace trace = screen.export(null, "android")) {
        String json = text(trace.encode(Format.ZIPKIN_V2_JSON, "java-app"));
        assertTrue(json.contains("\"name\":\"ui.load.initial_display\"")
            && json.contains("\"name\":\"ui.load.full_display\""), json);
      }
    }
  }

  @Test
  void theHangWatchdogStartsKeepsHangsHearsHeartbeatsAndStopsAndRefusesAThresholdUnder100Ms(
      @TempDir java.nio.file.Path temporaryFolder) {
    assertEquals(Status.INVALID_ARGUMENT, thrown(() -> Hangs.start(0.05)));
    Hangs.start(0);
    try (Spool spool = new Spool(temporaryFolder.resolve("hangs.sqlite").toString(), 0, 0)) {
      Hangs.keepOngoingHangsIn(spool, Format.OTLP_JSON, "java-app", "android");
      assertEquals(Status.INVALID_ARGUMENT,
          thrown(() -> Hangs.keepOngoingHangsIn(spool, Format.CHROME_TRACE, "java-app", "android")));
    }
    Hangs.heartbeat();
    Hangs.stop();
  }

  @Test
  void misuseIsAClearErrorAndNothingCrashes() {
    Metric metric = Metric.leaf("closed");
    metric.start();
    assertEquals(Status.NOT_FINISHED, thrown(() -> metric.export(null, "android")));
    metric.close();
    metric.close();
    assertEquals(Status.INVALID_HANDLE, thrown(metric::stop));
    assertEquals("name must not be null",
        assertThrows(NullPointerException.class, () -> new Metric(null)).getMessage());
    Reporter.Options options = new Reporter.Options();
    options.collectorURL = "http://127.0.0.1:9/";
    options.format = Format.CHROME_TRACE;
    assertEquals(Status.INVALID_ARGUMENT, thrown(() -> new Reporter(options)));
    options.format = Format.ZIPKIN_V2_JSON;
    options.limits.put(Reporter.Limit.MAXIMUM_TAG_VALUE_BYTES, 15L);
    assertEquals(Status.INVALID_ARGUMENT, thrown(() -> new Reporter(options)));
    assertEquals(Status.INVALID_ARGUMENT, thrown(() -> new Spool("unused.sqlite", -1, 0)));
  }

  @Test
  void completionsRunOnNativeThreadsAndOneThatThrowsDoesNotStopTheNext() throws Exception {
    List<Throwable> reported = new CopyOnWriteArrayList<>();
    Native.completionFailureHandler = (thread, thrown) -> reported.add(thrown);
    CountDownLatch secondRan = new CountDownLatch(1);
    List<Object> seen = new ArrayList<>();
    try (Metric metric = new Metric("upload")) {
      metric.onCompletion(valid -> {
        throw new IllegalStateException("the host's bug");
      });
      metric.onCompletion(valid -> {
        seen.add(valid);
        seen.add(Thread.currentThread().isDaemon());
        secondRan.countDown();
      });
      metric.start();
      metric.invalidate(1);
      assertTrue(secondRan.await(30, TimeUnit.SECONDS));
    } finally {
      Native.completionFailureHandler = null;
    }
    assertEquals(List.of(false, true), seen, "told invalid, on a daemon thread");
    assertEquals(1, reported.size());
    assertEquals("the host's bug", reported.get(0).getMessage());
  }

  /** Its completion captures it: native code must not keep it reachable through that. */
  private static void forget() {
    Metric forgotten = new Metric("forgotten");
    forgotten.start();
    forgotten.onCompletion(valid -> forgotten.shouldUpload());
  }

  /** Collects, then waits until the releaser has handled what that collection found. */
  private static void collectAndRelease() {
    System.gc();
    // A sentinel collected after what went before: once the releaser has run it, it had its turn.
    CountDownLatch releaserTurn = new CountDownLatch(1);
    NativeReleaser.register(new Object(), 0, handle -> {
      releaserTurn.countDown();
      return 0;
    });
    System.gc();
    assertDoesNotThrow(() -> assertTrue(releaserTurn.await(30, TimeUnit.SECONDS)));
  }

  @Test
  void aMetricLeftToTheGarbageCollectorIsReleasedByTheReleaser() {
    long before = Metric.handleCount();
    forget();
    assertEquals(before + 1, Metric.handleCount());
    for (int rounds = 0; Metric.handleCount() > before && rounds < 10; ++rounds) {
      collectAndRelease();
    }
    assertEquals(before, Metric.handleCount());
  }

  private static boolean reportAndShutDown(
      Reporter.Options options, Trace trace, List<java.lang.ref.WeakReference<Reporter>> made) {
    Reporter reporter = new Reporter(options);
    made.add(0, new java.lang.ref.WeakReference<>(reporter));
    reporter.report(trace);
    return reporter.shutdown(30, TimeUnit.SECONDS);  // its last use
  }

  /**
   * A reporter its caller drops as its shutdown starts stays reachable until the shutdown returns,
   * however the JIT compiled the caller: collections forced while the native call runs (from the
   * transport it calls) never find it gone. The early rounds only warm the JIT up.
   */
  @Test
  void anObjectStaysReachableForTheLengthOfANativeCallOnIt() {
    final int rounds = 1000, checked = 40;
    AtomicInteger round = new AtomicInteger();
    List<java.lang.ref.WeakReference<Reporter>> current = new CopyOnWriteArrayList<>();
    AtomicInteger lost = new AtomicInteger();
    Reporter.Options options = new Reporter.Options();
    options.collectorURL = "http://unused.test/";
    options.transport = (body, headers) -> {
      if (round.get() >= rounds - checked) {
        collectAndRelease();
        lost.addAndGet(current.get(0).get() == null ? 1 : 0);
      }
      return new Reporter.Answer(202, null);
    };
    try (Metric metric = new Metric("sent")) {
      metric.start();
      metric.stop();
      try (Trace trace = metric.export(null, "android")) {
        for (; round.get() < rounds; round.incrementAndGet()) {
          assertTrue(reportAndShutDown(options, trace, current));
        }
      }
    }
    assertEquals(0, lost.get(), "reporters found unreachable during their own shutdown");
  }

  @Test
  void aReporterDeliversToACollector() throws IOException {
    List<byte[]> bodies = new CopyOnWriteArrayList<>();
    List<String> teams = new CopyOnWriteArrayList<>();
    HttpServer collector = HttpServer.create(new InetSocketAddress("127.0.0.1", 0), 0);
    collector.createContext("/api/v2/spans", exchange -> {
      teams.add(exchange.getRequestHeaders().getFirst("X-Team"));
      bodies.add(exchange.getRequestBody().readAllBytes());  // recorded before it answers
      exchange.sendResponseHeaders(202, -1);
      exchange.close();
    });
    collector.start();
    try (Metric metric = new Metric("sent")) {
      metric.start();
      metric.addTag("screen", "feed");  // the host's, which a tag limit may drop
      metric.stop();
      Reporter.Options options = new Reporter.Options();
      options.collectorURL =
          "http://127.0.0.1:" + collector.getAddress().getPort() + "/api/v2/spans";
      options.service = "java-app";
      options.gzip = false;
      options.limits.put(Reporter.Limit.MAXIMUM_TAGS_PER_SPAN, 1L);
      options.headers.put("X-Team", "java");
      try (Trace trace = metric.export("42", "android"); Reporter reporter = new Reporter(options)) {
        options.consent = Reporter.Consent.PENDING;
        try (Reporter held = new Reporter(options)) {
          held.report(trace);
          assertFalse(held.shutdown(0, TimeUnit.SECONDS));
          assertEquals(new Reporter.Counters(1, 0, 0, 1), held.counters(), "kept, never sent");
        }
        reporter.report(trace);
        assertTrue(reporter.shutdown(30, TimeUnit.SECONDS));
        assertEquals(new Reporter.Counters(1, 0, 1, 0), reporter.counters());
      }
    } finally {
      collector.stop(0);
    }
    assertEquals(1, bodies.size());
    assertTrue(text(bodies.get(0)).contains("\"name\":\"sent\""));
    assertTrue(text(bodies.get(0)).contains("qen.dropped_tags"), "past the tag limit it was given");
    assertEquals(List.of("java"), teams);
  }
}
