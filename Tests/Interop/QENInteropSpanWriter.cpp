// Exports a small measured tree and a recovered unfinished trace, and writes, into the folder
// given as argument:
//   spans-zipkin-v2.json  the Zipkin v2 JSON encoding
//   spans-otlp.json       the OTLP/HTTP JSON encoding
//   headers.json          propagation headers with the ids and decisions they carry
// for check_propagation_headers.js (OpenTelemetry JS's propagators) to read back. With --send URL
// FORMAT (zipkin-v2, zipkin-v1-thrift or otlp) it also sends the spans there through a reporter,
// two to a batch, for check_backends.py to compare with what a tracing server gives back.
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>

#include "Annotation+QENAdditions.h"
#include "BinaryAnnotation+QENAdditions.h"
#include "QENFoundation/QENMonotonicTime.h"
#include "QENFoundation/QENNetworkEndianHexString.h"
#include "QENFrameMonitor.h"
#include "QENHangMonitor.h"
#include "QENOTLPJSONEncoder.h"
#include "QENPerformanceMetric.h"
#include "QENReachability/QENNetworkingReachabilityManager.h"
#include "QENScreenDisplay.h"
#include "QENSpanReporter.h"
#include "QENTracePropagationHeaders.h"
#include "QENUnfinishedTraceWatcher.h"
#include "QENZipkinV2JSONEncoder.h"

