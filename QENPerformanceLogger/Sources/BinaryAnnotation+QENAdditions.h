#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "QENPerformanceMetricAppContext.h"
#include "QENThrift/BinaryAnnotation.h"
#include "QENThrift/Event.h"

namespace QENThrift {

// The library's vocabulary of typed key/value annotations: the only way it makes them.
//
// Values are big-endian integers of 2, 4 or 8 bytes, a one-byte boolean, or a string's UTF-8
// bytes without terminator. The readers do not look at the annotation type: applied to an
// annotation of another type they reinterpret its bytes, and bytes missing from a short buffer
// read as zero.
class BinaryAnnotationQENAdditions {
 public:
  using Pointer = std::shared_ptr<const BinaryAnnotation>;
  using List = std::vector<Pointer>;
  using EventPointer = std::shared_ptr<const Event>;

  // Typed factories; the annotation has no host.
  static Pointer annotationWithKeyBoolean(std::string_view key, bool value);
  static Pointer annotationWithKeyInt16(std::string_view key, std::int16_t value);
  static Pointer annotationWithKeyInt32(std::string_view key, std::int32_t value);
  static Pointer annotationWithKeyInt64(std::string_view key, std::int64_t value);
  // An absent string is reported and gives an annotation without a value.
  static Pointer annotationWithKeyString(std::string_view key,
                                         std::optional<std::string_view> value);

  // Readers. An absent annotation is reported and reads as absent, 0 or false.
  static std::optional<std::string> stringValueFromBinaryAnnotation(
      const Pointer& binaryAnnotation);
  static std::int64_t int64ValueFromBinaryAnnotation(const Pointer& binaryAnnotation);
  static bool boolValueFromBinaryAnnotation(const Pointer& binaryAnnotation);

  // The network.
  static std::int16_t networkTypeWithReachabilityStatus(std::int64_t status);
  static std::int16_t cellularNetworkTypeWithReachabilityType(std::int64_t cellularType);
  static List annotationsForCurrentNetworkStatus();

  // The application and the device, built on the first call and shared after it: the platform
  // of the first call is the one every later call gets.
  static const List& fixedAnnotationsWithQenPlatform(std::string_view qenPlatform);
  static List topLevelAnnotationsForViewType(std::int64_t viewType, std::int64_t viewParameter,
                                             const QENPerformanceMetricAppContext& appContext);
  // One of two shared annotations; callers must not change it.
  static const Pointer& localComponentAnnotationForUWTSpan(bool isUWTSpan);

  // User-wait-time (uwt) causes and results.
  static std::int16_t uwtCauseForStartReason(std::int64_t startReason);
  static std::int64_t uwtCompletionCauseForStopReason(std::int64_t stopReason);
  static Pointer uwtResultAnnotationWithStopReason(std::int64_t stopReason);
  static Pointer uwtResultReasonAnnotationWithStopReason(std::int64_t stopReason);
  // Null when neither the event nor the type names an event (type -1).
  static Pointer uwtInvalidateEventAnnotationWithInvalidatingQenLogEventType(
      std::int32_t invalidatingQenLogEventType, const EventPointer& invalidatingEvent);
  static List uwtAnnotationsForStartReason(std::int64_t startReason, std::int64_t stopReason,
                                           std::uint64_t completingEvent,
                                           std::int32_t invalidatingQenLogEventType,
                                           const EventPointer& invalidatingEvent);

  // Whether bytes are well-formed UTF-8 (no overlong forms, surrogates or values past U+10FFFF).
  static bool isValidUTF8(std::string_view bytes);
};

}  // namespace QENThrift
