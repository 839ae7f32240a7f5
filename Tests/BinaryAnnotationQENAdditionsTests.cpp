#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "Annotation+QENAdditions.h"
#include "BinaryAnnotation+QENAdditions.h"
#include "QENBundle/QENBundle.h"
#include "QENDevice/QENDevice.h"
#include "QENFoundation/QENMonotonicTime.h"
#include "QENNumericConversion.h"
#include "QENReachability/QENNetworkingReachabilityManager.h"
#include "QENThrift/tracing_clientConstants.h"
#include "Support/QENAnnotationReaders.h"
#include "Support/QENCapturedAssertions.h"

namespace {

using QENTest::keysOf;
using QENTest::Vocabulary;
using Constants = QENThrift::tracing_clientConstants;
using QENThrift::AnnotationType;

std::vector<int> bytesOf(const Vocabulary::Pointer& annotation) {
  std::vector<int> bytes;
  for (const std::byte byte : annotation->value().value())
    bytes.push_back(std::to_integer<int>(byte));
  return bytes;
}

TEST(BinaryAnnotationVocabulary, EncodesBigEndianIntegersBooleansAndUnterminatedStrings) {
  const auto int16 = Vocabulary::annotationWithKeyInt16("k", 258);
  EXPECT_EQ(bytesOf(int16), (std::vector<int>{1, 2}));
  EXPECT_EQ(int16->annotation_type(), AnnotationType::I16);
  const auto int64 = Vocabulary::annotationWithKeyInt64("k", -2);
  EXPECT_EQ(bytesOf(int64), (std::vector<int>{255, 255, 255, 255, 255, 255, 255, 254}));
  EXPECT_EQ(Vocabulary::int64ValueFromBinaryAnnotation(int64), -2);
  EXPECT_EQ(bytesOf(Vocabulary::annotationWithKeyInt32("k", -1)), std::vector<int>(4, 255));
  const auto boolean = Vocabulary::annotationWithKeyBoolean("k", true);
  EXPECT_EQ(bytesOf(boolean), (std::vector<int>{1}));
  EXPECT_TRUE(Vocabulary::boolValueFromBinaryAnnotation(boolean) &&
              boolean->annotation_type() == AnnotationType::BOOL);
  const auto string = Vocabulary::annotationWithKeyString("k", "ios");
  EXPECT_EQ(bytesOf(string), (std::vector<int>{0x69, 0x6F, 0x73}));
  EXPECT_EQ(Vocabulary::stringValueFromBinaryAnnotation(string), "ios");
  // Readers reinterpret other types on purpose, and read missing bytes as zero.
  EXPECT_EQ(Vocabulary::int64ValueFromBinaryAnnotation(int16), 0x0102000000000000);
}

TEST(BinaryAnnotationVocabulary, ReportsAbsentInputsAndRejectsInvalidUTF8) {
  QENCapturedAssertions captured;
  const auto noString = Vocabulary::annotationWithKeyString("k", std::nullopt);
  EXPECT_FALSE(noString->value().has_value());
  EXPECT_EQ(Vocabulary::stringValueFromBinaryAnnotation(nullptr), std::nullopt);
  EXPECT_EQ(Vocabulary::int64ValueFromBinaryAnnotation(nullptr), 0);
  EXPECT_FALSE(Vocabulary::boolValueFromBinaryAnnotation(nullptr));
  const auto records = captured.records();
  ASSERT_EQ(records.size(), 4u);
  EXPECT_EQ(records[0].message, "The following expression must not evaluate to nil: string");
  EXPECT_EQ(records[0].method, "+[BinaryAnnotation(QENAdditions) annotationWithKey:string:]");
  EXPECT_EQ(records[1].message,
            "The following expression must not evaluate to nil: binaryAnnotation");

  for (const char* invalid :
       {"\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xE2\x82", "\xFF", "\x80"}) {
    EXPECT_EQ(Vocabulary::stringValueFromBinaryAnnotation(
                  Vocabulary::annotationWithKeyString("k", invalid)),
              std::nullopt)
        << invalid;
  }
  EXPECT_TRUE(
      Vocabulary::isValidUTF8("h\xC3\xA9llo \xE2\x82\xAC \xF0\x9F\x98\x80 \xF4\x8F\xBF\xBF\x7F"));
}

TEST(BinaryAnnotationVocabulary, MapsNetworkAndReasonTablesExactly) {
  QENCapturedAssertions captured;
  std::vector<std::int64_t> network, cellular, completion;
  for (const std::int64_t status : {0, 1, 2, 3, 4})
    network.push_back(Vocabulary::networkTypeWithReachabilityStatus(status));
  EXPECT_EQ(network, (std::vector<std::int64_t>{-1, 0, 2, 1, -1}));
  for (const std::int64_t type : {0, 1, 2, 3, 4, 5, 6, 100})
    cellular.push_back(Vocabulary::cellularNetworkTypeWithReachabilityType(type));
  EXPECT_EQ(cellular, (std::vector<std::int64_t>{-1, 2, 3, 4, 5, 5, 2, 2}));
  for (const std::int64_t reason : {-1, 1, 2, 3, 4, 5, 0, 7})
    completion.push_back(Vocabulary::uwtCompletionCauseForStopReason(reason));
  EXPECT_EQ(completion, (std::vector<std::int64_t>{1, 2, 3, 3, 3, 3, 3, 3}));
  EXPECT_EQ(Vocabulary::uwtCauseForStartReason(6), 6);
  EXPECT_EQ(Vocabulary::uwtCauseForStartReason(0), -1);
  EXPECT_EQ(Vocabulary::uwtCauseForStartReason(7), -1);
  EXPECT_EQ(captured.messages(),
            (std::vector<std::string>{"unhandled stop reason", "unhandled stop reason",
                                      "unhandled start reason", "unhandled start reason"}));
  EXPECT_EQ(Vocabulary::int64ValueFromBinaryAnnotation(
                Vocabulary::uwtResultReasonAnnotationWithStopReason(-1)) >>
                48,
            -1);
}

TEST(BinaryAnnotationVocabulary, BuildsTheUwtListInOrderWithOptionalParts) {
  EXPECT_EQ(keysOf(Vocabulary::uwtAnnotationsForStartReason(1, -1, 0, -1, nullptr)),
            (std::vector<std::string>{"uwt_cause", "uwt_result", "uwt_result_reason"}));
  EXPECT_EQ(Vocabulary::uwtInvalidateEventAnnotationWithInvalidatingQenLogEventType(-1, nullptr),
            nullptr);
  auto event = std::make_shared<QENThrift::Event>();
  const auto withTypeSeven =
      Vocabulary::uwtInvalidateEventAnnotationWithInvalidatingQenLogEventType(7, event);
  EXPECT_EQ(bytesOf(withTypeSeven), (std::vector<int>{0, 0, 0, 7}));
  event->setEventType(12);
  QENThrift::EventContext context;
  context.setViewType(3);
  context.setElement(9);
  event->setContext(context);
  const auto full = Vocabulary::uwtAnnotationsForStartReason(2, 1, 70000, -1, event);
  EXPECT_EQ(keysOf(full),
            (std::vector<std::string>{"uwt_cause", "uwt_result", "uwt_result_reason",
                                      "uwt_complete_event", "uwt_invalidate_event",
                                      "uwt_invalidate_view_type", "uwt_invalidate_element"}));
  EXPECT_EQ(bytesOf(full[3]), (std::vector<int>{0x11, 0x70})) << "70000 wraps to 16 bits";
  EXPECT_EQ(bytesOf(full[4]), (std::vector<int>{0, 0, 0, 12}));
}

TEST(BinaryAnnotationVocabulary, TopLevelAnnotationsCarryFixedNetworkViewAndUser) {
  QENDevice::setUserInterfaceIdiom(QENUserInterfaceIdiomPad);
  QENDevice::setSystemVersion("17.4");
  QENBundle::setMainBundleInfoValue("CFBundleShortVersionString", "312.0");
  auto& reachability = QENNetworkingReachabilityManager::prohibitedManager();
  reachability.setStatus(QENNetworkingReachabilityStatusCellular);
  reachability.setCellularType(4);
  reachability.setCarrierNames({"Carrier", "Other"});

  const QENPerformanceMetricAppContext context("  -42abc", "iphone");
  const auto annotations = Vocabulary::topLevelAnnotationsForViewType(0, -1, context);
  EXPECT_EQ(keysOf(annotations),
            (std::vector<std::string>{"app.version", "app.type", "device.type", "device.version",
                                      "device.os", "device.os_version", "net.type", "net.cell_type",
                                      "net.cell_carrier", "view.type", "user.id"}));
  EXPECT_EQ(Vocabulary::stringValueFromBinaryAnnotation(annotations[0]), "312.0");
  EXPECT_EQ(bytesOf(annotations[1]), (std::vector<int>{0, 2}));
  EXPECT_EQ(bytesOf(annotations[4]), (std::vector<int>{0, 6}));
  EXPECT_EQ(Vocabulary::stringValueFromBinaryAnnotation(annotations[5]), "17.4");
  EXPECT_EQ(bytesOf(annotations[7]), (std::vector<int>{0, 5}));
  EXPECT_EQ(Vocabulary::int64ValueFromBinaryAnnotation(annotations[10]), -42);

  // The platform of the first call stays; an unknown network adds nothing.
  reachability.setStatus(QENNetworkingReachabilityStatusUnknown);
  const QENPerformanceMetricAppContext other(std::nullopt, "ipad");
  const auto later = Vocabulary::topLevelAnnotationsForViewType(-1, -1, other);
  EXPECT_EQ(later.size(), 6u);
  EXPECT_EQ(Vocabulary::stringValueFromBinaryAnnotation(later[3]), "iphone");
  EXPECT_EQ(&Vocabulary::fixedAnnotationsWithQenPlatform("x"),
            &Vocabulary::fixedAnnotationsWithQenPlatform("y"));
}

// The user id a top-level span carries is the text's leading integer, saturated at either end.
TEST(NumericConversion, TheLeadingIntegerOfATextSaturatesAtEitherEnd) {
  constexpr auto kMax = std::numeric_limits<std::int64_t>::max();
  constexpr auto kMin = std::numeric_limits<std::int64_t>::min();
  const std::pair<const char*, std::int64_t> table[] = {
      {" \t+7x", 7},
      {"9000000000000000000", 9000000000000000000},
      {"9223372036854775808", kMax},
      {"-9223372036854775808", kMin},
      {"-99999999999999999999", kMin},
      {"x1", 0},
      {"", 0}};
  for (const auto& [text, value] : table)
    EXPECT_EQ(QENLeadingInt64(text), value) << text;
}

TEST(AnnotationVocabulary, TimestampsAreRoundedSaturatedMicrosecondsSince1970) {
  const double now = QENMonotonicTimeGetCurrent();
  const auto annotation = QENThrift::AnnotationQENAdditions::annotationWithName("cs", now);
  const double expected = (QENMonotonicTimeGetAbsoluteTime(now) + 978307200.0) * 1000000;
  EXPECT_EQ(annotation->timestamp(), static_cast<std::int64_t>(std::round(expected)));
  EXPECT_EQ(annotation->host()->service_name(), "ios");
  EXPECT_EQ(annotation->host(), QENThrift::AnnotationQENAdditions::sharedHost());
  constexpr auto kMax = std::numeric_limits<std::int64_t>::max();
  constexpr auto kMin = std::numeric_limits<std::int64_t>::min();
  EXPECT_EQ(QENThrift::AnnotationQENAdditions::annotationWithName("x", 1e300)->timestamp(), kMax);
  EXPECT_EQ(QENThrift::AnnotationQENAdditions::annotationWithName("x", -INFINITY)->timestamp(),
            kMin);
  EXPECT_EQ(QENThrift::AnnotationQENAdditions::annotationWithName("x", NAN)->timestamp(), 0);
}

}  // namespace
