#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <random>

#include "BinaryAnnotation+QENAdditions.h"
#include "QENChromeTraceEncoder.h"
#include "QENFoundation/QENNetworkEndianHexString.h"
#include "QENOTLPJSONEncoder.h"
#include "QENSpanEncoding.h"
#include "QENSpanReading.h"
#include "QENZipkinThriftEncoder.h"
#include "QENZipkinV2JSONEncoder.h"
#include "Support/QENRandomText.h"

namespace {

using Vocabulary = QENThrift::BinaryAnnotationQENAdditions;
using Spans = std::vector<std::shared_ptr<QENThrift::Span>>;
using Type = QENThrift::AnnotationType;

// Spans of any bytes and field values, present or absent, extremes often.
class RandomSpans {
 public:
  Spans make(int count) {
    Spans spans;
    for (int index = 0; index < count; ++index)
      spans.push_back(chance(3) ? nullptr : span());
    return spans;
  }

 private:
  bool chance(int percent) { return static_cast<int>(random_() % 100) < percent; }
  std::int64_t number() {
    const std::int64_t extremes[] = {0, -1, 1, INT64_MIN, INT64_MAX, 255};
    return chance(40) ? extremes[random_() % 6] : static_cast<std::int64_t>(random_());
  }
  std::int64_t id() { return chance(30) ? static_cast<std::int64_t>(random_() % 4) : number(); }
  std::string text() { return QENTest::randomText(random_, 2); }
  std::shared_ptr<const QENThrift::BinaryAnnotation> binary() {
    if (chance(15))  // a request's URL, which makes a client span
      return Vocabulary::annotationWithKeyString("endpoint_id", "https://" + text() + "/p");
    std::optional<QENThrift::BinaryAnnotation::Bytes> value;
    if (!chance(10)) {
      value.emplace();
      for (auto bytes = random_() % 10; bytes > 0; --bytes)
        value->push_back(static_cast<std::byte>(random_()));
    }
    return std::make_shared<const QENThrift::BinaryAnnotation>(
        text(), value, static_cast<Type>(random_() % 8), nullptr);
  }
  std::shared_ptr<QENThrift::Span> span() {
    auto made = std::make_shared<QENThrift::Span>();
    made->setTrace_id(number());
    made->setId(id());
    made->setName(text());
    if (chance(70))
      made->setParent_id(id());
    if (chance(80))
      made->setTimestamp(number());
    if (chance(80))
      made->setDuration(number());
    QENThrift::Span::AnnotationList annotations(random_() % 4);
    for (auto& annotation : annotations)
      annotation = chance(10)
                       ? nullptr
                       : std::make_shared<const QENThrift::Annotation>(number(), text(), nullptr);
    made->setAnnotations(annotations);
    QENThrift::Span::BinaryAnnotationList binaries(random_() % 6);
    for (auto& annotation : binaries)
      annotation = chance(10) ? nullptr : binary();
    made->setBinary_annotations(binaries);
    return made;
  }

  std::mt19937_64 random_{20261123};
};

// A reporter encodes each span once, to size its batch, and sends those bytes framed.
void expectFramedSpansMakeTheWholeBody(const Spans& spans) {
  using Format = QENSpanEncodingFormat;
  using Form = QENZipkinThriftEncoder::Form;
  for (const QENSpanEncoding& encoding :
       {QENSpanEncoding{Format::kZipkinV2JSON, {}, Form::kAsMade, false},
        QENSpanEncoding{Format::kZipkinV1Thrift, {}, Form::kAsMade, false},
        QENSpanEncoding{Format::kZipkinV1Thrift, {"Feed"}, Form::kBackendSafe, false},
        QENSpanEncoding{Format::kOTLPJSON, {"Feed"}, Form::kAsMade, false}}) {
    std::vector<std::string> encodedSpans;
    for (const auto& span : spans) {
      if (span != nullptr)
        encodedSpans.push_back(encoding.encodeSpan(*span));
    }
    const QENEncodedBatch framed = encoding.frameBatch(encodedSpans);
    EXPECT_EQ(framed.body, encoding.encode(spans)) << static_cast<int>(encoding.format);
    EXPECT_EQ(framed.spanCount, encodedSpans.size());
    EXPECT_EQ(encoding.unframeBatch(framed.body), encodedSpans) << "what a 413 splits";
    EXPECT_EQ(encoding.unframeBatch(framed.body.substr(0, framed.body.size() / 2)), std::nullopt);
  }
}

// Text as a JSON document carries it: invalid UTF-8 replaced.
std::string cleaned(std::string_view text) {
  const auto dumped = nlohmann::json(std::string(text))
                          .dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  return nlohmann::json::parse(dumped).get<std::string>();
}

void expectV2SaysWhatTheReadingSays(const Spans& spans, const nlohmann::json& document) {
  using QENFoundation::qen_networkEndianHexString;
  QENSpanReading reading;
  auto written = document.begin();
  for (const auto& span : spans) {
    if (span == nullptr)
      continue;
    ASSERT_NE(written, document.end());
    const auto& json = *written++;
    reading.read(*span);
    EXPECT_EQ(json["traceId"], qen_networkEndianHexString(span->trace_id()));
    EXPECT_EQ(json["id"], qen_networkEndianHexString(span->id()));
    EXPECT_EQ(json.value("parentId", ""),
              reading.parentId() ? qen_networkEndianHexString(*reading.parentId()) : "");
    EXPECT_EQ(json["name"], cleaned(span->name()));
    EXPECT_EQ(json.contains("timestamp"), reading.timestamp().has_value());
    EXPECT_EQ(json.contains("kind"), reading.kind() == QENSpanKind::kClient);
    EXPECT_EQ(json.value("annotations", nlohmann::json::array()).size(), reading.events().size());
    nlohmann::json tags = nlohmann::json::object();
    std::string scratch;
    for (const auto* tag : reading.tags())
      tags[cleaned(tag->key())] = cleaned(QENSpanReading::tagText(*tag, scratch));
    EXPECT_EQ(json.value("tags", nlohmann::json::object()), tags);
  }
  EXPECT_EQ(written, document.end());
}

TEST(Encoders, WriteDocumentsThatSayWhatTheSpanReadingSays) {
  RandomSpans random;
  for (int round = 0; round < 400; ++round) {
    const auto spans = random.make(round % 7);
    const auto v2 = QENZipkinV2JSONEncoder::encodeSpans(spans);
    ASSERT_TRUE(nlohmann::json::accept(v2)) << v2;
    expectV2SaysWhatTheReadingSays(spans, nlohmann::json::parse(v2));
    EXPECT_TRUE(nlohmann::json::accept(QENChromeTraceEncoder::encodeSpans(spans)));
    EXPECT_TRUE(nlohmann::json::accept(QENOTLPJSONEncoder::encodeSpans(spans)));
    expectFramedSpansMakeTheWholeBody(spans);
  }
}

}  // namespace
