package com.qen.performancelogger;

import static org.junit.jupiter.api.Assertions.*;

import com.sun.net.httpserver.*;
import java.io.IOException;
import java.net.*;
import java.nio.charset.StandardCharsets;
import java.util.*;
import java.util.concurrent.ConcurrentHashMap;
import okhttp3.*;
import okhttp3.tls.*;
import org.junit.jupiter.api.Test;

/** A real OkHttp client against JDK servers on loopback, under host names of the test's own. */
class OkHttpTracingTest {
  /** The X-B3-SpanId each path was requested with ("none" without one), recorded before it answers. */
  private final Map<String, String> sentSpanIds = new ConcurrentHashMap<>();
  /** Run by the server's thread as each request arrives, while the call is under way. */
  private volatile Runnable duringRequest = () -> {};

  private HttpServer serve(HttpServer server) {
    server.createContext("/", exchange -> {
      String spanId = exchange.getRequestHeaders().getFirst("X-B3-SpanId");
      sentSpanIds.put(exchange.getRequestURI().getPath(), spanId == null ? "none" : spanId);
      duringRequest.run();
      if (exchange.getRequestURI().getPath().equals("/redirect")) {
        exchange.getResponseHeaders().add("Location", exchange.getRequestURI().getQuery());
        exchange.sendResponseHeaders(302, -1);
        exchange.close();
        return;
      }
      byte[] body = "{}".getBytes(StandardCharsets.UTF_8);
      exchange.sendResponseHeaders(200, body.length);
      exchange.getResponseBody().write(body);
      exchange.close();
    });
    server.start();
    return server;
  }

  private static OkHttpClient.Builder client(OkHttpTracing tracing) {
    return new OkHttpClient.Builder()
        .dns(host -> List.of(InetAddress.getByName("127.0.0.1")))
        .eventListenerFactory(tracing.eventListenerFactory())
        .addNetworkInterceptor(tracing.networkInterceptor());
  }

  private static void get(OkHttpClient client, String url) throws IOException {
    try (Response response = client.newCall(new Request.Builder().url(url).build()).execute()) {
      assertEquals("{}", response.body().string());
    }
  }

  /**
   * A listed host that redirects to a third party sends it no trace id; a call whose parent
   * metric is closed goes on untraced and counted, never throwing into OkHttp. The app's current
   * metric changing on another thread mid-call does not move the call's span out of the trace
   * its headers named.
   */
  @Test
  void aCallOverTlsToAListedHostBecomesAnEndpointSpanWithTheIdItsHeadersSentAndOthersGetNone()
      throws Exception {
    HeldCertificate certificate =
        new HeldCertificate.Builder().addSubjectAlternativeName("v2.api.test")
            .addSubjectAlternativeName("third.test").build();
    HandshakeCertificates server =
        new HandshakeCertificates.Builder().heldCertificate(certificate).build();
    HandshakeCertificates client =
        new HandshakeCertificates.Builder().addTrustedCertificate(certificate.certificate()).build();
    HttpsServer https = HttpsServer.create(new InetSocketAddress("127.0.0.1", 0), 0);
    https.setHttpsConfigurator(new HttpsConfigurator(server.sslContext()));
    serve(https);
    try (Metric screen = new Metric("screen"); Metric next = new Metric("next_screen")) {
      screen.start();
      Metric.setPropagationHosts(List.of("API.Test"));
      java.util.concurrent.atomic.AtomicReference<Metric> current =
          new java.util.concurrent.atomic.AtomicReference<>(screen);
      duringRequest = () -> current.set(next);
      OkHttpTracing tracing = new OkHttpTracing(current::get);
      OkHttpClient okHttp =
          client(tracing).sslSocketFactory(client.sslSocketFactory(), client.trustManager()).build();
      String port = ":" + https.getAddress().getPort();
      get(okHttp, "https://v2.api.test" + port + "/v3/feed");
      duringRequest = () -> {};
      current.set(screen);
      get(okHttp, "https://v2.api.test" + port + "/redirect?https://third.test" + port + "/landing");
      assertEquals("none", sentSpanIds.get("/landing"));
      Metric closed = Metric.leaf("closed_screen");
      closed.close();
      OkHttpTracing broken = new OkHttpTracing(() -> closed);
      get(client(broken).sslSocketFactory(client.sslSocketFactory(), client.trustManager()).build(),
          "https://v2.api.test" + port + "/untraced");
      assertEquals(1, broken.untracedCalls());
      screen.stop();
      try (Trace trace = screen.export(null, "android")) {
        String json =
            new String(trace.encode(Format.ZIPKIN_V2_JSON, "java-app"), StandardCharsets.UTF_8);
        assertTrue(json.contains("\"id\":\"" + sentSpanIds.get("/v3/feed") + "\""), json);
        assertTrue(json.contains("\"id\":\"" + sentSpanIds.get("/redirect") + "\""), json);
        assertTrue(json.contains("\"name\":\"resource_/v3/feed\""), json);
        for (String phase : List.of("dns", "conn", "tls", "req", "resp")) {
          assertTrue(json.contains("\"name\":\"" + phase + "\""), phase + " in " + json);
        }
      }
    } finally {
      https.stop(0);
    }
  }

  /**
   * A reporter posts through the app's OkHttp client (a 429 is sent again after its Retry-After),
   * what it posts passed through the app's tag filter.
   */
  @Test
  void aReporterPostsThroughTheAppsOkHttpClientAndRetriesA429() throws Exception {
    List<Integer> answers = new java.util.concurrent.CopyOnWriteArrayList<>(List.of(429, 202));
    HttpServer collector = HttpServer.create(new InetSocketAddress("127.0.0.1", 0), 0);
    collector.createContext("/", exchange -> {
      exchange.getResponseHeaders().add("Retry-After", "0");
      exchange.sendResponseHeaders(answers.remove(0), -1);
      exchange.close();
    });
    collector.start();
    OkHttpClient okHttp = new OkHttpClient();
    Reporter.Options options = new Reporter.Options();
    options.collectorURL = "http://127.0.0.1:" + collector.getAddress().getPort() + "/api/v2/spans";
    options.gzip = false;
    options.tagFilter = (key, value) -> key.equals("screen") ? "rewritten" : value;
    options.keptQueryKeys.add("size");
    List<String> bodies = new java.util.concurrent.CopyOnWriteArrayList<>();
    options.transport = (body, headers) -> {
      bodies.add(new String(body, StandardCharsets.UTF_8));
      Request.Builder request = new Request.Builder().url(options.collectorURL)
          .post(RequestBody.create(body, MediaType.get("application/json")));
      headers.forEach(request::header);
      try (Response response = okHttp.newCall(request.build()).execute()) {
        return new Reporter.Answer(response.code(), response.header("Retry-After"));
      }
    };
    try (Metric metric = new Metric("sent"); Reporter reporter = new Reporter(options)) {
      metric.start();
      metric.addTag("screen", "feed");
      metric.addTag("feed.url", "https://api.example.com/feed?size=3&token=secret");
      metric.stop();
      try (Trace trace = metric.export(null, "android")) {
        reporter.report(trace);
      }
      assertTrue(reporter.shutdown(30, java.util.concurrent.TimeUnit.SECONDS));
      assertEquals(new Reporter.Counters(1, 0, 1, 0), reporter.counters());
    } finally {
      collector.stop(0);
    }
    assertTrue(answers.isEmpty(), "the 429, then the retry");
    assertTrue(bodies.get(1).contains("\"screen\":\"rewritten\""), bodies.get(1));
    assertTrue(bodies.get(1).contains("/feed?size=3&token=redacted"), bodies.get(1));
  }
}
