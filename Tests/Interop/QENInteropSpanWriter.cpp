// Exports a small measured tree and writes, into the folder given as argument:
//   spans-safe.thrift  the Zipkin v1 Thrift encoding, in the backend-safe form a reporter sends
//   spans-v2.json      the Zipkin v2 JSON encoding
//   spans-otlp.json    the OTLP/HTTP JSON encoding
//   headers.json       propagation headers with the ids and decisions they carry
// for check_zipkin_interop.py (Apache Thrift, py_zipkin) and check_otlp_interop.js
// (OpenTelemetry JS's OTLP protobuf types and propagators) to read back.
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>

#include "Annotation+QENAdditions.h"
#include "BinaryAnnotation+QENAdditions.h"
#include "QENFoundation/QENMonotonicTime.h"
#include "QENFoundation/QENNetworkEndianHexString.h"
#include "QENOTLPJSONEncoder.h"
#include "QENPerformanceMetric.h"
#include "QENReachability/QENNetworkingReachabilityManager.h"
#include "QENTracePropagationHeaders.h"
#include "QENZipkinThriftEncoder.h"
#include "QENZipkinV2JSONEncoder.h"

namespace {

using Vocabulary = QENThrift::BinaryAnnotationQENAdditions;

QENPerformanceMetric::SpanList exportTree() {
  QENPerformanceMetric::setUwtMetricNames(QENPerformanceMetric::MetricNameSet{"home_feed_render"});
  QENNetworkingReachabilityManager::prohibitedManager().setStatus(
      QENNetworkingReachabilityStatusCellular);
  QENNetworkingReachabilityManager::prohibitedManager().setCarrierNames({"Carrier \xc3\xa9"});
  const double now = QENMonotonicTimeGetCurrent();
  const auto root = QENPerformanceMetric::initWithName("home_feed_render", 1.0);
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
  root->stopMetricWithTime(now);
  return root->spansWithAppContext(QENPerformanceMetricAppContext("1234", "linux"));
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
  if (argc != 2) {
    std::cerr << "usage: " << argv[0] << " OUTPUT_FOLDER\n";
    return 2;
  }
  const std::string folder = argv[1];
  const auto spans = exportTree();
  const auto thrift =
      QENZipkinThriftEncoder::encodeSpans(spans, QENZipkinThriftEncoder::Form::kBackendSafe);
  std::ofstream(folder + "/spans-safe.thrift", std::ios::binary)
      .write(reinterpret_cast<const char*>(thrift.data()),
             static_cast<std::streamsize>(thrift.size()));
  std::ofstream(folder + "/spans-v2.json") << QENZipkinV2JSONEncoder::encodeSpans(spans);
  std::ofstream(folder + "/spans-otlp.json") << QENOTLPJSONEncoder::encodeSpans(spans);
  std::ofstream(folder + "/headers.json") << headerCases().dump(2);
  return 0;
}
