// Measures one wait with the installed library and prints its span as Zipkin v2 JSON.
#include <QENPerformanceLoggerVersion.h>
#include <QENPerformanceMetric.h>
#include <QENZipkinV2JSONEncoder.h>

#include <cstdio>

int main() {
  const auto feed = QENPerformanceMetric::initWithName("home_feed_render");
  feed->addChildMetric(QENPerformanceMetric::createWithName("decode", [] {}));
  feed->startMetric();
  feed->stopMetric();
  const auto spans = feed->spansWithAppContext(QENPerformanceMetricAppContext("1", "consumer"));
  std::printf("QENPerformanceLogger %s: %s\n", QENPerformanceLoggerVersionString,
              QENZipkinV2JSONEncoder::encodeSpans(spans).c_str());
  return spans.size() == 2 ? 0 : 1;
}
