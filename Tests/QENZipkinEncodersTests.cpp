#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "BinaryAnnotation+QENAdditions.h"
#include "QENChromeTraceEncoder.h"
#include "QENZipkinThriftEncoder.h"
#include "QENZipkinV2JSONEncoder.h"

namespace {

using Vocabulary = QENThrift::BinaryAnnotationQENAdditions;

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
  const std::vector<std::shared_ptr<QENThrift::Span>> spans = {span, nullptr};

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
  const std::vector<std::shared_ptr<QENThrift::Span>> spans = {span(1, std::nullopt), span(2, 1),
                                                               span(3, 2), span(4, 99)};
  const auto trace = nlohmann::json::parse(QENChromeTraceEncoder::encodeSpans(spans));
  std::vector<int> tracks;
  int instants = 0;
  for (const auto& event : trace["traceEvents"]) {
    if (event["ph"] == "X") {
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

}  // namespace
