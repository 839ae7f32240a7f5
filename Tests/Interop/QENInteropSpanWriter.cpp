// Exports a small measured tree and writes, into the folder given as argument:
//   spans.thrift    the Zipkin v1 Thrift encoding
//   spans-v2.json   the Zipkin v2 JSON encoding
//   expected.json   every field of every exported span, written field by field (no encoder)
// for check_zipkin_interop.py to read back with Apache Thrift and py_zipkin.
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>

#include "BinaryAnnotation+QENAdditions.h"
#include "QENFoundation/QENMonotonicTime.h"
#include "QENFoundation/QENNetworkEndianHexString.h"
#include "QENPerformanceMetric.h"
#include "QENReachability/QENNetworkingReachabilityManager.h"
#include "QENZipkinThriftEncoder.h"
#include "QENZipkinV2JSONEncoder.h"

namespace {

using Vocabulary = QENThrift::BinaryAnnotationQENAdditions;

nlohmann::json fieldsOf(const QENThrift::Span& span) {
  nlohmann::json fields = {{"trace_id", span.trace_id()},
                           {"id", span.id()},
                           {"name", span.name()},
                           {"timestamp", span.timestamp()},
                           {"duration", span.duration()}};
  fields["parent_id"] = span.parent_idIsSet() ? nlohmann::json(span.parent_id()) : nlohmann::json();
  for (const auto& annotation : span.annotations()) {
    fields["annotations"].push_back({{"timestamp", annotation->timestamp()},
                                     {"value", annotation->value()},
                                     {"host", annotation->host()->service_name()}});
  }
  for (const auto& annotation : span.binary_annotations()) {
    fields["binary_annotations"].push_back(
        {{"key", annotation->key()},
         {"value", QENFoundation::qen_hexString(*annotation->value())},
         {"annotation_type", static_cast<int>(annotation->annotation_type())}});
  }
  return fields;
}

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
      Vocabulary::annotationWithKeyString("endpoint_id", "https://api/feed"));
  root->addChildMetric(fetch);
  const auto image =
      QENPerformanceMetric::initLeafMetricWithName("image_load", now - 0.3, now - 0.1);
  image->addBinaryAnnotation(Vocabulary::annotationWithKeyInt32("net.speed_kbps", -7));
  root->addChildMetric(image);
  root->stopMetricWithTime(now);
  return root->spansWithAppContext(QENPerformanceMetricAppContext("1234", "linux"));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: " << argv[0] << " OUTPUT_FOLDER\n";
    return 2;
  }
  const std::string folder = argv[1];
  const auto spans = exportTree();
  const auto thrift = QENZipkinThriftEncoder::encodeSpans(spans);
  std::ofstream(folder + "/spans.thrift", std::ios::binary)
      .write(reinterpret_cast<const char*>(thrift.data()),
             static_cast<std::streamsize>(thrift.size()));
  std::ofstream(folder + "/spans-v2.json") << QENZipkinV2JSONEncoder::encodeSpans(spans);
  nlohmann::json expected = nlohmann::json::array();
  for (const auto& span : spans) {
    expected.push_back(fieldsOf(*span));
  }
  std::ofstream(folder + "/expected.json") << expected.dump(2);
  return 0;
}
