package com.qen.performancelogger;

import java.io.IOException;
import java.net.InetAddress;
import java.net.InetSocketAddress;
import java.net.Proxy;
import java.util.Arrays;
import java.util.Collections;
import java.util.List;
import java.util.Map;
import java.util.WeakHashMap;
import java.util.concurrent.atomic.AtomicLong;
import java.util.function.Supplier;
import java.util.logging.Level;
import java.util.logging.Logger;
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
 * metric with those phases under the parent metric the app named when it made the call (read once,
 * so that the headers sent and the span exported belong to one trace). Its network interceptor
 * adds the propagation headers to each request, redirects included, whose host the app listed in
 * {@link Metric#setPropagationHosts}, and to no other: a listed host that redirects to a third
 * party does not hand it the trace ids.
 *
 * <p>Nothing of the adapter's ever throws into OkHttp: a call it cannot trace (its parent metric
 * already closed, say) goes on untraced, is logged and counted in {@link #untracedCalls}.
 *
 * <pre>
 * Metric.setPropagationHosts(List.of("api.example.com"));
 * OkHttpTracing tracing = new OkHttpTracing(screen::currentMetric);
 * OkHttpClient client = new OkHttpClient.Builder()
 *     .eventListenerFactory(tracing.eventListenerFactory())
 *     .addNetworkInterceptor(tracing.networkInterceptor())
 *     .build();
 * </pre>
 */
public final class OkHttpTracing {
  private static final Logger LOG = Logger.getLogger(OkHttpTracing.class.getName());

  private final Supplier<Metric> parent;
  // Weak keys: a call made and never executed ends neither way, and must not stay.
  private final Map<Call, CallState> calls = Collections.synchronizedMap(new WeakHashMap<>());
  private final AtomicLong untraced = new AtomicLong();

  /** @param parent the metric a call belongs to when it is made (null: none, nothing recorded) */
  public OkHttpTracing(Supplier<Metric> parent) {
    this.parent = parent;
  }

  public EventListener.Factory eventListenerFactory() {
    return call -> new PhaseListener(stateOf(call));
  }

  /** For {@code addNetworkInterceptor}: it sees every hop, so each host is judged on its own. */
  public Interceptor networkInterceptor() {
    return chain -> chain.proceed(traced(chain.call(), chain.request()));
  }

  /** Calls that went on untraced because tracing them failed. */
  public long untracedCalls() {
    return untraced.get();
  }

  private CallState stateOf(Call call) {
    return calls.computeIfAbsent(call, made -> new CallState(currentParent()));
  }

  private Metric currentParent() {
    try {
      return parent.get();
    } catch (RuntimeException failure) {
      untraced(null, failure);
      return null;
    }
  }

  private Request traced(Call call, Request request) {
    CallState state = null;
    try {
      state = stateOf(call);
      if (state.parent == null) {
        return request;
      }
      long[] spanId = new long[1];
      Object[] headers = new Object[1];
      QENPerformanceLoggerException.check(Native.propagationHeadersForRequest(state.parent, state.parent.handle,
          Arguments.required(request.url().toString(), "url"), spanId, headers), "propagationHeaders");
      if (spanId[0] == 0) {
        return request;  // a host the app did not list
      }
      state.sentSpanId = spanId[0];  // a later hop's id replaces an earlier one's: the last answers
      Request.Builder traced = request.newBuilder();
      Metric.headersOf(headers).forEach(traced::header);
      return traced.build();
    } catch (RuntimeException failure) {
      untraced(state, failure);
      return request;
    }
  }

  /** Counts a call once, however many of its steps fail. */
  private void untraced(CallState state, RuntimeException failure) {
    if (state == null || !state.failed) {
      untraced.incrementAndGet();
    }
    if (state != null) {
      state.failed = true;
    }
    LOG.log(Level.WARNING, "QENPerformanceLogger: a call goes untraced", failure);
  }

  /** What one call is traced under, from when it is made to when it ends. */
  private static final class CallState {
    final Metric parent;
    volatile long sentSpanId;
    volatile boolean failed;

    CallState(Metric parent) {
      this.parent = parent;
    }
  }

  // The wall clock read once, and the monotonic one since: phases of a few microseconds keep their
  // length (the wall clock of API 24 counts milliseconds; java.time is above it), and no clock
  // change lands between two phases of one call.
  private static final long ANCHOR_NANOS = System.nanoTime();
  private static final double ANCHOR_SECONDS = System.currentTimeMillis() / 1e3;

  private static double wallClockSeconds() {
    return ANCHOR_SECONDS + (System.nanoTime() - ANCHOR_NANOS) / 1e9;
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
    private final CallState state;

    PhaseListener(CallState state) {
      this.state = state;
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
      calls.remove(call);
      if (state.parent == null || state.failed) {
        return;
      }
      try {
        Request request = call.request();
        long[] made = new long[1];
        QENPerformanceLoggerException.check(Native.endpointMetricCreate(
            Arguments.required(request.url().toString(), "url"), Arguments.required(request.method(), "method"),
            times, statusBytesAndReuse, state.sentSpanId, made), "callEnd");
        try (Metric endpoint = new Metric(made[0])) {
          state.parent.addChild(endpoint);
        }
      } catch (RuntimeException failure) {
        untraced(state, failure);
      }
    }

    @Override
    public void callFailed(Call call, IOException failure) {
      calls.remove(call);
    }
  }
}
