package com.qen.benchmarks;

import com.qen.performancelogger.Metric;
import io.opentelemetry.api.trace.Span;
import io.opentelemetry.api.trace.Tracer;
import io.opentelemetry.sdk.common.CompletableResultCode;
import io.opentelemetry.sdk.trace.SdkTracerProvider;
import io.opentelemetry.sdk.trace.data.SpanData;
import io.opentelemetry.sdk.trace.export.SimpleSpanProcessor;
import io.opentelemetry.sdk.trace.export.SpanExporter;
import java.util.Collection;
import java.util.concurrent.TimeUnit;
import org.openjdk.jmh.annotations.Benchmark;
import org.openjdk.jmh.annotations.BenchmarkMode;
import org.openjdk.jmh.annotations.Mode;
import org.openjdk.jmh.annotations.OutputTimeUnit;
import org.openjdk.jmh.annotations.Scope;
import org.openjdk.jmh.annotations.Setup;
import org.openjdk.jmh.annotations.State;
import org.openjdk.jmh.annotations.TearDown;

/**
 * One leaf measurement's whole life, and the same with two timed events: through the binding
 * (create, start, stop, close), through the OpenTelemetry SDK (a span started and ended, handed
 * to a simple processor and an exporter that discards it), and a bare pair of clock reads.
 */
@State(Scope.Benchmark)
@BenchmarkMode(Mode.AverageTime)
@OutputTimeUnit(TimeUnit.NANOSECONDS)
public class LeafSpanBenchmark {
  private SdkTracerProvider provider;
  private Tracer tracer;

  /** Takes every span and keeps none. */
  private static final class DiscardingExporter implements SpanExporter {
    @Override
    public CompletableResultCode export(Collection<SpanData> spans) {
      return CompletableResultCode.ofSuccess();
    }

    @Override
    public CompletableResultCode flush() {
      return CompletableResultCode.ofSuccess();
    }

    @Override
    public CompletableResultCode shutdown() {
      return CompletableResultCode.ofSuccess();
    }
  }

  @Setup
  public void setUp() {
    provider = SdkTracerProvider.builder()
        .addSpanProcessor(SimpleSpanProcessor.create(new DiscardingExporter()))
        .build();
    tracer = provider.get("benchmark");
  }

  @TearDown
  public void tearDown() {
    provider.close();
  }

  @Benchmark
  public long clockReadPair() {
    long start = System.nanoTime();
    return System.nanoTime() - start;
  }

  @Benchmark
  public void qenLeafMetric() {
    try (Metric metric = Metric.leaf("leaf")) {
      metric.start();
      metric.stop();
    }
  }

  @Benchmark
  public void qenLeafMetricWithTwoAnnotations() {
    try (Metric metric = Metric.leaf("leaf")) {
      metric.start();
      metric.addAnnotation("first");
      metric.addAnnotation("second");
      metric.stop();
    }
  }

  @Benchmark
  public void openTelemetrySpan() {
    tracer.spanBuilder("leaf").startSpan().end();
  }

  @Benchmark
  public void openTelemetrySpanWithTwoEvents() {
    Span span = tracer.spanBuilder("leaf").startSpan();
    span.addEvent("first");
    span.addEvent("second");
    span.end();
  }
}
