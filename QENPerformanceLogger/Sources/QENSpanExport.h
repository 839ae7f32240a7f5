#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "QENPerformanceMetric.h"

// How a metric tree becomes spans: each metric read once under its lock, a walk that keeps its
// own stack, and the filling of one span. Internal to the library: hosts call
// QENPerformanceMetric::spansWithAppContext, snapshotSpansWithAppContext and
// setParametersForTopLevel.
class QENSpanExport {
 public:
  using SpanList = QENPerformanceMetric::SpanList;

  // The spans of `root`'s tree. Stops what has not finished at `stopUnfinishedAt`, if given,
  // instead of leaving it out.
  static SpanList spansOfTree(const QENPerformanceMetric& root,
                              const QENPerformanceMetricAppContext& appContext,
                              std::optional<double> stopUnfinishedAt);
  // Fills every field of `span` but the trace id and the parent id from `metric`.
  static void fillSpan(const QENPerformanceMetric& metric, bool isTopLevel, QENThrift::Span& span,
                       const QENPerformanceMetricAppContext& appContext);

 private:
  // What export reads of a metric, taken under one lock.
  struct Snapshot {
    bool started;
    bool finished;
    double startTime;
    double stopTime;
    QENPerformanceMetricStartReason metricCause;
    QENPerformanceMetricStopReason invalidateReason;
    std::int64_t viewType;
    std::int64_t viewParameter;
    std::vector<QENPerformanceMetric::AnnotationPointer> annotations;
    std::vector<QENPerformanceMetric::BinaryAnnotationPointer> binaryAnnotations;
    QENPerformanceMetric::MetricList childMetrics;
  };
  struct VisitedParent;

  static Snapshot snapshotOf(const QENPerformanceMetric& metric, bool isTopLevel);
  static void fill(const QENPerformanceMetric& metric, bool isTopLevel, QENThrift::Span& span,
                   const QENPerformanceMetricAppContext& appContext, std::int64_t spanId,
                   Snapshot snapshot);
  static void appendDescendantSpans(const QENPerformanceMetric& root, std::int64_t rootSpanId,
                                    QENPerformanceMetric::MetricList children, std::int64_t traceId,
                                    const QENPerformanceMetricAppContext& appContext,
                                    std::optional<double> stopUnfinishedAt, SpanList& spans);
  static std::int64_t parentSpanId(const QENPerformanceMetric& child,
                                   const VisitedParent& listedUnder);
};
