package com.qen.performancelogger;

import java.io.IOException;
import java.net.InetAddress;
import java.net.InetSocketAddress;
import java.net.Proxy;
import java.time.Instant;
import java.util.Arrays;
import java.util.List;
import java.util.Locale;
import java.util.Map;
import java.util.concurrent.ConcurrentHashMap;
import java.util.function.Supplier;
import okhttp3.Call;
import okhttp3.Connection;
import okhttp3.EventListener;
import okhttp3.Handshake;
import okhttp3.Interceptor;
import okhttp3.Protocol;
import okhttp3.Request;
import okhttp3.Response;

/**
 * Wires an OkHttp client (3.x or 4.x) to the library. Its event listener times each call's DNS
 * lookup, connect, TLS handshake, request and response, and when the call ends adds an endpoint
 * metric with those phases under the parent metric the app names at that moment. Its interceptor
 * adds the propagation headers to requests for the hosts the app lists, and to no other: trace ids
 * never reach a third party.
 *
 * <pre>
 * OkHttpTracing tracing = new OkHttpTracing(screen::currentMetric, List.of("api.example.com"));
 * OkHttpClient client = new OkHttpClient.Builder()
 *     .eventListenerFactory(tracing.eventListenerFactory())
 *     .addInterceptor(tracing.interceptor())
 *     .build();
 * </pre>
 */
public final class OkHttpTracing {
  private final Supplier<Metric> parent;
  private final List<String> hostSuffixes;
  private final Map<Call, Long> sentSpanIds = new ConcurrentHashMap<>();

  /**
   * @param parent the metric a request belongs to when it is made (null: none, nothing recorded)
   * @param hostSuffixes hosts that get the headers: "api.example.com" also covers its subdomains;
   *     "*" covers every host
   */
  public OkHttpTracing(Supplier<Metric> parent, List<String> hostSuffixes) {
    this.parent = parent;
    // OkHttp gives hosts in lower case; the app's list may not be.
    this.hostSuffixes =
        hostSuffixes.stream().map(suffix -> suffix.toLowerCase(Locale.ROOT)).toList();
  }

  public EventListener.Factory eventListenerFactory() {
    return call -> new PhaseListener();
  }

  public Interceptor interceptor() {
    return chain -> {
      Request request = chain.request();
      Metric current = parent.get();
      if (current == null || !tracesHost(request.url().host())) {
        return chain.proceed(request);
      }
      long[] spanId = new long[1];
      Object[] headers = new Object[1];
      QENPerformanceLoggerException.check(
          Native.propagationHeadersForRequest(current.handle, spanId, headers), "interceptor");
      sentSpanIds.put(chain.call(), spanId[0]);
      Request.Builder traced = request.newBuilder();
      Metric.headersOf(headers).forEach(traced::header);
      return chain.proceed(traced.build());
    };
  }

  boolean tracesHost(String host) {
    for (String suffix : hostSuffixes) {
      if (suffix.equals("*") || host.equals(suffix) || host.endsWith("." + suffix)) {
        return true;
      }
    }
    return false;
  }

  private static double wallClockSeconds() {
    Instant now = Instant.now();
    return now.getEpochSecond() + now.getNano() / 1e9;
  }

  /** One call's phases, in the order the endpoint metric takes them. */
  private final class PhaseListener extends EventListener {
    private static final int FETCH_START = 0;
    private static final int DNS_START = 1;
    private static final int DNS_END = 2;
    private static final int CONNECT_START = 3;
    private static final int TLS_START = 4;
    private static final int TLS_END = 5;
    private static final int CONNECT_END = 6;
    private static final int REQUEST_START = 7;
    private static final int REQUEST_END = 8;
    private static final int RESPONSE_START = 9;
    private static final int RESPONSE_END = 10;

    private final double[] times = new double[11];
    private final long[] statusBytesAndReuse = new long[4];

    PhaseListener() {
      Arrays.fill(times, Double.NaN);
    }

    private void mark(int phase) {
      times[phase] = wallClockSeconds();
    }

    @Override
    public void callStart(Call call) {
      mark(FETCH_START);
    }

    @Override
    public void dnsStart(Call call, String domainName) {
      mark(DNS_START);
    }

    @Override
    public void dnsEnd(Call call, String domainName, List<InetAddress> addresses) {
      mark(DNS_END);
    }

    @Override
    public void connectStart(Call call, InetSocketAddress address, Proxy proxy) {
      mark(CONNECT_START);
    }

    @Override
    public void secureConnectStart(Call call) {
      mark(TLS_START);
    }

    @Override
    public void secureConnectEnd(Call call, Handshake handshake) {
      mark(TLS_END);
    }

    @Override
    public void connectEnd(Call call, InetSocketAddress address, Proxy proxy, Protocol protocol) {
      mark(CONNECT_END);
    }

    @Override
    public void connectionAcquired(Call call, Connection connection) {
      statusBytesAndReuse[3] = Double.isNaN(times[CONNECT_START]) ? 1 : 0;
    }

    @Override
    public void requestHeadersStart(Call call) {
      mark(REQUEST_START);
    }

    @Override
    public void requestHeadersEnd(Call call, Request request) {
      mark(REQUEST_END);
    }

    @Override
    public void requestBodyEnd(Call call, long byteCount) {
      mark(REQUEST_END);
    }

    @Override
    public void responseHeadersStart(Call call) {
      mark(RESPONSE_START);
    }

    @Override
    public void responseHeadersEnd(Call call, Response response) {
      statusBytesAndReuse[0] = response.code();
      statusBytesAndReuse[1] = response.headers().byteCount();
    }

    @Override
    public void responseBodyEnd(Call call, long byteCount) {
      mark(RESPONSE_END);
      statusBytesAndReuse[2] = byteCount;
    }

    @Override
    public void callEnd(Call call) {
      Long sentSpanId = sentSpanIds.remove(call);
      Metric current = parent.get();
      if (current == null) {
        return;
      }
      Request request = call.request();
      long[] made = new long[1];
      QENPerformanceLoggerException.check(Native.endpointMetricCreate(
          Utf8.bytes(request.url().toString(), "url"), Utf8.bytes(request.method(), "method"),
          times, statusBytesAndReuse, sentSpanId == null ? 0 : sentSpanId, made), "callEnd");
      try (Metric endpoint = new Metric(made[0])) {
        current.addChild(endpoint);
      }
    }

    @Override
    public void callFailed(Call call, IOException failure) {
      sentSpanIds.remove(call);
    }
  }
}
