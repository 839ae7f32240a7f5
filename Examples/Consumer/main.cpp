// An app's use of the installed library, as the README shows it: measure a wait, export its spans,
// send them to a collector (when one is named: QENConsumer http://localhost:9411/api/v2/spans).
#include <QENPerformanceLogger.h>
#include <QENPerformanceLoggerExporters.h>

#include <cstdio>

int main(int argc, char** argv) {
  const auto feed = QENPerformanceMetric::initWithName("home_feed_render");
  feed->startMetric();
  feed->addChildMetric(QENPerformanceMetric::createWithName("decode", [] { /* the work */ }));
  feed->stopMetric();

  // The signed-in user's id (std::nullopt for nobody) and the host's platform label.
  const auto spans = feed->spansWithAppContext(QENPerformanceMetricAppContext("42", "android"));
  QENSpanReadingOptions service{.serviceName = "consumer-app"};
  std::printf("%s\n", QENZipkinV2JSONEncoder::encodeSpans(spans, service).c_str());

  if (argc > 1) {
    QENSpanReporterOptions options{.collectorURL = argv[1]};
    options.encoding.reading = service;
    QENSpanReporter reporter(options);
    reporter.report(spans);
    return reporter.shutdown(std::chrono::seconds(5)) ? 0 : 1;
  }
  return spans.size() == 2 ? 0 : 1;
}
