#include "QENFatalHangRecording.h"

#include <utility>

#include "BinaryAnnotation+QENAdditions.h"
#include "QENPerformanceMetric.h"

namespace {

QENPerformanceMetric::SpanList fatalHangSpans(const QENRecordedHang& hang,
                                              const QENPerformanceMetricAppContext& appContext) {
  using Vocabulary = QENThrift::BinaryAnnotationQENAdditions;
  const auto span = QENPerformanceMetric::initLeafMetricWithName("app.hang", hang.start, hang.end);
  span->addBinaryAnnotation(Vocabulary::annotationWithKeyBoolean("app.hang.fatal", true));
  if (!hang.mainThreadStack.empty()) {
    span->addBinaryAnnotation(
        Vocabulary::annotationWithKeyString("app.hang.stack", hang.mainThreadStack));
  }
  return span->spansWithAppContext(appContext);
}

}  // namespace

std::function<void(const QENRecordedHang&, bool ongoing)> QENFatalHangRecording(
    std::shared_ptr<QENSpanSpool> spool, QENSpanEncoding encoding,
    QENPerformanceMetricAppContext appContext) {
  return [spool = std::move(spool), encoding = std::move(encoding),
          appContext = std::move(appContext)](const QENRecordedHang& hang, bool ongoing) {
    if (ongoing) {
      spool->storeSnapshot(kQENOngoingHangSnapshotId,
                           encoding.encodeBatch(fatalHangSpans(hang, appContext)));
    } else {
      spool->forgetSnapshot(kQENOngoingHangSnapshotId);
    }
  };
}