namespace {

using Vocabulary = QENThrift::BinaryAnnotationQENAdditions;

QENPerformanceMetric::SpanList exportTree() {
  QENPerformanceMetric::setUwtMetricNames(QENPerformanceMetric::MetricNameSet{"home_feed_render"});
  QENNetworkingReachabilityManager::prohibitedManager().setStatus(
      QENNetworkingReachabilityStatusCellular);
  QENNetworkingReachabilityManager::prohibitedManager().setCarrierNames({"Carrier \xc3\xa9"});
  const double now = QENMonotonicTimeGetCurrent();
  // Random ids with the top bit set (negative as the library holds them), so that each run
  // makes a trace of its own.
  const auto random = QENPerformanceMetric::initWithName("ids");
  const auto root = QENPerformanceMetric::initWithName(
      "home_feed_render", random->traceId() | INT64_MIN, random->spanId() | INT64_MIN);
  root->setMetricCause(1);
  root->startMetricWithTime(now - 1);
  const auto fetch =
      QENPerformanceMetric::initLeafMetricWithName("feed_fetch", now - 0.9, now - 0.4);
  fetch->addBinaryAnnotation(Vocabulary::annotationWithKeyInt64("net.expected_size", 10500));
  fetch->addBinaryAnnotation(Vocabulary::annotationWithKeyBoolean("conn_reused", true));
  fetch->addBinaryAnnotation(
      Vocabulary::annotationWithKeyString("endpoint_id", "https://API.Example.com/feed"));
  fetch->addAnnotation(
      QENThrift::AnnotationQENAdditions::annotationWithName("first_byte", now - 0.6));
  root->addChildMetric(fetch);
  const auto image =
      QENPerformanceMetric::initLeafMetricWithName("image_load", now - 0.3, now - 0.1);
  image->addBinaryAnnotation(Vocabulary::annotationWithKeyInt32("net.speed_kbps", -7));
  root->addChildMetric(image);
  // The vitals: the screen's display spans, a slow frame, a hang of the main thread.
  QENScreenDisplay::track(root, now - 1, 30)->reportFullyDrawn(now - 0.95);
  QENFrameMonitor::shared().reportFrame(now - 0.9, 0.05, 1.0 / 120);
  QENHangMonitor& hangs = QENHangMonitor::shared();
  hangs.start({.threshold = 0.5,
               .captureMainThreadStack = [] { return std::string("main: Feed.layout"); },
               .observer = nullptr,
               .startsThread = false});
  for (double after = 0.1; after < 0.65; after += 0.1) {  // no heartbeat since a moment after now
    hangs.check(now + after);
  }
  hangs.heartbeat(now + 0.7);
  root->addChildMetric(
      QENPerformanceMetric::initLeafMetricWithName("d\xc3\xa9"
                                                   "codage_\xe7\x94\xbb\xe5\x83\x8f",
                                                   now - 0.1, now - 0.1));
  root->stopMetricWithTime(now + 1);
  return root->spansWithAppContext(QENPerformanceMetricAppContext("1234", "linux"));
}

// A tree the app was killed in, as the next launch reads it back from the spool.
QENPerformanceMetric::SpanList recoveredTree() {
  const double now = QENMonotonicTimeGetCurrent();
  const auto root = QENPerformanceMetric::initWithName("profile_render", 1.0);
  root->startMetricWithTime(now - 2);
  root->addChildMetric(
      QENPerformanceMetric::initLeafMetricWithName("profile_fetch", now - 2, now - 1));
  auto spans =
      root->snapshotSpansWithAppContext(QENPerformanceMetricAppContext("1234", "linux"), now);
  for (const auto& span : spans) {
    auto tags = span->binary_annotations();
    tags.push_back(Vocabulary::annotationWithKeyBoolean(kQENRecoveredAnnotationKey, true));
    span->setBinary_annotations(std::move(tags));
  }
  return spans;
}

// Sends the spans through a reporter, two to a batch, so that each trace arrives in parts.
bool send(const QENPerformanceMetric::SpanList& spans, const std::string& url,
          const std::string& format) {
  QENSpanReporterOptions options;
  options.collectorURL = url;
  options.maximumBatchSpans = 2;
  options.encoding.format = format == "otlp"               ? QENSpanEncodingFormat::kOTLPJSON
                            : format == "zipkin-v1-thrift" ? QENSpanEncodingFormat::kZipkinV1Thrift
                                                           : QENSpanEncodingFormat::kZipkinV2JSON;
  QENSpanReporter reporter(options);
  reporter.report(spans);
  return reporter.shutdown(std::chrono::seconds(10));
}

nlohmann::json headerCase(const QENTracePropagationHeaders::Context& context) {
  using QENFoundation::qen_networkEndianHexString;
  return {{"traceId", qen_networkEndianHexString(context.traceId)},
          {"spanId", qen_networkEndianHexString(context.spanId)},
          {"parentSpanId", qen_networkEndianHexString(context.parentSpanId)},
          {"sampled", context.sampled},
          {"debug", context.debug},
          {"headers", QENTracePropagationHeaders::headersForContext(context)}};
}

nlohmann::json headerCases() {
  nlohmann::json cases = nlohmann::json::array();
  const std::int64_t ids[][3] = {{0x0123456789abcdef, 0x1111, 0x2222},
                                 {-1, INT64_MIN, 1},
                                 {0x7fffffffffffffff, 0x00000000000000ff, -0x5555555555555556}};
  for (const auto& id : ids) {
    for (const auto& [sampled, debug] : {std::pair{true, false}, {false, false}, {false, true}}) {
      cases.push_back(headerCase({id[0], id[1], id[2], sampled, debug}));
    }
  }
  return cases;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2 && !(argc == 5 && std::string(argv[2]) == "--send")) {
    std::cerr << "usage: " << argv[0] << " OUTPUT_FOLDER [--send URL FORMAT]\n";
    return 2;
  }
  const std::string folder = argv[1];
  auto spans = exportTree();
  const auto recovered = recoveredTree();
  spans.insert(spans.end(), recovered.begin(), recovered.end());
  std::ofstream(folder + "/spans-zipkin-v2.json") << QENZipkinV2JSONEncoder::encodeSpans(spans);
  std::ofstream(folder + "/spans-otlp.json") << QENOTLPJSONEncoder::encodeSpans(spans);
  std::ofstream(folder + "/headers.json") << headerCases().dump(2);
  return argc == 2 || send(spans, argv[3], argv[4]) ? 0 : 1;
}
