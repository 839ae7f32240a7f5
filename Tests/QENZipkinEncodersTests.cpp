#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <random>

#include "BinaryAnnotation+QENAdditions.h"
#include "QENChromeTraceEncoder.h"
#include "QENDevice/QENDevice.h"
#include "QENFoundation/QENNetworkEndianHexString.h"
#include "QENOTLPJSONEncoder.h"
#include "QENSpanEncoding.h"
#include "QENSpanReading.h"
#include "QENZipkinThriftEncoder.h"
#include "QENZipkinV2JSONEncoder.h"

namespace {

using Vocabulary = QENThrift::BinaryAnnotationQENAdditions;
using Spans = std::vector<std::shared_ptr<QENThrift::Span>>;

TEST(ZipkinEncoders, SurviveInvalidUTF8ControlCharactersAndAbsentFields) {
  auto span = std::make_shared<QENThrift::Span>();
  span->setName("bad \xff\xfe name\n\x01");
  span->setAnnotations(
      {nullptr, std::make_shared<const QENThrift::Annotation>(5, "a\"b", nullptr)});
  span->setBinary_annotations(
      {nullptr, Vocabulary::annotationWithKeyString("text", "\xc3\x28"),
       std::make_shared<const QENThrift::BinaryAnnotation>(
           "absent", std::nullopt, QENThrift::AnnotationType::STRING, nullptr),
       std::make_shared<const QENThrift::BinaryAnnotation>(
           "short", QENThrift::BinaryAnnotation::Bytes{std::byte{1}},
           QENThrift::AnnotationType::I64, nullptr),
       std::make_shared<const QENThrift::BinaryAnnotation>(
           "bytes", QENThrift::BinaryAnnotation::Bytes{std::byte{0xfb}, std::byte{0xff}},
           QENThrift::AnnotationType::BYTES, nullptr)});
  const Spans spans = {span, nullptr};

  const auto json = nlohmann::json::parse(QENZipkinV2JSONEncoder::encodeSpans(spans));
  ASSERT_EQ(json.size(), 1u);
  EXPECT_EQ(json[0]["name"], "bad \xef\xbf\xbd\xef\xbf\xbd name\n\x01") << "replaced, then escaped";
  EXPECT_EQ(json[0]["annotations"][0]["value"], "a\"b");
  EXPECT_EQ(json[0]["tags"], (nlohmann::json{{"text", "\xef\xbf\xbd("}, {"bytes", "+/8="}}));
  EXPECT_FALSE(json[0].contains("parentId") || json[0].contains("timestamp") ||
               json[0].contains("kind"));

  const auto thrift = QENZipkinThriftEncoder::encodeSpans(spans);
  EXPECT_EQ(std::vector<std::uint8_t>(thrift.begin(), thrift.begin() + 5),
            (std::vector<std::uint8_t>{12, 0, 0, 0, 1}))
      << "a list of one struct: the null span is skipped";
  EXPECT_EQ(QENZipkinThriftEncoder::encodeSpans({}), (std::vector<std::uint8_t>{12, 0, 0, 0, 0}));
}

TEST(ChromeTraceEncoder, PutsSpansOnTheTrackOfTheirDepthWithTheirAnnotations) {
  const auto span = [](std::int64_t id, std::optional<std::int64_t> parent) {
    auto made = std::make_shared<QENThrift::Span>();
    made->setId(id);
    made->setName("span\xff");
    made->setTimestamp(1000 * id);
    made->setDuration(10);
    if (parent)
      made->setParent_id(*parent);
    made->setAnnotations({std::make_shared<const QENThrift::Annotation>(5, "cs", nullptr),
                          std::make_shared<const QENThrift::Annotation>(7, "first_byte", nullptr)});
    return made;
  };
  const Spans spans = {span(1, std::nullopt), span(2, 1), span(3, 2), span(4, 99)};
  const auto trace = nlohmann::json::parse(QENChromeTraceEncoder::encodeSpans(spans));
  std::vector<int> tracks;
  int instants = 0;
  EXPECT_EQ(trace["traceEvents"][0]["args"]["name"], QENDevice::platformName())
      << "the process is named after the service";
  for (const auto& event : trace["traceEvents"]) {
    if (event["ph"] == "M") {
      continue;
    } else if (event["ph"] == "X") {
      tracks.push_back(event["tid"]);
      EXPECT_EQ(event["dur"], 10);
    } else {
      EXPECT_EQ(event["name"], "first_byte") << "client-send is left out";
      ++instants;
    }
  }
  EXPECT_EQ(tracks, (std::vector<int>{0, 1, 2, 0})) << "an unknown parent starts a new tree";
  EXPECT_EQ(instants, 4);
}

// Random spans of any bytes and any field values, present or absent: every encoder must write a
// document that says what the span reading says.
class RandomSpans {
 public:
  Spans make(int count) {
    Spans spans;
    for (int index = 0; index < count; ++index) {
      spans.push_back(chance(3) ? nullptr : span());
    }
    return spans;
  }

