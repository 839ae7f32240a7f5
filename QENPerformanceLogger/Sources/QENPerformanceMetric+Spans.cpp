// Span export: QENPerformanceMetric's Spans extension.
#include <algorithm>
#include <cctype>
#include <ranges>

#include "Annotation+QENAdditions.h"
#include "BinaryAnnotation+QENAdditions.h"
#include "QENFoundation/QENRandom.h"
#include "QENNumericConversion.h"
#include "QENPerformanceMetric.h"
#include "QENPerformanceSendsTraceInHeader.h"
#include "QENThrift/tracing_clientConstants.h"
#include "QENThrift/zipkin_spanConstants.h"
#include "QENTreeWalk.h"

namespace {

using QENThrift::AnnotationQENAdditions;
using QENThrift::BinaryAnnotationQENAdditions;

struct SpanExportWalk {};

// ASCII letters only: bytes of multi-byte UTF-8 characters are left as they are.
std::string lowercased(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char character) {
    return static_cast<char>(std::tolower(character));
  });
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

// Appends the span of `metric` (a started and finished descendant), then those of its
// descendants, last child first.
void appendDescendantSpans(const QENPerformanceMetric& metric, std::int64_t traceId,
                           const QENPerformanceMetricAppContext& appContext,
                           QENPerformanceMetric::SpanList& spans) {
  QENTreeWalk<SpanExportWalk>::visitChildren(
      &metric, std::views::reverse(metric.childMetrics()), [&](const QENPerformanceMetric& child) {
        if (!child.isStarted() || !child.isFinished()) {
          return;  // and so is its whole subtree
        }
        auto span = std::make_shared<QENThrift::Span>();
        span->setTrace_id(traceId);
        const auto parent = child.parentMetric();
        span->setParent_id(parent ? parent->spanId() : 0);
        child.setParametersForTopLevel(false, *span, appContext);
        spans.push_back(std::move(span));
        appendDescendantSpans(child, traceId, appContext, spans);
      });
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
  span.setDuration(QENRoundToInt64((stop - start) * 1000000));

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
  const auto* sender = dynamic_cast<const QENPerformanceSendsTraceInHeader*>(this);
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
