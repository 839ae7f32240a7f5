// Span export: QENPerformanceMetric's Spans extension.
#include <limits>

#include "Annotation+QENAdditions.h"
#include "BinaryAnnotation+QENAdditions.h"
#include "QENFoundation/QENRandom.h"
#include "QENNumericConversion.h"
#include "QENPerformanceMetric.h"
#include "QENPerformanceSendsTraceInHeader.h"
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

// Appends the spans of the started-and-finished descendants of `root`, depth first with the last
// child first. The walk keeps its own stack, so a deep chain cannot exhaust the thread's.
void appendDescendantSpans(const QENPerformanceMetric& root, std::int64_t traceId,
                           const QENPerformanceMetricAppContext& appContext,
                           QENPerformanceMetric::SpanList& spans) {
  QENPerformanceMetric::MetricList stack = root.childMetrics();
  while (!stack.empty()) {
    const std::shared_ptr<QENPerformanceMetric> candidate = std::move(stack.back());
    stack.pop_back();
    if (!candidate->isStarted() || !candidate->isFinished()) {
      continue;  // and so is its whole subtree
    }
    auto span = std::make_shared<QENThrift::Span>();
    span->setTrace_id(traceId);
    const auto parent = candidate->parentMetric();
    span->setParent_id(parent ? parent->spanId() : 0);
    candidate->setParametersForTopLevel(false, *span, appContext);
    spans.push_back(std::move(span));
    const QENPerformanceMetric::MetricList children = candidate->childMetrics();
    stack.insert(stack.end(), children.begin(), children.end());
  }
}

}  // namespace

QENPerformanceMetric::SpanList QENPerformanceMetric::spansWithAppContext(
    const QENPerformanceMetricAppContext& appContext) const {
  auto topLevel = std::make_shared<QENThrift::Span>();
  topLevel->setTrace_id(traceId());
  setParametersForTopLevel(true, *topLevel, appContext);
  SpanList spans = {topLevel};
  appendDescendantSpans(*this, topLevel->trace_id(), appContext, spans);
  return spans;
}

void QENPerformanceMetric::setParametersForTopLevel(
    bool isTopLevel, QENThrift::Span& span,
    const QENPerformanceMetricAppContext& appContext) const {
  using Constants = QENThrift::tracing_clientConstants;
  const bool isUWTSpan = isTopLevel && isUWTName(name_);
  span.setId(spanId());
  span.setName(isUWTSpan ? std::string(Constants::UWT_SPAN_PREFIX()) + lowercased(name_)
                         : lowercased(name_));
  const double start = startTime();
  const double stop = stopTime();
  span.setTimestamp(QENMicrosecondsSince1970FromMonotonicTime(start));
  // Each time is scaled before the difference is taken: 10.0 s to 10.0000015 s gives 2 us, as
  // the times read in microseconds say, where scaling the difference would give 1.
  span.setDuration(QENRoundToInt64(stop * 1000000 - start * 1000000));

  // Client-send and client-receive take the span's microsecond times where a monotonic time is
  // expected, and so convert them a second time: that is the intended behaviour, and with the
  // offset-adding clock both saturate at the largest 64-bit value.
  QENThrift::Span::AnnotationList spanAnnotations = annotations();
  spanAnnotations.push_back(AnnotationQENAdditions::annotationWithName(
      QENThrift::zipkin_spanConstants::CLIENT_SEND(), static_cast<double>(span.timestamp())));
  spanAnnotations.push_back(AnnotationQENAdditions::annotationWithName(
      QENThrift::zipkin_spanConstants::CLIENT_RECV(),
      static_cast<double>(saturatingSum(span.timestamp(), span.duration()))));
  span.setAnnotations(std::move(spanAnnotations));

  QENThrift::Span::BinaryAnnotationList spanBinaryAnnotations = binaryAnnotations();
  spanBinaryAnnotations.push_back(
      BinaryAnnotationQENAdditions::localComponentAnnotationForUWTSpan(isUWTSpan));
  if (isUWTSpan) {
    const auto uwt = BinaryAnnotationQENAdditions::uwtAnnotationsForStartReason(
        metricCause(), invalidateReason(), completingEvent(),
        static_cast<std::int32_t>(invalidatingQenLogEventType()), invalidatingEvent());
    spanBinaryAnnotations.insert(spanBinaryAnnotations.end(), uwt.begin(), uwt.end());
  }
  if (isTopLevel) {
    const auto topLevel = BinaryAnnotationQENAdditions::topLevelAnnotationsForViewType(
        viewType(), viewParameter(), appContext);
    spanBinaryAnnotations.insert(spanBinaryAnnotations.end(), topLevel.begin(), topLevel.end());
  }
  span.setBinary_annotations(std::move(spanBinaryAnnotations));
}

std::int64_t QENPerformanceMetric::generateAndStoreSpanIdForURL(
    const std::shared_ptr<const QENURL>& url) {
  std::int64_t spanId = 0;
  QENFoundation::arc4random_buf(&spanId, sizeof spanId);  // drawn outside the lock
  if (url == nullptr) {
    return spanId;  // nothing to keep it under
  }
  const std::lock_guard guard(propertyLock_);
  urlToSpanId_.insert_or_assign(url->absoluteString(), spanId);
  return spanId;
}

std::int64_t QENPerformanceMetric::overriddenSpanId() const {
  const auto* sender = asTraceHeaderSender();
  if (sender == nullptr) {
    return 0;
  }
  const std::shared_ptr<const QENURL> url = sender->urlHeaderSentTo();
  if (url == nullptr) {
    return 0;
  }
  const std::lock_guard guard(propertyLock_);
  const auto found = urlToSpanId_.find(url->absoluteString());
  return found == urlToSpanId_.end() ? 0 : found->second;
}