 private:
  bool chance(int percent) { return static_cast<int>(random_() % 100) < percent; }
  std::int64_t number() {
    const std::int64_t extremes[] = {0, -1, 1, INT64_MIN, INT64_MAX, 255};
    return chance(40) ? extremes[random_() % 6] : static_cast<std::int64_t>(random_());
  }
  std::string text() {
    const char* pieces[] = {"a",    "cs",       "cr",           "lc",
                            "\"",   "\\",       "\n",           "\x01",
                            "\x1f", "\x7f",     "\xC3\xA9",     "\xF0\x9F\x98\x80",
                            "\xC3", "\xE0\x80", "\xED\xA0\x80", "\xF4\x90",
                            "\xFF", "traceId",  "spanId",       "parentId"};
    std::string made;
    for (unsigned pieceCount = random_() % 3; pieceCount > 0; --pieceCount) {
      made += pieces[random_() % std::size(pieces)];
    }
    return made;
  }
  std::shared_ptr<const QENThrift::BinaryAnnotation> binary() {
    if (chance(15)) {  // a request's URL, which makes a client span
      return Vocabulary::annotationWithKeyString("endpoint_id", "https://" + text() + "/p");
    }
    std::optional<QENThrift::BinaryAnnotation::Bytes> value;
    if (!chance(10)) {
      value.emplace(random_() % 10);
      for (auto& byte : *value) {
        byte = static_cast<std::byte>(random_());
      }
    }
    const auto type = static_cast<QENThrift::AnnotationType>(random_() % 8);
    return std::make_shared<const QENThrift::BinaryAnnotation>(text(), value, type, nullptr);
  }
  std::shared_ptr<QENThrift::Span> span() {
    auto made = std::make_shared<QENThrift::Span>();
    made->setTrace_id(number());
    made->setId(chance(30) ? static_cast<std::int64_t>(random_() % 4) : number());
    made->setName(text());
    if (chance(70))
      made->setParent_id(chance(30) ? static_cast<std::int64_t>(random_() % 4) : number());
    if (chance(80))
      made->setTimestamp(number());
    if (chance(80))
      made->setDuration(number());
    QENThrift::Span::AnnotationList annotations;
    for (unsigned count = random_() % 4; count > 0; --count) {
      annotations.push_back(
          chance(10) ? nullptr
                     : std::make_shared<const QENThrift::Annotation>(number(), text(), nullptr));
    }
    made->setAnnotations(annotations);
    QENThrift::Span::BinaryAnnotationList binaries;
    for (unsigned count = random_() % 6; count > 0; --count) {
      binaries.push_back(chance(10) ? nullptr : binary());
    }
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
      if (span != nullptr) {
        encodedSpans.push_back(encoding.encodeSpan(*span));
      }
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

nlohmann::json tagsOf(const QENSpanReading& reading) {
  nlohmann::json tags = nlohmann::json::object();
  std::string scratch;
  for (const auto* tag : reading.tags()) {
    tags[cleaned(tag->key())] = cleaned(QENSpanReading::tagText(*tag, scratch));
  }
  return tags;
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
    EXPECT_EQ(json.value("tags", nlohmann::json::object()), tagsOf(reading));
  }
  EXPECT_EQ(written, document.end());
}

void expectChromeHasOneEventPerSpan(const Spans& spans, const nlohmann::json& trace) {
  std::vector<std::string> expected;
  for (const auto& span : spans) {
    if (span != nullptr)
      expected.push_back(cleaned(span->name()));
  }
  std::vector<std::string> names;
  for (const auto& event : trace["traceEvents"]) {
    if (event["ph"] == "X")
      names.push_back(event["name"]);
  }
  EXPECT_EQ(names, expected);
}

TEST(Encoders, WriteDocumentsThatSayWhatTheSpanReadingSays) {
  RandomSpans random;
  for (int round = 0; round < 400; ++round) {
    const auto spans = random.make(round % 7);
    const auto v2 = QENZipkinV2JSONEncoder::encodeSpans(spans);
    ASSERT_TRUE(nlohmann::json::accept(v2)) << v2;
    expectV2SaysWhatTheReadingSays(spans, nlohmann::json::parse(v2));
    const auto chrome = QENChromeTraceEncoder::encodeSpans(spans);
    ASSERT_TRUE(nlohmann::json::accept(chrome)) << chrome;
    expectChromeHasOneEventPerSpan(spans, nlohmann::json::parse(chrome));
    const auto otlp = QENOTLPJSONEncoder::encodeSpans(spans);
    EXPECT_TRUE(nlohmann::json::accept(otlp)) << otlp;
    expectFramedSpansMakeTheWholeBody(spans);
  }
}

}  // namespace
