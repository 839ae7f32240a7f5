// Span export: a metric tree read into spans.
#include "QENSpanExport.h"
#include "QENFoundation/QENLockGuard.h"

#include <limits>

#include "Annotation+QENAdditions.h"
#include "BinaryAnnotation+QENAdditions.h"
#include "QENNumericConversion.h"
#include "QENThrift/tracing_clientConstants.h"
#include "QENThrift/zipkin_spanConstants.h"

namespace {

using QENThrift::AnnotationQENAdditions;
using QENThrift::BinaryAnnotationQENAdditions;

// ASCII letters only, whatever the process locale: every other byte (those of multi-byte UTF-8
// characters included) stays as it is, so a valid UTF-8 name stays valid.
std::string lowercased(std::string text) {
  for (char& character : text) {
    if (character >= 'A' && character <= 'Z') {
      character = static_cast<char>(character - 'A' + 'a');
    }
  }
  return text;
}

std::int64_t saturatingSum(std::int64_t left, std::int64_t right) {
  std::int64_t sum = 0;
  if (__builtin_add_overflow(left, right, &sum)) {
    return right > 0 ? std::numeric_limits<std::int64_t>::max()
                     : std::numeric_limits<std::int64_t>::min();
  }
  return sum;
}

bool isUWTName(const std::string& name) {
  const auto names = QENPerformanceMetric::uwtMetricNames();
  return names != nullptr && names->contains(name);
}

// Client-send and client-receive annotations: almost always both saturated (see fillSpan), and
// then the same two immutable annotations serve every span of the process.
std::shared_ptr<const QENThrift::Annotation> clientAnnotation(std::string_view name,
                                                              std::int64_t microseconds) {
  using Constants = QENThrift::zipkin_spanConstants;
  static const auto* const saturated =
      new std::pair(AnnotationQENAdditions::annotationWithName(Constants::CLIENT_SEND(), 1e300),
                    AnnotationQENAdditions::annotationWithName(Constants::CLIENT_RECV(), 1e300));
  const double time = static_cast<double>(microseconds);
  if (QENMicrosecondsSince1970FromMonotonicTime(time) == std::numeric_limits<std::int64_t>::max()) {
    return name == Constants::CLIENT_SEND() ? saturated->first : saturated->second;
  }
  return AnnotationQENAdditions::annotationWithName(name, time);
}

// A metric still to visit, with the index in the walk's parents of the metric whose children
// list it was found in.
struct PendingMetric {
  std::shared_ptr<QENPerformanceMetric> metric;
  std::size_t listedUnder;
};

}  // namespace

// A metric whose children the walk has queued, kept alive until the walk ends.

struct QENSpanExport::VisitedParent {
  std::shared_ptr<const QENPerformanceMetric> metric;
  std::int64_t spanId;
};

QENSpanExport::SpanList QENSpanExport::spansOfTree(const QENPerformanceMetric& root,
                                                   const QENPerformanceMetricAppContext& appContext,
                                                   std::optional<double> stopUnfinishedAt) {
  auto topLevel = std::make_shared<QENThrift::Span>();
  topLevel->setTrace_id(root.traceId());
  const std::int64_t ownSpanId = root.spanId();
  Snapshot snapshot = snapshotOf(root, true);
  if (stopUnfinishedAt && snapshot.started && !snapshot.finished) {
    snapshot.stopTime = *stopUnfinishedAt;
  }
  QENPerformanceMetric::MetricList children = std::move(snapshot.childMetrics);
  fill(root, true, *topLevel, appContext, ownSpanId, std::move(snapshot));
  SpanList spans = {topLevel};
  appendDescendantSpans(root, ownSpanId, std::move(children), topLevel->trace_id(), appContext,
                        stopUnfinishedAt, spans);
  return spans;
}

// Appends the spans of the started-and-finished descendants, depth first with the last child
// first. The walk keeps its own stack, so a deep chain cannot exhaust the thread's, and reads each
// metric once. A child's parent id is its parent metric's span id: the span id of the metric it
// was listed under, known already, unless it has since been added under another parent. That
// check compares owners, so it changes no reference count of the parent.
void QENSpanExport::appendDescendantSpans(const QENPerformanceMetric& root, std::int64_t rootSpanId,
                                          QENPerformanceMetric::MetricList children,
                                          std::int64_t traceId,
                                          const QENPerformanceMetricAppContext& appContext,
                                          std::optional<double> stopUnfinishedAt, SpanList& spans) {
  std::vector<VisitedParent> parents = {{root.weak_from_this().lock(), rootSpanId}};
  std::vector<PendingMetric> stack;
  stack.reserve(children.size());
  for (auto& child : children) {
    stack.push_back({std::move(child), 0});
  }
  while (!stack.empty()) {
    PendingMetric pending = std::move(stack.back());
    stack.pop_back();
    const QENPerformanceMetric& candidate = *pending.metric;
    Snapshot snapshot = snapshotOf(candidate, false);
    if (snapshot.started && !snapshot.finished && stopUnfinishedAt) {
      snapshot.stopTime = *stopUnfinishedAt;
    } else if (!snapshot.started || !snapshot.finished) {
      continue;  // and so is its whole subtree
    }
    auto span = std::make_shared<QENThrift::Span>();
    span->setTrace_id(traceId);
    span->setParent_id(parentSpanId(candidate, parents[pending.listedUnder]));
    const std::int64_t candidateSpanId = candidate.spanId();
    if (!snapshot.childMetrics.empty()) {
      for (auto& child : snapshot.childMetrics) {
        stack.push_back({std::move(child), parents.size()});
      }
      parents.push_back({std::move(pending.metric), candidateSpanId});
    }
    fill(candidate, false, *span, appContext, candidateSpanId, std::move(snapshot));
    spans.push_back(std::move(span));
  }
}

