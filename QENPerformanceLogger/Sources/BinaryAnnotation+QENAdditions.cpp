#include "BinaryAnnotation+QENAdditions.h"

#include <cctype>
#include <limits>
#include <mutex>

#include "QENAssert.h"
#include "QENBundle/QENBundle.h"
#include "QENDevice/QENDevice.h"
#include "QENFoundation/QENUTF8Validation.h"
#include "QENNumericConversion.h"
#include "QENReachability/QENNetworkingReachabilityManager.h"
#include "QENThrift/tracing_clientConstants.h"
#include "QENThrift/zipkin_spanConstants.h"

namespace QENThrift {
namespace {

using Constants = tracing_clientConstants;
using Pointer = BinaryAnnotationQENAdditions::Pointer;
using List = BinaryAnnotationQENAdditions::List;

constexpr double kReachabilityTimeout = 5.0;
constexpr std::int16_t kDeviceOSValue = 6;

template <class Integer>
Pointer bigEndianAnnotation(std::string_view key, Integer value, AnnotationType type) {
  using Unsigned = std::make_unsigned_t<Integer>;
  const auto bits = static_cast<Unsigned>(value);
  BinaryAnnotation::Bytes bytes(sizeof(Integer));
  for (std::size_t index = 0; index < sizeof(Integer); ++index) {
    bytes[index] = static_cast<std::byte>(bits >> (8 * (sizeof(Integer) - 1 - index)));
  }
  return std::make_shared<const BinaryAnnotation>(std::string(key), std::move(bytes), type,
                                                  nullptr);
}

List buildFixedAnnotations(std::string_view qenPlatform) {
  const std::int16_t appType = QENDevice::userInterfaceIdiom() == QENUserInterfaceIdiomPad ? 2 : 1;
  const std::optional<std::string> version =
      QENBundle::mainBundle()->objectForInfoDictionaryKey("CFBundleShortVersionString");
  const std::string systemVersion = QENDevice::systemVersion();
  return {
      BinaryAnnotationQENAdditions::annotationWithKeyString(Constants::APP_VERSION(), version),
      BinaryAnnotationQENAdditions::annotationWithKeyInt16(Constants::APP_TYPE(), appType),
      BinaryAnnotationQENAdditions::annotationWithKeyInt16(Constants::DEVICE_TYPE(), appType),
      BinaryAnnotationQENAdditions::annotationWithKeyString(Constants::DEVICE_VERSION(),
                                                            qenPlatform),
      BinaryAnnotationQENAdditions::annotationWithKeyInt16(Constants::DEVICE_OS(), kDeviceOSValue),
      BinaryAnnotationQENAdditions::annotationWithKeyString(Constants::DEVICE_OS_VERSION(),
                                                            systemVersion),
  };
}

void append(List& list, const List& more) {
  list.insert(list.end(), more.begin(), more.end());
}

}  // namespace

// MARK: - Typed factories

Pointer BinaryAnnotationQENAdditions::annotationWithKeyBoolean(std::string_view key, bool value) {
  return std::make_shared<const BinaryAnnotation>(
      std::string(key),
      BinaryAnnotation::Bytes{std::byte{value ? std::uint8_t{1} : std::uint8_t{0}}},
      AnnotationType::BOOL, nullptr);
}

Pointer BinaryAnnotationQENAdditions::annotationWithKeyInt16(std::string_view key,
                                                             std::int16_t value) {
  return bigEndianAnnotation(key, value, AnnotationType::I16);
}

Pointer BinaryAnnotationQENAdditions::annotationWithKeyInt32(std::string_view key,
                                                             std::int32_t value) {
  return bigEndianAnnotation(key, value, AnnotationType::I32);
}

Pointer BinaryAnnotationQENAdditions::annotationWithKeyInt64(std::string_view key,
                                                             std::int64_t value) {
  return bigEndianAnnotation(key, value, AnnotationType::I64);
}

Pointer BinaryAnnotationQENAdditions::annotationWithKeyString(
    std::string_view key, std::optional<std::string_view> value) {
  QENAssert(value.has_value(), "+[BinaryAnnotation(QENAdditions) annotationWithKey:string:]",
            "The following expression must not evaluate to nil: %s", "string");
  std::optional<BinaryAnnotation::Bytes> bytes;
  if (value) {
    const auto* data = reinterpret_cast<const std::byte*>(value->data());
    bytes.emplace(data, data + value->size());
  }
  return std::make_shared<const BinaryAnnotation>(std::string(key), std::move(bytes),
                                                  AnnotationType::STRING, nullptr);
}

// MARK: - Readers

std::optional<std::string> BinaryAnnotationQENAdditions::stringValueFromBinaryAnnotation(
    const Pointer& binaryAnnotation) {
  QENAssertNotNil(binaryAnnotation,
                  "+[BinaryAnnotation(QENAdditions) stringValueFromBinaryAnnotation:]");
  if (binaryAnnotation == nullptr || !binaryAnnotation->value()) {
    return std::nullopt;
  }
  const BinaryAnnotation::Bytes& bytes = *binaryAnnotation->value();
  std::string text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  return isValidUTF8(text) ? std::optional(std::move(text)) : std::nullopt;
}

std::int64_t BinaryAnnotationQENAdditions::int64ValueFromBinaryAnnotation(
    const Pointer& binaryAnnotation) {
  QENAssertNotNil(binaryAnnotation,
                  "+[BinaryAnnotation(QENAdditions) int64ValueFromBinaryAnnotation:]");
  if (binaryAnnotation == nullptr || !binaryAnnotation->value()) {
    return 0;
  }
  const BinaryAnnotation::Bytes& bytes = *binaryAnnotation->value();
  std::uint64_t bits = 0;
  for (std::size_t index = 0; index < 8; ++index) {
    const auto byte = index < bytes.size() ? std::to_integer<std::uint64_t>(bytes[index]) : 0;
    bits = bits << 8 | byte;
  }
  return static_cast<std::int64_t>(bits);
}

bool BinaryAnnotationQENAdditions::boolValueFromBinaryAnnotation(const Pointer& binaryAnnotation) {
  QENAssertNotNil(binaryAnnotation,
                  "+[BinaryAnnotation(QENAdditions) boolValueFromBinaryAnnotation:]");
  if (binaryAnnotation == nullptr || !binaryAnnotation->value() ||
      binaryAnnotation->value()->empty()) {
    return false;
  }
  return binaryAnnotation->value()->front() != std::byte{0};
}

// MARK: - Network

std::int16_t BinaryAnnotationQENAdditions::networkTypeWithReachabilityStatus(std::int64_t status) {
  switch (status) {
    case 1:
      return 0;
    case 2:
      return 2;
    case 3:
      return 1;
    default:  // 0 and unknown statuses
      return -1;
  }
}

std::int16_t BinaryAnnotationQENAdditions::cellularNetworkTypeWithReachabilityType(
    std::int64_t cellularType) {
  switch (cellularType) {
    case 0:
      return -1;
    case 1:
      return 2;
    case 2:
      return 3;
    case 3:
      return 4;
    case 4:
    case 5:
      return 5;
    default:  // deliberately 2, not -1, for types past the table (and below it)
      return 2;
  }
}

List BinaryAnnotationQENAdditions::annotationsForCurrentNetworkStatus() {
  const QENNetworkingReachabilityManager& manager =
      QENNetworkingReachabilityManager::prohibitedManager();
  const std::int64_t status = manager.statusWithTimeout(kReachabilityTimeout);
  if (status == QENNetworkingReachabilityStatusUnknown) {
    return {};
  }
  List annotations = {
      annotationWithKeyInt16(Constants::NETWORK_TYPE(), networkTypeWithReachabilityStatus(status))};
  if (status == QENNetworkingReachabilityStatusCellular) {
    const std::int64_t cellularType = manager.cellularType();
    if (cellularType != QENNetworkingCellularTypeUnknown) {
      annotations.push_back(annotationWithKeyInt16(
          Constants::NETWORK_CELL_TYPE(), cellularNetworkTypeWithReachabilityType(cellularType)));
    }
    const std::vector<std::string> carriers = manager.carrierNames();
    if (!carriers.empty() && !carriers.front().empty()) {
      annotations.push_back(
          annotationWithKeyString(Constants::NETWORK_CELL_CARRIER(), carriers.front()));
    }
  }
  return annotations;
}

// MARK: - Application, device and top level

const List& BinaryAnnotationQENAdditions::fixedAnnotationsWithQenPlatform(
    std::string_view qenPlatform) {
  static const List* const fixed = new List(buildFixedAnnotations(qenPlatform));
  return *fixed;
}

List BinaryAnnotationQENAdditions::topLevelAnnotationsForViewType(
    std::int64_t viewType, std::int64_t viewParameter,
    const QENPerformanceMetricAppContext& appContext) {
  List annotations = fixedAnnotationsWithQenPlatform(appContext.qenPlatform());
  append(annotations, annotationsForCurrentNetworkStatus());
  if (viewType != -1) {
    annotations.push_back(
        annotationWithKeyInt32(Constants::VIEW_TYPE(), static_cast<std::int32_t>(viewType)));
  }
  if (viewParameter != -1) {
    annotations.push_back(annotationWithKeyInt32(Constants::VIEW_PARAMETER(),
                                                 static_cast<std::int32_t>(viewParameter)));
  }
  if (appContext.userId()) {
    annotations.push_back(
        annotationWithKeyInt64(Constants::USER_ID(), QENLeadingInt64(*appContext.userId())));
  }
  return annotations;
}

const Pointer& BinaryAnnotationQENAdditions::localComponentAnnotationForUWTSpan(bool isUWTSpan) {
  static const auto* const shared = new std::pair<Pointer, Pointer>(
      annotationWithKeyString(zipkin_spanConstants::LOCAL_COMPONENT(),
                              Constants::UWT_LOCAL_COMPONENT()),
      annotationWithKeyString(zipkin_spanConstants::LOCAL_COMPONENT(), "ios"));
  return isUWTSpan ? shared->first : shared->second;
}

// MARK: - Uwt causes and results

std::int16_t BinaryAnnotationQENAdditions::uwtCauseForStartReason(std::int64_t startReason) {
  if (startReason >= 1 && startReason <= 6) {
    return static_cast<std::int16_t>(startReason);
  }
  QENAssertionFailure("+[BinaryAnnotation(QENAdditions) uwtCauseForStartReason:]",
                      "unhandled start reason");
  return -1;
}

std::int64_t BinaryAnnotationQENAdditions::uwtCompletionCauseForStopReason(
    std::int64_t stopReason) {
  switch (stopReason) {
    case -1:
      return 1;
    case 1:
      return 2;
    case 2:
    case 3:
    case 4:
    case 5:
      return 3;
    default:  // 0 (Unknown) and values outside the table
      QENAssertionFailure("+[BinaryAnnotation(QENAdditions) uwtCompletionCauseForStopReason:]",
                          "unhandled stop reason");
      return 3;
  }
}

Pointer BinaryAnnotationQENAdditions::uwtResultAnnotationWithStopReason(std::int64_t stopReason) {
  return annotationWithKeyInt16(
      Constants::UWT_RESULT(),
      static_cast<std::int16_t>(uwtCompletionCauseForStopReason(stopReason)));
}

Pointer BinaryAnnotationQENAdditions::uwtResultReasonAnnotationWithStopReason(
    std::int64_t stopReason) {
  return annotationWithKeyInt16("uwt_result_reason", static_cast<std::int16_t>(stopReason));
}

Pointer BinaryAnnotationQENAdditions::uwtInvalidateEventAnnotationWithInvalidatingQenLogEventType(
    std::int32_t invalidatingQenLogEventType, const EventPointer& invalidatingEvent) {
  std::int32_t eventType = invalidatingQenLogEventType;
  if (invalidatingEvent && invalidatingEvent->eventTypeIsSet()) {
    eventType = invalidatingEvent->eventType();
  }
  return eventType == -1 ? nullptr : annotationWithKeyInt32("uwt_invalidate_event", eventType);
}

List BinaryAnnotationQENAdditions::uwtAnnotationsForStartReason(
    std::int64_t startReason, std::int64_t stopReason, std::uint64_t completingEvent,
    std::int32_t invalidatingQenLogEventType, const EventPointer& invalidatingEvent) {
  List annotations = {
      annotationWithKeyInt16(Constants::UWT_CAUSE(), uwtCauseForStartReason(startReason)),
      uwtResultAnnotationWithStopReason(stopReason)};
  const Pointer resultReason = uwtResultReasonAnnotationWithStopReason(stopReason);
  QENAssert(resultReason != nullptr,
            "+[BinaryAnnotation(QENAdditions) "
            "uwtAnnotationsForStartReason:stopReason:completingEvent:invalidatingQenLogEventType:"
            "invalidatingEvent:]",
            "There should always be UWT result reason reported. It is an integer which should not "
            "result in a null. If we can determine the result, we know the stop reason.");
  if (resultReason) {
    annotations.push_back(resultReason);
  }
  if (completingEvent != 0) {
    annotations.push_back(
        annotationWithKeyInt16("uwt_complete_event", static_cast<std::int16_t>(completingEvent)));
  }
  if (Pointer invalidateEvent = uwtInvalidateEventAnnotationWithInvalidatingQenLogEventType(
          invalidatingQenLogEventType, invalidatingEvent)) {
    annotations.push_back(std::move(invalidateEvent));
  }
  if (invalidatingEvent && invalidatingEvent->contextIsSet()) {
    const EventContext& context = invalidatingEvent->context();
    if (context.viewTypeIsSet()) {
      annotations.push_back(annotationWithKeyInt32("uwt_invalidate_view_type", context.viewType()));
    }
    if (context.viewParameterIsSet()) {
      annotations.push_back(
          annotationWithKeyInt32("uwt_invalidate_view_parameter", context.viewParameter()));
    }
    if (context.componentIsSet()) {
      annotations.push_back(
          annotationWithKeyInt32("uwt_invalidate_component", context.component()));
    }
    if (context.elementIsSet()) {
      annotations.push_back(annotationWithKeyInt32("uwt_invalidate_element", context.element()));
    }
  }
  return annotations;
}

// MARK: - UTF-8

bool BinaryAnnotationQENAdditions::isValidUTF8(std::string_view bytes) {
  return QENIsValidUTF8(bytes);
}

}  // namespace QENThrift