std::int64_t QENSpanExport::parentSpanId(const QENPerformanceMetric& child,
                                         const VisitedParent& listedUnder) {
  if (child.parentMetric_.sharesOwnerWith(listedUnder.metric)) {
    return listedUnder.spanId;
  }
  const auto parent = child.parentMetric();
  return parent ? parent->spanId() : 0;
}

QENSpanExport::Snapshot QENSpanExport::snapshotOf(const QENPerformanceMetric& metric,
                                                  bool isTopLevel) {
  Snapshot snapshot{};
  const QENLockGuard guard(metric.propertyLock_);
  snapshot.started = metric.startTime_ != kUnsetTime;
  snapshot.finished = metric._locked_isFinished();
  snapshot.startTime = metric.startTime_;
  snapshot.stopTime = metric.stopTime_;
  snapshot.metricCause = metric.metricCause_;
  snapshot.invalidateReason = metric.invalidateReason_;
  snapshot.viewType = metric.viewType_;
  snapshot.viewParameter = metric.viewParameter_;
  // Room for what export adds: client send and receive; the local component, and on a top-level
  // span at most 7 uwt and 11 top-level annotations.
  constexpr std::size_t kAddedToEverySpan = 1;
  constexpr std::size_t kAddedToATopLevelSpan = kAddedToEverySpan + 7 + 11;
  snapshot.annotations.reserve(metric.annotations_.size() + 2);
  snapshot.annotations.assign(metric.annotations_.begin(), metric.annotations_.end());
  snapshot.binaryAnnotations.reserve(metric.binaryAnnotations_.size() +
                                     (isTopLevel ? kAddedToATopLevelSpan : kAddedToEverySpan));
  snapshot.binaryAnnotations.assign(metric.binaryAnnotations_.begin(),
                                    metric.binaryAnnotations_.end());
  snapshot.childMetrics = metric.childMetrics_;
  return snapshot;
}

void QENSpanExport::fillSpan(const QENPerformanceMetric& metric, bool isTopLevel,
                             QENThrift::Span& span,
                             const QENPerformanceMetricAppContext& appContext) {
  fill(metric, isTopLevel, span, appContext, metric.spanId(), snapshotOf(metric, isTopLevel));
}

void QENSpanExport::fill(const QENPerformanceMetric& metric, bool isTopLevel, QENThrift::Span& span,
                         const QENPerformanceMetricAppContext& appContext, std::int64_t spanId,
                         Snapshot snapshot) {
  using Constants = QENThrift::tracing_clientConstants;
  // A metric without a name makes a span named "", as the span has no absent name.
  const std::string name = lowercased(metric.name().value_or(std::string()));
  const bool isUWTSpan = isTopLevel && metric.name() && isUWTName(*metric.name());
  span.setId(spanId);
  span.setName(isUWTSpan ? std::string(Constants::UWT_SPAN_PREFIX()) + name : name);
  const double start = snapshot.startTime;
  const double stop = snapshot.stopTime;
  span.setTimestamp(QENMicrosecondsSince1970FromMonotonicTime(start));
  // Each time is scaled before the difference is taken: 10.0 s to 10.0000015 s gives 2 us, as
  // the times read in microseconds say, where scaling the difference would give 1.
  span.setDuration(QENRoundToInt64(stop * 1000000 - start * 1000000));

  // Client-send and client-receive take the span's microsecond times where a monotonic time is
  // expected, and so convert them a second time: that is the intended behaviour, and with the
  // offset-adding clock both saturate at the largest 64-bit value.
  snapshot.annotations.push_back(
      clientAnnotation(QENThrift::zipkin_spanConstants::CLIENT_SEND(), span.timestamp()));
  snapshot.annotations.push_back(
      clientAnnotation(QENThrift::zipkin_spanConstants::CLIENT_RECV(),
                       saturatingSum(span.timestamp(), span.duration())));
  span.setAnnotations(std::move(snapshot.annotations));

  auto& binaryAnnotations = snapshot.binaryAnnotations;
  binaryAnnotations.push_back(
      BinaryAnnotationQENAdditions::localComponentAnnotationForUWTSpan(isUWTSpan));
  if (isUWTSpan) {
    const auto uwt = BinaryAnnotationQENAdditions::uwtAnnotationsForStartReason(
        snapshot.metricCause, snapshot.invalidateReason, metric.completingEvent(),
        static_cast<std::int32_t>(metric.invalidatingQenLogEventType()),
        metric.invalidatingEvent());
    binaryAnnotations.insert(binaryAnnotations.end(), uwt.begin(), uwt.end());
  }
  if (isTopLevel) {
    const auto topLevel = BinaryAnnotationQENAdditions::topLevelAnnotationsForViewType(
        snapshot.viewType, snapshot.viewParameter, appContext);
    binaryAnnotations.insert(binaryAnnotations.end(), topLevel.begin(), topLevel.end());
  }
  span.setBinary_annotations(std::move(binaryAnnotations));
}
